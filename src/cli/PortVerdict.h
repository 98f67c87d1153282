#pragma once

#include "hubs/PortProgress.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <map>

namespace cli {

// What a sequence command did to each of its ports, from the observer's port results and the
// sequence's completions. The sequences may complete with false and later with true; a run
// succeeded only when no completion was false, every port was done (or had nothing connected)
// and none failed.
class PortVerdict {
  public:
    // The ports as the command listed them, in order ("1C3B4A01:3").
    explicit PortVerdict(QStringList ports);

    void record(const PortProgress& event);
    void recordCompletion(bool value);
    // A done port whose Mac did not show the mode asked for ("Mac still booted after 30 s").
    void recordUnverified(const QString& port, const QString& reason);

    QStringList donePorts() const;

    bool succeeded() const;
    // "8 of 10 ports done; failed: 1C3B4A01:3 (DFU message, result 6); not reached:
    // 1C3B4A01:4, 1C3B4A01:5".
    QString summary() const;
    QJsonObject json() const;
    // One line per failed port, for the log.
    QStringList failureDescriptions() const;
    // "1C3B4A01:2: Mac still booted after 30 s", one per unverified port.
    QStringList unverifiedDescriptions() const;

  private:
    enum class Outcome { NotReached, Skipped, Done, Failed };
    struct PortState {
        Outcome outcome = Outcome::NotReached;
        PortProgress::Step step = PortProgress::Step::Disable;
        std::int64_t result = -1;
    };

    QStringList portsWith(Outcome outcome) const;
    QString failure(const QString& port) const;

    QStringList ports_;
    std::map<QString, PortState> states_;
    QList<std::pair<QString, QString>> unverified_;
    int completions_ = 0;
    bool anyFalseCompletion_ = false;
};

}  // namespace cli
