#include "core/Dispatch.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThreadPool>

namespace dispatch {

void main(Task task) {
    QCoreApplication* app = QCoreApplication::instance();
    Q_ASSERT_X(app, "dispatch::main", "needs a QCoreApplication");
    QMetaObject::invokeMethod(app, std::move(task), Qt::QueuedConnection);
}

void global(Task task) { QThreadPool::globalInstance()->start(std::move(task)); }

// A thread per task rather than the shared pool: the pool caps its workers at the number of
// cores and queues the rest, which would run lanes one after another on a small machine.
void concurrently(std::vector<Task> tasks) {
    if (tasks.size() == 1) {
        tasks.front()();
        return;
    }
    std::vector<std::jthread> threads;
    threads.reserve(tasks.size());
    for (Task& task : tasks) threads.emplace_back(std::move(task));
}

SerialQueue::SerialQueue(QString label) : label_(std::move(label)), worker_([this] { run(); }) {}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    worker_.join();
}

void SerialQueue::async(Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

void SerialQueue::run() {
    for (;;) {
        Task task;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty()) return;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

}  // namespace dispatch
