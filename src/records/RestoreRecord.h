#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace records {

// How a restore ended, as records store and filters name it.
enum class Outcome { restored, failed, cancelled, abandoned };

QString outcomeName(Outcome outcome);
std::optional<Outcome> outcomeFromName(const QString& name);

// One restore outcome as it is kept for good: who, what, where, when, how it ended, and its place
// in its station's hash chain. Every text field is empty rather than null when unknown.
struct RestoreRecord {
    QString id;  // a UUID without braces
    QString batchId;
    QString ecid;  // upper-case hexadecimal, as the history writes it
    QString serialNumber;
    QString modelIdentifier;
    QString deviceName;
    QString hubSerial;  // empty on the host's own DFU port
    int hubPort = 0;    // 0 when not on a hub port
    QString location;   // "hub 1C3B4A01 port 3", "host DFU port" or "unknown"
    QString station;
    QString operatorName;
    QDateTime startedAt;  // UTC, millisecond precision
    QDateTime endedAt;
    qint64 durationMs = 0;
    Outcome outcome = Outcome::failed;
    std::optional<int> exitStatus;
    QString lastError;
    QString firmware;  // "latest" or the custom firmware file's path
    QString firmwareSha256;
    QString tarvelVersion;
    // The program that restored the Mac with its version line ("idevicerestore 1.0.0-270-g405fcd1
    // (libirecovery 1.3.0, libtatsu 1.0.5)", or "cfgutil" alone), and the macOS that went on it
    // ("15.3.1 (24D70)"; empty when the engine does not say). Empty in records older than both.
    QString engine;
    QString firmwareVersion;
    // The chain: this station's running number, the previous record's hash ("" for the first)
    // and the SHA-256 of every field above together with both.
    qint64 stationSequence = 0;
    QString previousHash;
    QString hash;

    // The fields that the hash covers, as one JSON object with keys in a fixed order. The engine
    // and the macOS version join it only when they are known, so that the records written before
    // Tarvel kept them still give the hashes they were written with; a new record's value, once
    // there, is covered like any other field (blanking it drops the key and changes the hash).
    QJsonObject hashedFields() const;
    QString computeHash() const;
    // Every field, the hash included: what --json, the facility and certificates carry.
    QJsonObject toJson() const;
    static std::optional<RestoreRecord> fromJson(const QJsonObject& object);
};

// Timestamps as records keep them: ISO 8601 in UTC with milliseconds, which sort as text.
QString recordTime(const QDateTime& time);
QDateTime parseRecordTime(const QString& text);

}  // namespace records
