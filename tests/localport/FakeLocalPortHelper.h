#pragma once

#include "usb/LocalPortHelper.h"

#include <QStringList>

#include <deque>
#include <mutex>
#include <variant>

namespace testing_support {

// Records every request; ends each at once with the next scripted status or failure, or keeps it
// for the test to end later when `holdReplies` is set. Safe to call from any thread.
class FakeLocalPortHelper final : public LocalPortHelper {
  public:
    using Answer = std::variant<std::int64_t, HelperFailure>;

    void installToolIfNecessary() override {
        std::lock_guard lock(mutex_);
        requests_ << QStringLiteral("install?");
    }
    void enterDFUMode(Reply reply, Failure failure) override {
        answer(QStringLiteral("dfu"), {std::move(reply), std::move(failure)});
    }
    void reboot(Reply reply, Failure failure) override {
        answer(QStringLiteral("reboot"), {std::move(reply), std::move(failure)});
    }

    void script(Answer answer) {
        std::lock_guard lock(mutex_);
        answers_.push_back(std::move(answer));
    }
    QStringList requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }
    qsizetype count(const QString& request) const { return requests().count(request); }
    // Ends the oldest held request.
    void release(Answer answer) {
        Callbacks callbacks;
        {
            std::lock_guard lock(mutex_);
            callbacks = std::move(held_.front());
            held_.pop_front();
        }
        end(callbacks, answer);
    }

    bool holdReplies = false;

  private:
    struct Callbacks {
        Reply reply;
        Failure failure;
    };

    static void end(const Callbacks& callbacks, const Answer& answer) {
        if (const auto* status = std::get_if<std::int64_t>(&answer))
            callbacks.reply(*status);
        else if (callbacks.failure)
            callbacks.failure(std::get<HelperFailure>(answer));
    }
    void answer(const QString& request, Callbacks callbacks) {
        Answer next = std::int64_t{0};
        {
            std::lock_guard lock(mutex_);
            requests_ << request;
            if (holdReplies) {
                held_.push_back(std::move(callbacks));
                return;
            }
            if (!answers_.empty()) {
                next = answers_.front();
                answers_.pop_front();
            }
        }
        end(callbacks, next);
    }

    mutable std::mutex mutex_;
    QStringList requests_;
    std::deque<Answer> answers_;
    std::deque<Callbacks> held_;
};

}  // namespace testing_support
