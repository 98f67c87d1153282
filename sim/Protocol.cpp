#include "Protocol.h"

#include "Station.h"

#include <algorithm>

namespace sim {

QJsonObject failure(int result, const QString& message) {
    return {{QStringLiteral("result"), result}, {QStringLiteral("message"), message}};
}

Protocol::Protocol(Station& station, double speed) : station_(station), speed_(speed) {
    clock_.start();
}

QJsonObject Protocol::handle(const QJsonObject& request) {
    const QJsonValue call = request.value(QLatin1String("call"));
    QJsonObject reply =
        call.isString() ? dispatch(call.toString(), request)
                        : failure(code::param, QStringLiteral("a request needs a \"call\" text"));
    reply.insert(QStringLiteral("id"), request.value(QLatin1String("id")));
    if (!reply.contains(QLatin1String("result")))
        reply.insert(QStringLiteral("result"), 0);
    return reply;
}

QJsonObject Protocol::dispatch(const QString& call, const QJsonObject& request) {
    if (call.startsWith(QLatin1String("stem.")))
        return handleStemCall(station_, call, request);
    if (call == QLatin1String("usb.list"))
        return {{QStringLiteral("devices"), station_.usbDevices()}};
    if (call == QLatin1String("macs.list"))
        return macsList();
    if (call == QLatin1String("mac.restore"))
        return restoreCall(request, false);
    if (call == QLatin1String("mac.cancelRestore"))
        return restoreCall(request, true);
    if (call == QLatin1String("mac.engineFaultUsed"))
        return engineFaultUsed(request);
    if (call == QLatin1String("local.dfu"))
        return localMessage(true);
    if (call == QLatin1String("local.reboot"))
        return localMessage(false);
    if (call == QLatin1String("cfgutil.faults"))
        return {{QStringLiteral("garbledList"), station_.config().garbledList}};
    if (call == QLatin1String("idevicerestore.options"))
        return {{QStringLiteral("errorStyle"), station_.config().idevicerestore.errorStyle},
                {QStringLiteral("version"), station_.config().idevicerestore.version}};
    if (call == QLatin1String("station.info"))
        return {{QStringLiteral("hubs"), static_cast<int>(station_.hubs().size())},
                {QStringLiteral("speed"), speed_},
                {QStringLiteral("file"), station_.config().source},
                {QStringLiteral("time"), station_.scheduler().now()}};
    return failure(code::unimplemented, QStringLiteral("unknown call \"%1\"").arg(call));
}

qint64 Protocol::roundTripMicroseconds(const QJsonObject& request) {
    const QString call = request.value(QLatin1String("call")).toString();
    if (!call.startsWith(QLatin1String("stem.")) || call == QLatin1String("stem.versionText") ||
        call == QLatin1String("stem.errorText"))
        return 0;
    const auto latency =
        static_cast<qint64>(station_.config().timing.stemLatencySeconds / speed_ * 1e6);
    if (latency <= 0)
        return 0;
    const qint64 now = clock_.nsecsElapsed() / 1000;
    qint64& freeAt = linkFreeAt_[request.value(QLatin1String("serial")).toInteger(0)];
    freeAt = std::max(freeAt, now) + latency;
    return freeAt - now;
}

QJsonObject Protocol::macsList() const {
    QJsonArray macs;
    for (const Mac* mac : station_.macs()) macs.append(station_.macEntry(*mac));
    return {{QStringLiteral("macs"), macs}};
}

QJsonObject Protocol::restoreCall(const QJsonObject& request, bool cancel) {
    const QString written = request.value(QLatin1String("ecid")).toString();
    bool ok = false;
    const std::uint64_t ecid = written.startsWith(QLatin1String("0x"), Qt::CaseInsensitive)
                                   ? written.mid(2).toULongLong(&ok, 16)
                                   : 0;
    if (!ok)
        return failure(code::param,
                       QStringLiteral("\"ecid\" must be \"0x\" and hexadecimal digits"));
    QString message;
    const int result =
        cancel ? station_.cancelRestore(ecid, &message) : station_.startRestore(ecid, &message);
    return result == 0 ? QJsonObject{} : failure(result, message);
}

QJsonObject Protocol::engineFaultUsed(const QJsonObject& request) {
    bool ok = false;
    const QString written = request.value(QLatin1String("ecid")).toString();
    Mac* mac = written.startsWith(QLatin1String("0x"), Qt::CaseInsensitive)
                   ? station_.macByEcid(written.mid(2).toULongLong(&ok, 16))
                   : nullptr;
    if (!ok || mac == nullptr)
        return failure(code::notFound, QStringLiteral("no Mac with ECID \"%1\"").arg(written));
    mac->useEngineFault();
    return {};
}

QJsonObject Protocol::localMessage(bool dfu) {
    Mac* mac = station_.localMac();
    if (mac == nullptr)
        return failure(code::notFound, QStringLiteral("nothing is cabled to the DFU port"));
    mac->receive(dfu ? VendorMessage::Dfu : VendorMessage::Reboot);
    return {};
}

}  // namespace sim
