#include "restore/EventNotification.h"

#include "restore/ScriptOutputLog.h"

#include "configurator/ZMTaskWrapperWithBlocks.h"
#include "core/Dispatch.h"
#include "core/Log.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace restore {

EventNotification& EventNotification::shared() {
    static EventNotification instance;
    return instance;
}

EventNotification::EventNotification(core::Clock& clock, LogLine debugLog)
    : clock_(clock),
      debugLog_(debugLog ? std::move(debugLog) : [](const QString& line) { ZMRLogDebug(line); }) {}

EventNotification::~EventNotification() = default;

QByteArray EventNotification::payloadJSON(const QVariantMap& info) {
    // QJsonObject keeps its keys sorted; the platform's encoder also writes "/" as "\/".
    QByteArray json = QJsonDocument(QJsonObject::fromVariantMap(info)).toJson(QJsonDocument::Compact);
    return json.replace("/", "\\/");
}

QStringList EventNotification::arguments(const QString& scriptPath, const QString& event,
                                         bool status, const QVariantMap& info) {
    return {scriptPath, event, status ? QStringLiteral("success") : QStringLiteral("fail"),
            QString::fromLatin1(payloadJSON(info).toBase64())};
}

void EventNotification::postEvent(const QString& event, bool status, const QVariantMap& info,
                                  const std::optional<QString>& scriptPath) {
    if (isDisabled()) {
        ZMRLogAtLevel1(QStringLiteral("Event notification is disabled. Please check your settings."),
                       QStringLiteral("EventNotification"), __LINE__,
                       QStringLiteral("postEvent(_:status:info:scriptPath:)"));
        return;
    }
    std::weak_ptr<int> alive = lifetime_;
    dispatch::main([this, alive, event, status, info, scriptPath] {
        if (!alive.expired())
            runScript(event, status, info, scriptPath);
    });
}

void EventNotification::runScript(const QString& event, bool status, const QVariantMap& info,
                                  const std::optional<QString>& scriptPath) {
    if (!scriptPath)
        return;
    const QFileInfo script(*scriptPath);
    if (!script.exists() || !script.isExecutable())
        return;
    std::weak_ptr<int> alive = lifetime_;
    auto self = std::make_shared<std::weak_ptr<ZMTaskWrapperWithBlocks>>();
    auto output = std::make_shared<ScriptOutputLog>(debugLog_);
    auto ended = [this, alive, self, output](std::int32_t) {
        output->finish();
        if (alive.expired())
            return;
        const auto runner = self->lock();
        std::erase(running_, runner);
    };
    taskWrapper_ = std::make_shared<ZMTaskWrapperWithBlocks>(
        nullptr, ended,
        [output](const QString& chunk) { output->add(QStringLiteral("Message: "), chunk); },
        [output](const QString& chunk) { output->add(QStringLiteral("ErrorMessage: "), chunk); },
        arguments(*scriptPath, event, status, info), clock_);
    *self = taskWrapper_;
    running_.push_back(taskWrapper_);
    taskWrapper_->startProcess();
    if (taskWrapper_->pid() < 0)  // never launched, so it never ends
        std::erase(running_, taskWrapper_);
}

}  // namespace restore
