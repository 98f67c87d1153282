#pragma once

#include "usb/LocalPortHelper.h"

#include <QStringList>

#include <deque>
#include <mutex>

namespace testing_support {

// Records every request; answers each with the next scripted status at once, or keeps the reply
// for the test to give later when `holdReplies` is set. Safe to call from any thread.
class FakeLocalPortHelper final : public LocalPortHelper {
  public:
    void installToolIfNecessary() override { record(QStringLiteral("install?")); }
    void enterDFUMode(Reply reply) override { answer(QStringLiteral("dfu"), std::move(reply)); }
    void reboot(Reply reply) override { answer(QStringLiteral("reboot"), std::move(reply)); }

    void script(std::int64_t status) {
        std::lock_guard lock(mutex_);
        statuses_.push_back(status);
    }
    QStringList requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }
    qsizetype count(const QString& request) const { return requests().count(request); }
    // Answers the oldest held reply.
    void release(std::int64_t status) {
        Reply reply;
        {
            std::lock_guard lock(mutex_);
            reply = std::move(held_.front());
            held_.pop_front();
        }
        reply(status);
    }

    bool holdReplies = false;

  private:
    void record(const QString& request) {
        std::lock_guard lock(mutex_);
        requests_ << request;
    }
    void answer(const QString& request, Reply reply) {
        std::int64_t status = 0;
        {
            std::lock_guard lock(mutex_);
            requests_ << request;
            if (holdReplies) {
                held_.push_back(std::move(reply));
                return;
            }
            if (!statuses_.empty()) {
                status = statuses_.front();
                statuses_.pop_front();
            }
        }
        reply(status);
    }

    mutable std::mutex mutex_;
    QStringList requests_;
    std::deque<std::int64_t> statuses_;
    std::deque<Reply> held_;
};

}  // namespace testing_support
