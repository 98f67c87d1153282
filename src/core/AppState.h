#pragma once

#include <QObject>
#include <QString>

namespace core {

// The application-wide status the views and the workflows share. One signal per field, emitted
// only when that field changes. Writes may come from any thread: off the main thread they are
// queued to it, so observers always run on the main thread in the order of the writes.
class AppState : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRunning READ isRunning WRITE setIsRunning NOTIFY isRunningChanged)
    Q_PROPERTY(QString progressMessage READ progressMessage WRITE setProgressMessage NOTIFY
                   progressMessageChanged)
    Q_PROPERTY(double progressBarValue READ progressBarValue WRITE setProgressBarValue NOTIFY
                   progressBarValueChanged)
    Q_PROPERTY(bool isAutoRestoreOn READ isAutoRestoreOn WRITE setIsAutoRestoreOn NOTIFY
                   isAutoRestoreOnChanged)
    Q_PROPERTY(bool isBootToRecoveryOn READ isBootToRecoveryOn WRITE setIsBootToRecoveryOn NOTIFY
                   isBootToRecoveryOnChanged)
    Q_PROPERTY(bool shouldHideQRCodes READ shouldHideQRCodes WRITE setShouldHideQRCodes NOTIFY
                   shouldHideQRCodesChanged)

  public:
    // Lives on the thread that creates it, which must be the main thread.
    explicit AppState(QObject* parent = nullptr);

    // Reads are for the main thread.
    bool isRunning() const { return isRunning_; }
    QString progressMessage() const { return progressMessage_; }
    // A fraction from 0 to 1.
    double progressBarValue() const { return progressBarValue_; }
    bool isAutoRestoreOn() const { return isAutoRestoreOn_; }
    bool isBootToRecoveryOn() const { return isBootToRecoveryOn_; }
    bool shouldHideQRCodes() const { return shouldHideQRCodes_; }

    void setIsRunning(bool value);
    void setProgressMessage(const QString& value);
    void setProgressBarValue(double value);
    void setIsAutoRestoreOn(bool value);
    void setIsBootToRecoveryOn(bool value);
    void setShouldHideQRCodes(bool value);

  signals:
    void isRunningChanged(bool value);
    void progressMessageChanged(const QString& value);
    void progressBarValueChanged(double value);
    void isAutoRestoreOnChanged(bool value);
    void isBootToRecoveryOnChanged(bool value);
    void shouldHideQRCodesChanged(bool value);

  private:
    template <typename T, typename Signal>
    void write(T AppState::*field, T value, Signal changed);

    bool isRunning_ = false;
    QString progressMessage_;
    double progressBarValue_ = 0;
    bool isAutoRestoreOn_ = false;
    bool isBootToRecoveryOn_ = false;
    bool shouldHideQRCodes_ = false;
};

}  // namespace core
