#include "Protocol.h"
#include "Station.h"

#include <QJsonArray>

#include <algorithm>

namespace sim {

namespace {

const char* const errorNames[] = {"None",           "Memory",        "Param",      "NotFound",
                                  "FileNameLength", "Busy",          "IO",         "Mode",
                                  "Write",          "Read",          "EOF",        "NotReady",
                                  "Permission",     "Range",         "Size",       "Overrun",
                                  "Parse",          "Configuration", "Timeout",    "Initialization",
                                  "Version",        "Unimplemented", "Duplicate",  "Cancel",
                                  "Packet",         "Connection",    "IndexRange", "ShortCommand",
                                  "InvalidEntity",  "InvalidOption", "Resource",   "Media",
                                  "AsyncReturn",    "Operation",     "Unknown"};

QJsonObject answer(const StemAnswer& stem) {
    QJsonObject reply{{QStringLiteral("result"), static_cast<qint64>(stem.result)}};
    if (stem.value)
        reply.insert(QStringLiteral("value"), *stem.value);
    if (!stem.message.isEmpty())
        reply.insert(QStringLiteral("message"), stem.message);
    return reply;
}

std::optional<std::uint32_t> serialArgument(const QJsonObject& request) {
    const QJsonValue value = request.value(QLatin1String("serial"));
    if (!value.isDouble())
        return std::nullopt;
    const qint64 serial = value.toInteger(-1);
    if (serial < 0 || serial > 0xFFFFFFFF)
        return std::nullopt;
    return static_cast<std::uint32_t>(serial);
}

Hub* firstPresentHub(const Station& station) {
    for (const auto& hub : station.hubs())
        if (hub->present())
            return hub.get();
    return nullptr;
}

QJsonObject discover(const Station& station, const QJsonObject& request) {
    QJsonArray specs;
    if (request.value(QLatin1String("linkType")).toInt(1) == 1)
        for (const auto& hub : station.hubs())
            if (hub->present())
                specs.append(hub->linkSpec());
    return {{QStringLiteral("specs"), specs}};
}

QJsonObject connectHub(Station& station, std::uint32_t serial) {
    Hub* hub = serial == 0 ? firstPresentHub(station) : station.hubBySerial(serial);
    if (hub == nullptr || !hub->present())
        return failure(code::notFound,
                       QStringLiteral("no hub with serial %1 on the bus").arg(serial));
    if (const auto fault = hub->faults().next(QStringLiteral("connect"), -1); fault && *fault != 0)
        return failure(static_cast<int>(*fault), QStringLiteral("scripted fault"));
    const quint64 link = station.newLink();
    hub->addLink(link);
    return {{QStringLiteral("serial"), static_cast<qint64>(hub->serial())},
            {QStringLiteral("link"), static_cast<qint64>(link)}};
}

quint64 linkArgument(const QJsonObject& request) {
    return static_cast<quint64>(
        std::max<qint64>(0, request.value(QLatin1String("link")).toInteger()));
}

}  // namespace

QJsonObject handleStemCall(Station& station, const QString& call, const QJsonObject& request) {
    const QString method = call.mid(5);
    if (method == QLatin1String("discover"))
        return discover(station, request);
    if (method == QLatin1String("versionText"))
        return {
            {QStringLiteral("text"), versionText(static_cast<std::uint32_t>(
                                         request.value(QLatin1String("version")).toInteger()))}};
    if (method == QLatin1String("errorText")) {
        const qint64 code = request.value(QLatin1String("code")).toInteger(-1);
        const qint64 last = static_cast<qint64>(std::size(errorNames)) - 1;
        return {{QStringLiteral("text"),
                 QString::fromLatin1(errorNames[code >= 0 && code < last ? code : last])}};
    }
    const auto serial = serialArgument(request);
    if (!serial)
        return failure(code::param, QStringLiteral("\"serial\" must be a 32-bit number"));
    if (method == QLatin1String("connect"))
        return connectHub(station, *serial);
    Hub* hub = station.hubBySerial(*serial);
    const quint64 link = linkArgument(request);
    if (method == QLatin1String("isConnected"))
        return {{QStringLiteral("connected"), hub != nullptr && hub->linked(link)}};
    if (method == QLatin1String("disconnect")) {
        if (hub != nullptr)
            hub->dropLink(link);
        return {};
    }
    if (!method.startsWith(QLatin1String("port.")) && !method.startsWith(QLatin1String("pd.")) &&
        !method.startsWith(QLatin1String("system.")))
        return failure(code::unimplemented, QStringLiteral("unknown call \"%1\"").arg(call));
    if (hub == nullptr || !hub->present())
        return failure(code::connection, QStringLiteral("hub %1 is not on the bus").arg(*serial));
    if (!hub->linked(link))
        return failure(code::connection,
                       QStringLiteral("no link to hub %1: connect first").arg(*serial));
    const int index = method.startsWith(QLatin1String("system."))
                          ? 0
                          : static_cast<int>(request.value(QLatin1String("index")).toInteger(-1));
    if (const auto fault = hub->faults().next(method, index); fault && *fault != 0)
        return failure(static_cast<int>(*fault), QStringLiteral("scripted fault"));
    return answer(hub->call(method, index, request));
}

}  // namespace sim
