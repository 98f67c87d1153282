#pragma once

#include "localport/HelperProtocol.h"
#include "usb/LocalPortHelper.h"

#include <memory>
#include <mutex>

class HelperConnection;
class HelperEndpoint;

namespace core {
class NotificationCenter;
}

// The application's side of the privileged helper: whether it is installed, installing it, the
// connection to it and its three calls. One shared instance for the process; the constructor is
// private, so the only ways in are the shared instance and the explicit private factory.
// Calls may be made from any thread; the connection itself lives on the main thread, and replies
// arrive there.
class ZMRPrivHelperToolController final : public LocalPortHelper {
  public:
    static inline const QString helperNotification = QStringLiteral("HelperNotification");
    static inline const QString underlyingErrorKey = QStringLiteral("NSUnderlyingErrorKey");

    struct Collaborators {
        std::shared_ptr<HelperEndpoint> endpoint;
        core::NotificationCenter* center = nullptr;
        // How long one call waits for its reply: the helper's own time, and on top of it the
        // longest the helper waits for an administrator to answer the password prompt.
        int callTimeoutMilliseconds = localport::replyWaitMilliseconds;
        int promptWaitMilliseconds = localport::promptWaitMilliseconds;
    };

    // The system service, or with the simulator selected the session-bus instance that drives
    // the simulated local port; the default notification centre.
    static Collaborators defaultCollaborators();

    // Made once, on first use; when the helper is not installed then, installing it is tried
    // right away (with the administrator prompt).
    static ZMRPrivHelperToolController& sharedHelper();
    // A private instance; the shared one is the one to use everywhere else.
    static std::unique_ptr<ZMRPrivHelperToolController> initPrivate(Collaborators collaborators);
    // What making the shared instance does: a private instance that installs the helper at once
    // when it is not installed.
    static std::unique_ptr<ZMRPrivHelperToolController> initInstalling(Collaborators collaborators);
    // Installs through a private instance; a failure is only logged.
    static bool installTool(const Collaborators& collaborators);

    ~ZMRPrivHelperToolController() override;
    ZMRPrivHelperToolController(const ZMRPrivHelperToolController&) = delete;
    ZMRPrivHelperToolController& operator=(const ZMRPrivHelperToolController&) = delete;

    bool isToolInstalled() const;
    bool installToolError(localport::HelperError* error);
    // On success connects on the main loop; on failure posts "HelperNotification".
    void installTool();
    // Asks the version and, when it is not the expected one, reinstalls and reconnects.
    void installToolIfNecessary() override;
    // Main thread only.
    void connectToPrivHelperTool();
    bool isConnected() const;

    void getVersionCallback(Reply reply, Failure failure = {});
    void enterDFUMode(Reply reply, Failure failure) override;
    void reboot(Reply reply, Failure failure) override;

  private:
    explicit ZMRPrivHelperToolController(Collaborators collaborators);

    std::shared_ptr<HelperConnection> privHelperTool(localport::HelperError* error);
    void send(const QString& method, Reply reply, Failure failure);
    void dropConnection(const HelperConnection* connection);

    Collaborators c_;
    mutable std::mutex connectionMutex_;
    std::shared_ptr<HelperConnection> privHelperToolConnection_;
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};
