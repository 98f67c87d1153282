#pragma once

#include "core/Clock.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class ZMTaskWrapperWithBlocks;

namespace restore {

// Runs the user's event script when something happens to a device: attached, removed, a restore
// started, completed or cancelled. It never waits for a script and ignores what it returns.
class EventNotification {
  public:
    using LogLine = std::function<void(const QString&)>;

    static EventNotification& shared();
    // `debugLog` receives what scripts print (by default the log's debug lines).
    explicit EventNotification(core::Clock& clock = core::Clock::system(), LogLine debugLog = {});
    ~EventNotification();
    EventNotification(const EventNotification&) = delete;
    EventNotification& operator=(const EventNotification&) = delete;

    bool isDisabled() const { return isDisabled_.load(); }
    void setIsDisabled(bool disabled) { isDisabled_.store(disabled); }

    // Any thread; the script starts later on the main thread. Callers check the user's switch
    // themselves. A missing, unset or non-executable script is skipped without a word.
    void postEvent(const QString& event, bool status, const QVariantMap& info,
                   const std::optional<QString>& scriptPath);

    // The runner of the most recently started script (main thread).
    std::shared_ptr<ZMTaskWrapperWithBlocks> taskWrapper() const { return taskWrapper_; }

    // The script's argument list: its path, the event, "success" or "fail", the base64 payload.
    static QStringList arguments(const QString& scriptPath, const QString& event, bool status,
                                 const QVariantMap& info);
    // The info as compact JSON with sorted keys, slashes escaped as the platform's encoder does.
    static QByteArray payloadJSON(const QVariantMap& info);

  private:
    void runScript(const QString& event, bool status, const QVariantMap& info,
                   const std::optional<QString>& scriptPath);

    core::Clock& clock_;
    LogLine debugLog_;
    std::atomic<bool> isDisabled_{false};
    std::shared_ptr<ZMTaskWrapperWithBlocks> taskWrapper_;
    // Earlier scripts that still run keep their runner, so their output still reaches the log.
    std::vector<std::shared_ptr<ZMTaskWrapperWithBlocks>> running_;
    // Scripts queued to the main thread check this before touching an object that may be gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace restore
