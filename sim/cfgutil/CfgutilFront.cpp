#include "CfgutilFront.h"

#include "ListingDocument.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <unistd.h>
#include <cstdio>

namespace simcfgutil {
namespace {

std::optional<std::uint64_t> parseEcid(const QString& text) {
    bool ok = false;
    if (text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive)) {
        const std::uint64_t value = text.mid(2).toULongLong(&ok, 16);
        return ok ? std::optional(value) : std::nullopt;
    }
    // The Configurator code writes the ECID as a signed decimal; large ones come out negative.
    const qint64 value = text.toLongLong(&ok);
    if (ok)
        return static_cast<std::uint64_t>(value);
    const std::uint64_t unsignedValue = text.toULongLong(&ok);
    return ok ? std::optional(unsignedValue) : std::nullopt;
}

QString hexEcid(std::uint64_t ecid) {
    return QStringLiteral("0x") + QString::number(ecid, 16).toUpper();
}

// A Mac the tool can see: one that talks to the host from its boot ROM or its recovery system.
bool visibleToTool(const QJsonObject& mac) {
    const QString state = mac.value("state").toString();
    return mac.value("onBus").toBool() &&
           (state == "dfu" || state == "recovery" || state == "restoring");
}

QJsonArray visibleMacs(const QJsonObject& reply) {
    QJsonArray visible;
    for (const QJsonValue& mac : reply.value("macs").toArray())
        if (visibleToTool(mac.toObject()))
            visible.append(mac);
    return visible;
}

QByteArray textListing(const QJsonArray& macs) {
    QByteArray text;
    for (const QJsonValue& value : macs) {
        const QJsonObject mac = value.toObject();
        text += QStringLiteral("Type: %1\tECID: %2\tUDID: %3\tLocation: 0x%4\tName: %5\n")
                    .arg(mac.value("deviceType").toString(), mac.value("ecid").toString(),
                         mac.value("udid").toString(),
                         QString::number(mac.value("locationID").toInteger(), 16),
                         mac.value("name").toString())
                    .toUtf8();
    }
    return text;
}

}  // namespace

std::optional<Options> parseOptions(const QStringList& arguments, QString* error) {
    Options options;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& word = arguments[i];
        const bool hasValue = i + 1 < arguments.size();
        if (word == "--progress") {
            options.progress = true;
        } else if ((word == "--format" || word == "-f") && hasValue) {
            options.format = arguments[++i];
            if (options.format != "plist" && options.format != "json" && options.format != "text") {
                *error = QStringLiteral("unknown format \"%1\"").arg(options.format);
                return std::nullopt;
            }
        } else if ((word == "-e" || word == "--ecid") && hasValue) {
            options.ecid = parseEcid(arguments[++i]);
            if (!options.ecid) {
                *error = QStringLiteral("\"%1\" is not an ECID").arg(arguments[i]);
                return std::nullopt;
            }
        } else if (word == "-I" && hasValue) {
            options.ipsw = arguments[++i];
        } else if ((word == "list" || word == "restore") && options.command.isEmpty()) {
            options.command = word;
        } else {
            *error = QStringLiteral("unexpected argument \"%1\"").arg(word);
            return std::nullopt;
        }
    }
    if (options.command.isEmpty()) {
        *error = QStringLiteral("no command given (list or restore)");
        return std::nullopt;
    }
    return options;
}

CfgutilFront::CfgutilFront(core::SimulatorConnection& simulator, Options options)
    : simulator_(simulator), options_(std::move(options)) {
    connect(&simulator_, &core::SimulatorConnection::eventReceived, this, &CfgutilFront::onEvent);
    connect(&simulator_, &core::SimulatorConnection::disconnected, this, [this] {
        if (running_)
            emit finished(failure(QStringLiteral("lost the simulator mid-restore")));
        running_ = false;
    });
}

// The tool's standard output is fully buffered on a pipe: a long document leaves it one buffer at
// a time, in several writes a reader may see as several chunks.
void CfgutilFront::writeBuffered(const QByteArray& bytes) {
    constexpr qsizetype bufferSize = 16 * 1024;
    for (qsizetype start = 0; start < bytes.size(); start += bufferSize)
        write(bytes.mid(start, bufferSize));
}

void CfgutilFront::write(const QByteArray& bytes) {
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t count = ::write(STDOUT_FILENO, bytes.constData() + done,
                                      static_cast<size_t>(bytes.size() - done));
        if (count <= 0)
            return;
        done += count;
    }
}

int CfgutilFront::failure(const QString& message, int code) {
    if (options_.format != "text")
        write(errorDocument(options_.command, message, code, options_.format == "plist"));
    std::fprintf(stderr, "cfgutil: error: %s\n", qPrintable(message));
    return 1;
}

int CfgutilFront::list() {
    const std::optional<QJsonObject> reply = simulator_.request("macs.list");
    if (!reply)
        return failure(simulator_.lastError());
    const QJsonArray macs = visibleMacs(*reply);
    const std::optional<QJsonObject> faults = simulator_.request("cfgutil.faults");
    const bool garbled = faults && faults->value("garbledList").toBool();
    if (options_.format == "text")
        writeBuffered(textListing(macs));
    else if (garbled)
        writeBuffered(garbledListingDocument(macs, options_.format == "plist"));
    else
        writeBuffered(listingDocument(macs, options_.format == "plist"));
    return 0;
}

std::optional<QJsonObject> CfgutilFront::pickMac(QString* error) {
    const std::optional<QJsonObject> reply = simulator_.request("macs.list");
    if (!reply) {
        *error = simulator_.lastError();
        return std::nullopt;
    }
    for (const QJsonValue& value : reply->value("macs").toArray()) {
        const QJsonObject mac = value.toObject();
        const auto ecid = parseEcid(mac.value("ecid").toString());
        if (options_.ecid ? ecid == options_.ecid : visibleToTool(mac))
            return mac;
    }
    *error = options_.ecid ? QStringLiteral("no device with ECID %1").arg(hexEcid(*options_.ecid))
                           : QStringLiteral("no device found");
    return std::nullopt;
}

std::optional<int> CfgutilFront::startRestore() {
    QString error;
    const std::optional<QJsonObject> mac = pickMac(&error);
    if (!mac)
        return failure(error);
    ecidText_ = hexEcid(*parseEcid(mac->value("ecid").toString()));
    garbled_ = mac->value("garbledRestoreOutput").toBool();
    // Subscribed before the start, so not one step is missed.
    if (!simulator_.subscribe({"restore"}))
        return failure(simulator_.lastError());
    const std::optional<QJsonObject> reply =
        simulator_.request("mac.restore", {{"ecid", ecidText_}, {"ipsw", options_.ipsw}});
    if (!reply)
        return failure(simulator_.lastError());
    const int result = reply->value("result").toInt(-1);
    if (result != 0)
        return failure(reply->value("message").toString(), result);
    running_ = true;
    return std::nullopt;
}

void CfgutilFront::cancel() {
    if (running_)
        simulator_.request("mac.cancelRestore", {{"ecid", ecidText_}});
    running_ = false;
}

void CfgutilFront::onEvent(const QString& name, const QJsonObject& payload) {
    if (!running_ || payload.value("ecid").toString().compare(ecidText_, Qt::CaseInsensitive) != 0)
        return;
    if (name == "restore.progress" && options_.progress) {
        const QString step = payload.value("step").toString();
        const double progress = payload.value("progress").toDouble();
        if (garbled_)
            write("\x1b[2K\rrestore: ##### " + QByteArray::number(progress * 100) + "%\n");
        if (options_.format == "json")
            write(QJsonDocument(QJsonObject{{"Step", step}, {"Progress", progress}})
                      .toJson(QJsonDocument::Compact) +
                  "\n");
        else
            write(QStringLiteral("%1: %2%\n").arg(step).arg(qRound(progress * 100)).toUtf8());
    } else if (name == "restore.finished") {
        running_ = false;
        const int status = payload.value("status").toInt(-1);
        if (status == 0) {
            emit finished(0);
            return;
        }
        emit finished(failure(payload.value("message").toString(), status));
    }
}

}  // namespace simcfgutil
