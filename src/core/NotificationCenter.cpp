#include "core/NotificationCenter.h"

#include <algorithm>

namespace core {

struct NotificationCenter::Entry {
    Token token;
    QString name;
    Observer observer;
    // Held while the observer runs, so removal waits for a call in progress on another thread.
    std::recursive_mutex callMutex;
    bool removed = false;
};

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter center;
    return center;
}

NotificationCenter::Token NotificationCenter::addObserver(const QString& name, Observer observer) {
    std::lock_guard lock(mutex_);
    auto entry = std::make_shared<Entry>();
    entry->token = nextToken_++;
    entry->name = name;
    entry->observer = std::move(observer);
    entries_.push_back(entry);
    return entry->token;
}

void NotificationCenter::removeObserver(Token token) {
    std::shared_ptr<Entry> entry;
    {
        std::lock_guard lock(mutex_);
        const auto it = std::find_if(entries_.begin(), entries_.end(),
                                     [token](const auto& e) { return e->token == token; });
        if (it == entries_.end()) return;
        entry = *it;
        entries_.erase(it);
    }
    std::lock_guard call(entry->callMutex);
    entry->removed = true;
}

void NotificationCenter::post(const QString& name, const QVariantMap& userInfo) {
    std::vector<std::shared_ptr<Entry>> matching;
    {
        std::lock_guard lock(mutex_);
        for (const auto& entry : entries_)
            if (entry->name.isEmpty() || entry->name == name) matching.push_back(entry);
    }
    for (const auto& entry : matching) {
        std::lock_guard call(entry->callMutex);
        if (!entry->removed) entry->observer(name, userInfo);
    }
}

}  // namespace core
