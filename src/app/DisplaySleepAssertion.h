#pragma once

#include <QString>

namespace app {

// Keeps the display awake for the rest of the process: a technician watches a bench of Macs for
// an hour without touching the keyboard. Asked of the session's screen saver, which lifts the
// inhibition by itself when the process ends. Without that service the display may sleep; the
// application works on.
class DisplaySleepAssertion {
  public:
    // Taken at most once per process; later calls do nothing.
    static void takeOnce(const QString& reason = QStringLiteral("Prevent sleep assertion"));
};

}  // namespace app
