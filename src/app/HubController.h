#pragma once

#include "app/HubStation.h"
#include "app/HubTableModel.h"

#include "core/Dispatch.h"
#include "core/NotificationCenter.h"
#include "station/PortActivity.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QSet>
#include <QTimer>
#include <QUuid>
#include <QVariantMap>

#include <functional>
#include <memory>

namespace app {

// Everything the hub window shows and does, without a widget: its rows, the refresh under way,
// the progress sheet of a running sequence and its text. Lives on the main thread.
class HubController : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRefreshing READ isRefreshing NOTIFY isRefreshingChanged)
    Q_PROPERTY(bool showModal READ showModal NOTIFY showModalChanged)
    Q_PROPERTY(QString updateMessage READ updateMessage NOTIFY updateMessageChanged)
    Q_PROPERTY(QString activityText READ activityText NOTIFY activityChanged)

  public:
    struct Environment {
        std::shared_ptr<HubStation> station;
        core::NotificationCenter* notifications = nullptr;
        std::function<void(dispatch::Task)> runInBackground;
        // Starts the USB watcher whose "deviceAdded" and "deviceRemoved" announce hubs.
        std::function<void()> startUsbWatching;
    };

    static inline const QString hubProductName = QStringLiteral("USBHub3c-Stem");
    static constexpr std::int64_t hubVendorID = 9471;

    explicit HubController(Environment environment, QObject* parent = nullptr);
    ~HubController() override;

    HubTableModel* model() { return &model_; }
    const QList<HubDevice>& hubDevices() const { return model_.hubDevices(); }
    // The rows' ports that are switched off, "HUB:PORT": their Macs cannot be seen on the bus.
    QSet<QString> disabledPorts() const;
    bool isRefreshing() const { return isRefreshing_; }
    bool showModal() const { return showModal_; }
    QString updateMessage() const { return updateMessage_; }
    // Under the sequence's text: the port and step being worked, or with hubs worked at once
    // one line per hub; the countdowns move every second.
    QString activityText() const;
    int portsDone() const { return activity_.done(); }
    int portsCount() const { return activity_.count(); }

    // The window was shown: watch for hubs coming and going, and rebuild the rows.
    void viewShown();
    void refresh();

    // The actions on the selected rows; nothing happens when none of them is selected.
    void dfu(const QSet<QUuid>& selectedDevices);
    void restart(const QSet<QUuid>& selectedDevices);
    void recovery(const QSet<QUuid>& selectedDevices);
    // On the hub of the first selected row.
    void rebootHub(const QSet<QUuid>& selectedDevices);
    void toggleLED(const QSet<QUuid>& selectedDevices);

    // Whether a "deviceAdded" or "deviceRemoved" user info names a hub's control device.
    static bool mentionsHub(const QVariantMap& userInfo);

  signals:
    void isRefreshingChanged(bool refreshing);
    void showModalChanged(bool shown);
    void updateMessageChanged(const QString& message);
    void activityChanged();
    void rowsRebuilt();

  private:
    using Sequence = void (HubStation::*)(AcronamePorts, HubStation::Update, HubStation::Completion,
                                          PortObserver);

    AcronamePorts selectedPorts(const QSet<QUuid>& selectedDevices) const;
    void runSequence(Sequence sequence, const QSet<QUuid>& selectedDevices);
    void onHub(const QSet<QUuid>& selectedDevices, void (HubStation::*command)(AcronameHub&));
    void rebuildRows(const AC2Devices& entries);
    void sequenceEnded();
    void setIsRefreshing(bool refreshing);
    void setShowModal(bool shown);
    void setUpdateMessage(const QString& message);
    // Work handed back from other threads reaches this controller only while it lives; the
    // lifetime is taken on the main thread and checked there.
    using Lifetime = std::weak_ptr<int>;
    Lifetime alive() const { return lifetime_; }
    static void onMain(const Lifetime& alive, std::function<void()> task);

    Environment environment_;
    HubTableModel model_;
    bool isRefreshing_ = false;
    bool refreshAgain_ = false;
    bool showModal_ = false;
    QString updateMessage_;
    PortActivity activity_;
    bool hubLines_ = false;
    QElapsedTimer sequenceClock_;
    QTimer activityTick_;
    QList<core::NotificationCenter::Token> observers_;
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace app
