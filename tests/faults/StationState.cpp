#include "StationState.h"

#include "records/ChainVerifier.h"
#include "records/RecordStore.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>
#include <QThread>

#include <gtest/gtest.h>

namespace faults {
namespace {

const QString restored = QStringLiteral("Restored Successfully");

// The ECID as the history and the records write it: hexadecimal, upper case, no "0x".
QString plainEcid(const QString& ecid) {
    return ecid.mid(2).toUpper();
}

QString outcomeOfMessage(const QString& message) {
    if (message == restored)
        return QStringLiteral("restored");
    if (message == "Restore Cancelled")
        return QStringLiteral("cancelled");
    return message == "Restore Abandoned" ? QStringLiteral("abandoned") : QStringLiteral("failed");
}

// Polls `holds` for up to five seconds.
bool eventually(const std::function<bool()>& holds) {
    const QDeadlineTimer deadline(5000);
    while (!holds() && !deadline.hasExpired()) QThread::msleep(50);
    return holds();
}

}  // namespace

QString StationState::historyPath() const {
    return QDir(station.logFolder()).filePath("../history.json");
}

void StationState::useEventScript() {
    station.setPreference("shouldUseEventScript", true);
    station.setPreference(
        "eventScriptPath",
        scripts_.write("on-event", "echo \"$1 $2\" >> '" + scripts_.path("events") + "'"));
}

QMap<QString, QString> StationState::macStates() const {
    QMap<QString, QString> states;
    for (const QJsonValue mac : station.macs())
        states.insert(plainEcid(mac["ecid"].toString()), mac["state"].toString());
    return states;
}

// The Macs' states once none is restoring or starting up any more (a restored Mac leaves the
// bus and boots after its tool has ended).
QMap<QString, QString> StationState::settledMacStates() const {
    QMap<QString, QString> states;
    eventually([&] {
        states = macStates();
        return !states.values().contains("restoring") && !states.values().contains("off");
    });
    return states;
}

void StationState::checkHistory(int exit, bool simulatorGone, bool uninterrupted) const {
    QFile file(historyPath());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << "no history written";
    QMap<QString, QStringList> history;
    // A retry's note tells of an attempt, not of an outcome: every Mac still has one outcome.
    for (const QJsonValue record : QJsonDocument::fromJson(file.readAll()).array())
        if (const QString message = record["message"].toString();
            !message.startsWith("retried after: "))
            history[record["device"].toString()] << message;
    const auto states = simulatorGone ? QMap<QString, QString>() : settledMacStates();
    // A batch refused before its first start has no records and restored nothing.
    if (history.isEmpty() && exit != 0) {
        for (const auto& [ecid, state] : states.asKeyValueRange())
            EXPECT_NE(state, "booted") << ecid.toStdString() << " was restored, unrecorded";
        return;
    }
    for (const auto& [ecid, state] : states.asKeyValueRange()) {
        ASSERT_TRUE(history.contains(ecid)) << ecid.toStdString() << " has no record";
        // Abandoned says the outcome is unknown: the run left before it came.
        if (history[ecid].contains("Restore Abandoned"))
            continue;
        EXPECT_EQ(state == "booted", history[ecid].contains(restored))
            << ecid.toStdString() << " is " << state.toStdString()
            << "; records: " << history[ecid].join(" | ").toStdString();
    }
    if (simulatorGone) {
        EXPECT_EQ(history.size(), 10);
    }
    if (exit == 0) {
        for (const QStringList& messages : history) EXPECT_TRUE(messages.contains(restored));
    }
    checkRecords(history);
    if (uninterrupted)
        checkEventScript(history);
}

void StationState::checkRecords(const QMap<QString, QStringList>& history) const {
    QMap<QString, QString> portOf;
    for (const auto& hub : spec_.hubs())
        for (const auto& mac : hub.macs)
            portOf.insert(plainEcid(mac.ecid), QStringLiteral("hub %1 port %2")
                                                   .arg(QString::number(hub.serial, 16).toUpper())
                                                   .arg(mac.port));
    records::RecordStore store(station.recordsDatabase());
    ASSERT_TRUE(store.isOpen()) << store.lastError().toStdString();
    QMap<QString, QStringList> recorded;
    for (const auto& record : store.find({})) {
        recorded[record.ecid] << records::outcomeName(record.outcome);
        EXPECT_EQ(record.location, portOf.value(record.ecid)) << "the record names the Mac's port";
    }
    for (const auto& [ecid, messages] : history.asKeyValueRange()) {
        QStringList outcomes;
        for (const QString& message : messages) outcomes << outcomeOfMessage(message);
        EXPECT_EQ(recorded.value(ecid), outcomes) << ecid.toStdString() << " in the records";
    }
    EXPECT_TRUE(records::ChainVerifier::verify(store.chainOrder()).intact);
}

void StationState::checkEventScript(const QMap<QString, QStringList>& history) const {
    qsizetype succeeded = 0, failed = 0;
    for (const QStringList& messages : history)
        for (const QString& message : messages) (message == restored ? succeeded : failed) += 1;
    const auto events = [&] {
        QFile file(scripts_.path("events"));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    };
    // The scripts are started as the batch ends; the last may still be on its way.
    EXPECT_TRUE(eventually([&] {
        return events().count("restoreCompleted") == succeeded + failed;
    })) << events().toStdString();
    EXPECT_EQ(events().count("restoreCompleted success"), succeeded);
    EXPECT_EQ(events().count("restoreStarted success"), succeeded + failed);
}

void StationState::checkRecordsKeep(const QString& killedOutput) const {
    QSet<QString> told;
    for (const QString& line : killedOutput.split('\n')) {
        const QJsonObject event = QJsonDocument::fromJson(line.toUtf8()).object();
        if (event["event"] == "device" && event["status"] == "Successful")
            told.insert(plainEcid(event["ecid"].toString()));
    }
    ASSERT_FALSE(told.isEmpty());
    records::RecordStore store(station.recordsDatabase());
    ASSERT_TRUE(store.isOpen()) << store.lastError().toStdString();
    EXPECT_EQ(store.integrityCheck(), "ok");
    QSet<QString> kept;
    for (const auto& record : store.find({.outcome = records::Outcome::restored}))
        kept.insert(record.ecid);
    EXPECT_TRUE(kept.contains(told)) << "told outcomes missing from the records";
}

// Every Mac in DFU mode is listed, and nothing else but Macs in recovery mode.
void StationState::checkEveryMacInDfuListed(const QString& listing) const {
    QStringList listed, visible;
    for (const QJsonValue mac : QJsonDocument::fromJson(listing.toUtf8()).array())
        listed << plainEcid(mac["ecid"].toString());
    const auto states = macStates();
    for (const auto& [ecid, state] : states.asKeyValueRange())
        if (state == "dfu" || (state == "recovery" && listed.contains(ecid)))
            visible << ecid;
    listed.sort();
    EXPECT_EQ(listed, visible);
}

void StationState::checkNoMacLeftRestoring() const {
    EXPECT_TRUE(eventually([&] { return !macStates().values().contains("restoring"); }))
        << "a Mac is left restoring";
}

void StationState::checkMacsEnd(const QStringList& expected) const {
    for (const QString& pair : expected) {
        const QString ecid = pair.section(' ', 0, 0), state = pair.section(' ', 1);
        EXPECT_TRUE(eventually([&] { return macStates().value(ecid) == state; }))
            << ecid.toStdString() << " is " << macStates().value(ecid).toStdString();
    }
}

QStringList StationState::disabledPorts() const {
    const auto listed = station.cli({"hub", "list", "--json"});
    QStringList disabled;
    const QJsonArray hubs =
        QJsonDocument::fromJson(listed.standardOutput.toUtf8()).object().value("hubs").toArray();
    for (const QJsonValue hub : hubs)
        for (const QJsonValue port : hub["ports"].toArray())
            if (!port["enabled"].toBool() && port["port"].toInt() >= 1 && port["port"].toInt() <= 5)
                disabled << QStringLiteral("%1:%2")
                                .arg(hub["serial"].toString())
                                .arg(port["port"].toInt());
    return disabled;
}

void StationState::checkDisabledPortsWereSaid(const std::optional<QJsonObject>& verdict,
                                              const QString& said) const {
    const QJsonArray leftDisabled =
        verdict ? verdict->value("leftDisabled").toArray() : QJsonArray();
    QStringList enableFailed;
    for (const QJsonValue entry : verdict ? verdict->value("failed").toArray() : QJsonArray())
        if (entry["step"].toString() == "enable")
            enableFailed << entry["port"].toString();
    for (const QString& port : disabledPorts())
        EXPECT_TRUE(leftDisabled.contains(port) || enableFailed.contains(port) ||
                    said.contains("the port is disabled"))
            << port.toStdString() << " is disabled and the run did not say so";
}

void StationState::checkMacsInTheModeAskedFor(const QStringList& command) const {
    const QString wanted = command.contains("dfu")        ? "dfu"
                           : command.contains("recovery") ? "recovery"
                                                          : QString();
    if (wanted.isEmpty())
        return;
    const auto states = macStates();
    for (const auto& [ecid, state] : states.asKeyValueRange())
        EXPECT_EQ(state, wanted) << ecid.toStdString() << " after a run that succeeded";
}

}  // namespace faults
