#pragma once

#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace core {

// Named notifications with a user-info dictionary. Observers run synchronously on the posting
// thread; once removeObserver returns, that observer is never called again.
class NotificationCenter {
public:
    using Observer = std::function<void(const QString& name, const QVariantMap& userInfo)>;
    using Token = std::uint64_t;

    static NotificationCenter& defaultCenter();

    // An empty name observes every notification.
    Token addObserver(const QString& name, Observer observer);
    void removeObserver(Token token);
    void post(const QString& name, const QVariantMap& userInfo = {});

private:
    struct Entry;
    std::mutex mutex_;
    std::vector<std::shared_ptr<Entry>> entries_;
    Token nextToken_ = 1;
};

}  // namespace core
