#pragma once

#include <QJsonObject>
#include <QString>

#include <vector>

namespace doctor {

// One finding: what was checked, what was seen, and when it failed, what to do about it.
struct Check {
    // A warning does not fail the mode: something may still go wrong, and the fix says what.
    enum class Status { Ok, Failed, Warning, NotNeeded };
    QString name;
    Status status = Status::Ok;
    QString detail;
    QString fix;
};

// The findings for one mode, as the command line prints them and the desktop shows them.
class DoctorReport {
public:
    explicit DoctorReport(QString mode) : mode_(std::move(mode)) {}

    void add(Check check) { checks_.push_back(std::move(check)); }

    const QString& mode() const { return mode_; }
    const std::vector<Check>& checks() const { return checks_; }
    // Whether everything the mode needs is there.
    bool passed() const;

    // One line a check ("ok", "FAIL", "WARN" or "--" for what this mode does not need), the fix
    // on the line under a failure or a warning, and a closing verdict. The JSON keeps the fix of
    // what this mode does not need as well, for a script that prepares the other mode.
    QString text() const;
    QJsonObject json() const;

private:
    QString mode_;
    std::vector<Check> checks_;
};

}  // namespace doctor
