#pragma once

#include <QString>
#include <QStringList>

namespace core {

struct Alert {
    // Most alerts report a failure; news such as a newer version is informational.
    enum class Style { Warning, Informational };

    QString title;
    QString message;
    QStringList buttons;  // first is the default; empty means a single "OK"
    Style style = Style::Warning;
};

// Modal alerts. The desktop application shows a dialog; the terminal prints to standard error
// and takes the default button, since nobody may be there to answer.
class Alerts {
public:
    virtual ~Alerts() = default;
    // Answers the index of the button chosen.
    virtual int show(const Alert& alert) = 0;

    static Alerts& shared();
    // The application installs its own implementation at start-up; nullptr restores the
    // terminal one.
    static void install(Alerts* alerts);
};

class TerminalAlerts final : public Alerts {
public:
    int show(const Alert& alert) override;
};

}  // namespace core
