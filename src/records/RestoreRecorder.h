#pragma once

#include "records/FirmwareUsed.h"
#include "records/RestoreRecord.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

class AC2Device;

namespace core {
class Settings;
}

namespace records {

class RecordOutbox;
class RecordStore;

// Where a Mac was cabled while it was restored.
struct DeviceLocation {
    QString hubSerial;
    int hubPort = 0;
    QString text;
};

// What the engine that ran a restore tells of it, for its record.
struct EngineReport {
    QString engine;           // engineText(): the program, with its version line when known
    QString firmwareVersion;  // the macOS put on the Mac, "15.3.1 (24D70)"; empty when not said
    QStringList errorLines;   // the engine's last error lines, in the order it gave them

    // "cfgutil", or "idevicerestore 1.0.0-270-g405fcd1 (libirecovery 1.3.0, libtatsu 1.0.5)"
    // from the name and a version line that may or may not begin with it.
    static QString engineText(const QString& name, const QString& version);
};

// Turns the restore workflow's starts and outcomes into durable records: it remembers when and
// where each Mac's restore began and, when the outcome comes, writes the record at once, before
// the outcome is shown anywhere, and wakes the facility outbox. A database that cannot be
// opened is logged and then ignored: records never stop a restore. Main thread.
class RestoreRecorder {
  public:
    struct Collaborators {
        std::unique_ptr<RecordStore> store;
        std::unique_ptr<RecordOutbox> outbox;  // null without a facility database
        QString station;
        QString operatorName;
        QString tarvelVersion;
        std::function<DeviceLocation(std::int64_t locationID)> locate;
        // The engine this process restores with, for the records no engine reported on (a Mac
        // cancelled before its turn, or abandoned); may be empty.
        std::function<QString()> engine;
        std::function<QDateTime()> now = [] { return QDateTime::currentDateTimeUtc(); };
    };

    // The bench database in the state folder, this station's name and user, and the facility
    // outbox when `recordsDatabaseURL` names one.
    static Collaborators defaultCollaborators(const core::Settings& settings);
    // The recorder of this process, built from the shared settings on first use.
    static RestoreRecorder& shared();

    explicit RestoreRecorder(Collaborators collaborators);
    ~RestoreRecorder();

    // A batch was queued: each of its Macs has an outcome to come.
    void batchSubmitted(const QString& batchId, const QList<std::shared_ptr<AC2Device>>& devices);
    // A Mac's restore is starting with this firmware.
    void deviceStarted(const QString& batchId, const AC2Device& device,
                       const FirmwareUsed& firmware);
    // The Mac's outcome: writes its record and answers it (nullopt when it could not be written).
    // A failure keeps the engine's error lines whole, `lastError` after them when it is not
    // one of them; any other outcome keeps `lastError` as given.
    std::optional<RestoreRecord> deviceEnded(const AC2Device& device, Outcome outcome,
                                             std::optional<int> exitStatus,
                                             const QString& lastError,
                                             const EngineReport& report = {});
    // The run is ending with Macs whose outcome never came: each is recorded as abandoned.
    QList<RestoreRecord> abandonUnfinished();

    // Records written here and not yet in the facility database (0 without one).
    qint64 waitingToSync();
    RecordStore* store() { return c_.store.get(); }
    RecordOutbox* outbox() { return c_.outbox.get(); }
    const QString& station() const { return c_.station; }

    // This machine's defaults for the record fields.
    static QString hostStation();
    static QString realUserName();
    static QString versionText();
    // The registry's view of a location: a hub port, the host's DFU port, or unknown.
    static DeviceLocation registryLocation(std::int64_t locationID);

  private:
    struct Open {
        QString batchId;
        QDateTime startedAt;
        FirmwareUsed firmware;
        DeviceLocation location;
        QString serialNumber;
        QString modelIdentifier;
        QString deviceName;
        bool started = false;
    };
    Open& openFor(const AC2Device& device);

    Collaborators c_;
    QHash<std::uint64_t, Open> open_;
    bool reportedFailure_ = false;
};

}  // namespace records
