#pragma once

#include <QMetaType>
#include <QString>

#include <cstdint>
#include <functional>

// Where the Mac on the host's own DFU port shows on USB.
inline constexpr std::int64_t hostDfuPortAddress = 0x100000;

// Why a call to the helper got no status.
struct HelperFailure {
    enum class Kind : std::uint8_t {
        notAuthorized,  // polkit refused the caller
        dismissed,      // the administrator's password prompt was dismissed
        unreachable,    // no helper answered: none could be started, it went away, or it timed out
    };
    Kind kind = Kind::unreachable;
    // What the bus or the client said, for the log and the terminal.
    QString detail;
};

// What the host's own DFU port needs of the privileged helper: the version check that reinstalls
// an outdated helper, and the two messages to the Mac cabled to that port. Each call ends in
// exactly one of its two callbacks, which may arrive on any thread: reply with the helper's
// status (0 is success), or failure when no status came. An empty failure callback is allowed.
class LocalPortHelper {
  public:
    using Reply = std::function<void(std::int64_t status)>;
    using Failure = std::function<void(const HelperFailure& failure)>;

    virtual ~LocalPortHelper() = default;
    virtual void installToolIfNecessary() = 0;
    virtual void enterDFUMode(Reply reply, Failure failure) = 0;
    virtual void reboot(Reply reply, Failure failure) = 0;
};

Q_DECLARE_METATYPE(HelperFailure)
