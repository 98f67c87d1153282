#include "localport/ZMRPrivHelperToolController.h"

#include "localport/HelperConnection.h"
#include "localport/SessionHelperEndpoint.h"
#include "localport/SystemHelperEndpoint.h"

#include "core/Dispatch.h"
#include "core/Log.h"
#include "core/NotificationCenter.h"
#include "core/SimulatorAddress.h"

#include <QCoreApplication>
#include <QThread>

#include <cstdio>
#include <cstdlib>

namespace {

bool onMainThread() {
    const QCoreApplication* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

// The connection and the calls belong to the main loop; from elsewhere, go there first.
void onMain(dispatch::Task task) {
    if (onMainThread())
        task();
    else
        dispatch::main(std::move(task));
}

}  // namespace

ZMRPrivHelperToolController::Collaborators ZMRPrivHelperToolController::defaultCollaborators() {
    Collaborators c;
    const QString helperPath =
        QCoreApplication::applicationDirPath() + QStringLiteral("/tarvel-helper");
    if (const auto socket = core::simulatorSocketFromEnvironment())
        c.endpoint = std::make_shared<SessionHelperEndpoint>(helperPath, *socket);
    else
        c.endpoint = std::make_shared<SystemHelperEndpoint>(SystemHelperEndpoint::defaultPlaces());
    c.center = &core::NotificationCenter::defaultCenter();
    return c;
}

ZMRPrivHelperToolController& ZMRPrivHelperToolController::sharedHelper() {
    // Never destroyed: replies and the connection's clean-up may still be queued at exit.
    static ZMRPrivHelperToolController* const shared =
        initInstalling(defaultCollaborators()).release();
    return *shared;
}

std::unique_ptr<ZMRPrivHelperToolController> ZMRPrivHelperToolController::initInstalling(
    Collaborators collaborators) {
    auto controller = initPrivate(std::move(collaborators));
    if (!controller->isToolInstalled())
        controller->installTool();
    return controller;
}

std::unique_ptr<ZMRPrivHelperToolController> ZMRPrivHelperToolController::initPrivate(
    Collaborators collaborators) {
    return std::unique_ptr<ZMRPrivHelperToolController>(
        new ZMRPrivHelperToolController(std::move(collaborators)));
}

ZMRPrivHelperToolController::ZMRPrivHelperToolController(Collaborators collaborators)
    : c_(std::move(collaborators)) {
    qRegisterMetaType<localport::HelperError>();
}

ZMRPrivHelperToolController::~ZMRPrivHelperToolController() = default;

bool ZMRPrivHelperToolController::installTool(const Collaborators& collaborators) {
    const auto installer = initPrivate(collaborators);
    localport::HelperError error;
    const bool installed = installer->installToolError(&error);
    if (!installed)
        ZMRLogDebug(QStringLiteral("Install Too Error: %1").arg(error.localizedDescription));
    return installed;
}

bool ZMRPrivHelperToolController::isToolInstalled() const {
    return c_.endpoint->isToolInstalled();
}

bool ZMRPrivHelperToolController::installToolError(localport::HelperError* error) {
    localport::HelperError failure;
    const bool installed = c_.endpoint->blessHelperWithLabel(localport::helperLabel, &failure);
    if (!installed && error)
        *error = failure;
    return installed;
}

void ZMRPrivHelperToolController::installTool() {
    localport::HelperError error;
    if (!installToolError(&error)) {
        c_.center->post(helperNotification, {{underlyingErrorKey, QVariant::fromValue(error)}});
        return;
    }
    std::weak_ptr<int> alive = lifetime_;
    dispatch::main([this, alive] {
        if (!alive.expired())
            connectToPrivHelperTool();
    });
}

void ZMRPrivHelperToolController::installToolIfNecessary() {
    std::weak_ptr<int> alive = lifetime_;
    getVersionCallback([this, alive](std::int64_t version) {
        if (version == localport::helperVersion)
            return;
        dispatch::main([this, alive] {
            if (alive.expired())
                return;
            installTool();
            connectToPrivHelperTool();
        });
    });
}

void ZMRPrivHelperToolController::connectToPrivHelperTool() {
    if (isConnected())
        return;
    if (!onMainThread()) {
        std::fprintf(stderr, "Assertion failure: [NSThread isMainThread]\n");
        std::abort();
    }
    auto connection = std::make_shared<HelperConnection>(
        c_.endpoint->bus(), c_.callTimeoutMilliseconds + c_.promptWaitMilliseconds);
    std::weak_ptr<int> alive = lifetime_;
    const HelperConnection* identity = connection.get();
    connection->setInvalidationHandler([this, alive, identity] {
        dispatch::main([this, alive, identity] {
            if (!alive.expired())
                dropConnection(identity);
        });
    });
    std::lock_guard lock(connectionMutex_);
    privHelperToolConnection_ = std::move(connection);
}

bool ZMRPrivHelperToolController::isConnected() const {
    std::lock_guard lock(connectionMutex_);
    return privHelperToolConnection_ != nullptr;
}

void ZMRPrivHelperToolController::dropConnection(const HelperConnection* connection) {
    std::shared_ptr<HelperConnection> dropped;
    std::lock_guard lock(connectionMutex_);
    if (privHelperToolConnection_.get() == connection)
        dropped = std::move(privHelperToolConnection_);
}

// Null when no helper can answer, with the reason in error. The endpoint comes first: it may
// have to bring the bus the connection is made on.
std::shared_ptr<HelperConnection> ZMRPrivHelperToolController::privHelperTool(
    localport::HelperError* error) {
    if (!c_.endpoint->prepareForCall(error))
        return nullptr;
    connectToPrivHelperTool();
    std::lock_guard lock(connectionMutex_);
    return privHelperToolConnection_;
}

void ZMRPrivHelperToolController::getVersionCallback(Reply reply, Failure failure) {
    send(localport::getVersionMethod, std::move(reply), std::move(failure));
}

void ZMRPrivHelperToolController::enterDFUMode(Reply reply, Failure failure) {
    send(localport::enterDFUModeMethod, std::move(reply), std::move(failure));
}

void ZMRPrivHelperToolController::reboot(Reply reply, Failure failure) {
    send(localport::rebootMethod, std::move(reply), std::move(failure));
}

// A client gone before its call ended calls nobody back: its callers went with it.
void ZMRPrivHelperToolController::send(const QString& method, Reply reply, Failure failure) {
    std::weak_ptr<int> alive = lifetime_;
    reply = [alive, reply = std::move(reply)](std::int64_t status) {
        if (!alive.expired())
            reply(status);
    };
    if (failure)
        failure = [alive, failure = std::move(failure)](const HelperFailure& why) {
            if (!alive.expired())
                failure(why);
        };
    onMain([this, alive, method, reply = std::move(reply), failure = std::move(failure)]() mutable {
        if (alive.expired())
            return;
        localport::HelperError error;
        if (const auto connection = privHelperTool(&error)) {
            connection->call(method, std::move(reply), std::move(failure));
            return;
        }
        ZMRLogLevel1(
            QStringLiteral("helper call %1 not sent: %2").arg(method, error.localizedDescription));
        if (failure)
            failure({HelperFailure::Kind::unreachable, error.localizedDescription});
    });
}
