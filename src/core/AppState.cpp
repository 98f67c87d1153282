#include "core/AppState.h"

#include "core/Dispatch.h"

#include <QPointer>
#include <QThread>

namespace core {

AppState::AppState(QObject* parent) : QObject(parent) {}

template <typename T, typename Signal>
void AppState::write(T AppState::*field, T value, Signal changed) {
    if (QThread::currentThread() != thread()) {
        QPointer<AppState> self(this);
        dispatch::main([self, field, value, changed] {
            if (self)
                self->write(field, value, changed);
        });
        return;
    }
    if (this->*field == value)
        return;
    this->*field = value;
    emit(this->*changed)(value);
}

void AppState::setIsRunning(bool value) {
    write(&AppState::isRunning_, value, &AppState::isRunningChanged);
}
void AppState::setProgressMessage(const QString& value) {
    write(&AppState::progressMessage_, value, &AppState::progressMessageChanged);
}
void AppState::setProgressBarValue(double value) {
    write(&AppState::progressBarValue_, value, &AppState::progressBarValueChanged);
}
void AppState::setIsAutoRestoreOn(bool value) {
    write(&AppState::isAutoRestoreOn_, value, &AppState::isAutoRestoreOnChanged);
}
void AppState::setIsBootToRecoveryOn(bool value) {
    write(&AppState::isBootToRecoveryOn_, value, &AppState::isBootToRecoveryOnChanged);
}
void AppState::setShouldHideQRCodes(bool value) {
    write(&AppState::shouldHideQRCodes_, value, &AppState::shouldHideQRCodesChanged);
}

}  // namespace core
