#pragma once

#include <QMetaType>
#include <QString>

#include <cstdint>

// The privileged helper as both of its sides know it: a D-Bus service with three calls, each
// answering one signed 64-bit integer.
namespace localport {

// The helper's label: its bus name, the name of its installed executable and of its files.
inline const QString helperLabel = QStringLiteral("com.kestrune.tarvelhelper");
inline const QString helperObjectPath = QStringLiteral("/com/kestrune/tarvelhelper");
inline const QString helperInterface = QStringLiteral("com.kestrune.TarvelHelperProtocol");
inline const QString getVersionMethod = QStringLiteral("GetVersion");
inline const QString enterDFUModeMethod = QStringLiteral("EnterDFUMode");
inline const QString rebootMethod = QStringLiteral("Reboot");
// Answered to a caller polkit does not authorise; the helper then does nothing.
inline const QString notAuthorizedError =
    QStringLiteral("com.kestrune.TarvelHelper.Error.NotAuthorized");
// Answered when the administrator dismissed the password prompt; nothing is done either.
inline const QString dismissedError = QStringLiteral("com.kestrune.TarvelHelper.Error.Dismissed");
inline const QString polkitAction = QStringLiteral("com.kestrune.tarvelhelper.control");

// How long the helper waits for polkit's answer, which includes a person typing a password. A
// client that gave a call up earlier would lose the answer to a slow password.
inline constexpr int promptWaitMilliseconds = 5 * 60 * 1000;
// How long a client waits for a helper beyond the prompt: starting it and the work itself.
inline constexpr int replyWaitMilliseconds = 25000;

// The version a client and its helper agree on; any other answer means reinstall.
inline constexpr std::int64_t helperVersion = 100;

// Where an installation puts the helper; a package puts the same files in the same places.
inline const QString installedToolPath =
    QStringLiteral("/usr/local/libexec/tarvel/com.kestrune.tarvelhelper");
// Where the Debian package puts the executable; its other files go where an installation's do
// or in the distribution's own folders for them.
inline const QString packagedToolPath =
    QStringLiteral("/usr/libexec/tarvel/com.kestrune.tarvelhelper");
inline const QString installedActivationFilePath =
    QStringLiteral("/usr/share/dbus-1/system-services/com.kestrune.tarvelhelper.service");
inline const QString installedBusPolicyPath =
    QStringLiteral("/etc/dbus-1/system.d/com.kestrune.tarvelhelper.conf");
inline const QString installedPolkitActionPath =
    QStringLiteral("/usr/share/polkit-1/actions/com.kestrune.tarvelhelper.policy");
inline const QString installedSystemdUnitPath =
    QStringLiteral("/etc/systemd/system/com.kestrune.tarvelhelper.service");

// The statuses EnterDFUMode and Reboot answer besides a tool's own codes.
namespace status {
inline constexpr std::int64_t success = 0;
// The simulated local port: the simulator did not answer.
inline constexpr std::int64_t simulatorUnreachable = 25;
// A Linux host has no generic way to send the vendor message from its own USB-C port.
inline constexpr std::int64_t unsupportedHost = 95;
}  // namespace status

// Why installing the helper failed: the domain of the code and the code itself, as the step that
// failed reported it (pkexec's exit status for the authorisation).
struct HelperError {
    QString domain;
    std::int64_t code = 0;
    QString localizedDescription;
};

}  // namespace localport

Q_DECLARE_METATYPE(localport::HelperError)
