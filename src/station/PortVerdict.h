#pragma once

#include "station/PortProgress.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <map>
#include <optional>
#include <set>

namespace station {

// What a sequence command did to each of its ports, from the observer's port results and the
// sequence's completions. The sequences may complete with false and later with true; a run
// succeeded only when no completion was false, every port was done (or had nothing connected),
// none failed, none was left disabled and every Mac showed the mode asked for.
//
// Each port ends as one of: done; failed (step, result); partly done (power-cycled, its message
// not sent); nothing connected; not reached. Besides, a port may have been found disabled before
// the run, and may have been left disabled after it.
class PortVerdict {
  public:
    // The ports as the command listed them, in order ("1C3B4A01:3"), and the message the
    // sequence sends each port after power-cycling it (none for a power-mode run).
    explicit PortVerdict(QStringList ports, std::optional<PortProgress::Step> message = {});

    void record(const PortProgress& event);
    void recordCompletion(bool value);
    // A done port whose Mac did not show the mode asked for ("Mac still booted after 30 s").
    void recordUnverified(const QString& port, const QString& reason);
    // The port read disabled before the run, so whether a Mac was on it was unknown.
    void recordWasDisabled(const QString& port);
    // The port reads disabled after the run and could not be enabled again.
    void recordLeftDisabled(const QString& port);
    // Why hubs stopped answering, when it is known for all of them ("lost the simulator");
    // otherwise a port whose hub lost its link reads "hub 1C3B4A01 went away".
    void recordLoss(const QString& reason);
    // The run was stopped by Ctrl-C before its end.
    void recordInterrupted() { interrupted_ = true; }
    bool interrupted() const { return interrupted_; }

    // A failed port: the step its hub refused, and the hub's answer in words ("result 6", "hub
    // 1C3B4A01 went away") and as its code (negative when it gave none).
    struct Failure {
        QString port;
        PortProgress::Step step = PortProgress::Step::Disable;
        QString reason;
        std::int64_t result = -1;
    };

    QStringList donePorts() const;
    QList<Failure> failures() const;
    QStringList partlyDonePorts() const;
    QStringList nothingConnectedPorts() const;
    QStringList leftDisabledPorts() const { return leftDisabled_; }

    bool succeeded() const;
    // "8 of 10 ports done; failed: 1C3B4A01:3 (DFU message, result 6); partly done:
    // 1C3B4A01:4 (power-cycled, DFU message not sent); not reached: 1C3B4A01:5".
    QString summary() const;
    QJsonObject json() const;
    // One line per failed or partly done port, for the log.
    QStringList failureDescriptions() const;
    // "1C3B4A01:2: Mac still booted after 30 s", one line per reason.
    QStringList unverifiedDescriptions() const;

  private:
    enum class Outcome { NotReached, Skipped, Done, Failed, PartlyDone };
    struct PortState {
        Outcome outcome = Outcome::NotReached;
        PortProgress::Step step = PortProgress::Step::Disable;
        std::int64_t result = -1;
        std::optional<PortProgress::Step> lastStep;
        bool powerCycled = false;
    };

    Outcome outcomeOf(const QString& port) const;
    // Unverified ports with the same reason together, in the order they were recorded.
    QList<std::pair<QStringList, QString>> unverifiedByReason() const;
    QStringList portsWith(Outcome outcome) const;
    QString failure(const QString& port) const;
    QString answerOf(const QString& port, std::int64_t result) const;
    QString partly(const QString& port) const;
    // "1C3B4A01:3 (detail)", or "(was disabled; detail)" when the port was.
    QString annotated(const QString& port, const QString& detail) const;
    // The port's name, with "(was disabled)" where that explains the outcome.
    QString named(const QString& port) const;
    QStringList namedList(const QStringList& ports) const;

    QStringList ports_;
    std::optional<PortProgress::Step> message_;
    std::map<QString, PortState> states_;
    QList<std::pair<QString, QString>> unverified_;
    std::set<QString> wasDisabled_;
    QStringList leftDisabled_;
    QString loss_;
    bool interrupted_ = false;
    int completions_ = 0;
    bool anyFalseCompletion_ = false;
};

}  // namespace station
