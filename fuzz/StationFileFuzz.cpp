// The station-file parser, and a station built from whatever it accepts.
#include "Scheduler.h"
#include "Station.h"
#include "StationConfig.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray json(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    sim::StationLoad load = sim::parseStation(json, QStringLiteral("fuzz.json"));
    if (!load.station)
        return 0;
    sim::ManualScheduler scheduler;
    sim::Station station(std::move(*load.station), scheduler);
    scheduler.advance(3600);
    return 0;
}
