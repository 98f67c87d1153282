#pragma once

#include "support/Scripts.h"
#include "support/SimulatedStation.h"
#include "support/StationBuilder.h"

#include <QJsonObject>
#include <QMap>

#include <optional>

namespace faults {

// The simulated station of one cell, and the promises a run makes about it: what the hubs and
// the Macs are left in, and what the history, the bench's records and the event script say.
class StationState {
  public:
    explicit StationState(const testing_support::StationBuilder& spec) : spec_(spec) {}

    QString historyPath() const;
    // Every event of a restore goes to a script that writes it down.
    void useEventScript();

    // Every Mac of the batch has an outcome in the written history, a Mac the station shows
    // restored has "Restored Successfully" there, and the records and the event script agree.
    void checkHistory(int exit, bool simulatorGone, bool uninterrupted) const;
    // A batch killed midway: every outcome it had told is in the records, which are whole.
    void checkRecordsKeep(const QString& killedOutput) const;
    void checkEveryMacInDfuListed(const QString& listing) const;
    void checkNoMacLeftRestoring() const;
    // "ECID state": where those Macs are once the run is over.
    void checkMacsEnd(const QStringList& expected) const;
    // A port is disabled only where the run said so: left disabled, refused as disabled, or its
    // enable failed (a hub that went away mid-cycle cannot be read again to tell more).
    void checkDisabledPortsWereSaid(const std::optional<QJsonObject>& verdict,
                                    const QString& said) const;
    void checkMacsInTheModeAskedFor(const QStringList& command) const;

    testing_support::SimulatedStation station;

  private:
    QMap<QString, QString> macStates() const;
    QMap<QString, QString> settledMacStates() const;
    QStringList disabledPorts() const;
    void checkRecords(const QMap<QString, QStringList>& history) const;
    void checkEventScript(const QMap<QString, QStringList>& history) const;

    testing_support::StationBuilder spec_;
    testing_support::Scripts scripts_;
};

}  // namespace faults
