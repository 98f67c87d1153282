#pragma once

#include "records/RestoreRecord.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

namespace testing_support {

// The moment the sample records end at, unless a test moves it.
inline const QDateTime noon(QDate(2026, 11, 20), QTime(12, 0), Qt::UTC);

// A record as the recorder would hand it to a store: everything but its place in the chain.
inline records::RestoreRecord sampleRecord(const QString& station, const QString& ecid,
                                           records::Outcome outcome, const QDateTime& ended,
                                           const QString& serial = QString()) {
    records::RestoreRecord r;
    r.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    r.batchId = QStringLiteral("batch-1");
    r.ecid = ecid;
    r.serialNumber = serial.isNull() ? QStringLiteral("SN") + ecid : serial;
    r.modelIdentifier = QStringLiteral("Mac14,3");
    r.deviceName = QStringLiteral("Bench ") + ecid;
    r.hubSerial = QStringLiteral("1C3B4A01");
    r.hubPort = 2;
    r.location = QStringLiteral("hub 1C3B4A01 port 2");
    r.station = station;
    r.operatorName = QStringLiteral("technician");
    r.startedAt = ended.addSecs(-300);
    r.endedAt = ended;
    r.durationMs = 300000;
    r.outcome = outcome;
    r.exitStatus = outcome == records::Outcome::restored ? 0 : 21;
    r.lastError =
        outcome == records::Outcome::failed ? QStringLiteral("libusbrestore error:21") : QString();
    r.firmware = QStringLiteral("/srv/ipsw/UniversalMac_14.6.ipsw");
    r.firmwareSha256 = QString(64, 'a');
    r.tarvelVersion = QStringLiteral("0.1.0 (1)");
    r.engine =
        QStringLiteral("idevicerestore 1.0.0-270-g405fcd1 (libirecovery 1.3.0, libtatsu 1.0.5)");
    r.firmwareVersion = QStringLiteral("15.3.1 (24D70)");
    return r;
}

}  // namespace testing_support
