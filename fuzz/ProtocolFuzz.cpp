// The simulator's request reader: every input line is one request to the default station, read
// and answered as the socket server does (parse, book the hub link, dispatch, write the reply).
// A blank line lets a simulated second pass instead, which is also when what the requests changed
// reaches the station's USB bus. Moving time after every request rebuilt the bus dozens of times
// an input, so the fuzzer spent its time there rather than on the requests.
#include "Protocol.h"
#include "Scheduler.h"
#include "Station.h"
#include "StationConfig.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstddef>
#include <cstdint>

namespace {

// Every input starts a station of its own, so the station's size is paid on every input: the
// default station cut to its first hub with three Macs and the host's DFU port reaches every
// request the full one does (the seeds address that hub) at a fraction of the cost. Read once:
// its parser has a target of its own.
const sim::StationConfig& fuzzedConfig() {
    static const sim::StationConfig config = [] {
        sim::StationConfig station = sim::defaultStation();
        station.hubs.resize(1);
        station.hubs.front().macs.resize(3);
        return station;
    }();
    return config;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sim::ManualScheduler scheduler;
    sim::Station station(fuzzedConfig(), scheduler);
    sim::Protocol protocol(station, 1.0);
    const QByteArrayView input(data, static_cast<qsizetype>(size));
    qsizetype from = 0;
    while (from < input.size()) {
        qsizetype end = input.indexOf('\n', from);
        if (end < 0)
            end = input.size();
        const QByteArrayView line = input.sliced(from, end - from);
        from = end + 1;
        if (line.trimmed().isEmpty()) {
            scheduler.advance(1.0);
            continue;
        }
        const QJsonDocument document = QJsonDocument::fromJson(line.toByteArray());
        if (!document.isObject())
            continue;
        const QJsonObject request = document.object();
        protocol.roundTripMicroseconds(request);
        QJsonDocument(protocol.handle(request)).toJson(QJsonDocument::Compact);
    }
    return 0;
}
