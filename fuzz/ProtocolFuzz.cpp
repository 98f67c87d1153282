// The simulator's request reader: every input line is one request to the default station, read
// and answered as the socket does, with simulated time moving on between requests.
#include "Protocol.h"
#include "Scheduler.h"
#include "Station.h"
#include "StationConfig.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sim::StationConfig config = sim::defaultStation();
    config.timing.stemLatencySeconds = 0;
    sim::ManualScheduler scheduler;
    sim::Station station(std::move(config), scheduler);
    sim::Protocol protocol(station, 1.0);
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    for (const QByteArray& line : input.split('\n')) {
        const QJsonDocument document = QJsonDocument::fromJson(line);
        if (document.isObject())
            protocol.handle(document.object());
        scheduler.advance(1.0);
    }
    return 0;
}
