#include "core/Dispatch.h"

#include "core/ThreadHandOff.h"

#include <QCoreApplication>
#include <QEvent>
#include <QRunnable>
#include <QThreadPool>

namespace dispatch {
namespace {

// A task travels as an object of our own, built by the sender and taken over by the receiver
// before it is read.
class TaskEvent final : public QEvent {
  public:
    static QEvent::Type type() {
        static const auto registered = static_cast<QEvent::Type>(QEvent::registerEventType());
        return registered;
    }
    explicit TaskEvent(Task task) : QEvent(type()), task_(std::move(task)) { handOff(this); }
    void run() { task_(); }

  private:
    Task task_;
};

// Lives on the main thread and runs the tasks posted to it.
class MainReceiver final : public QObject {
  public:
    bool event(QEvent* event) override {
        takeOver(event);
        if (event->type() != TaskEvent::type())
            return QObject::event(event);
        static_cast<TaskEvent*>(event)->run();
        return true;
    }
};

class TaskRunnable final : public QRunnable {
  public:
    explicit TaskRunnable(Task task) : task_(std::move(task)) { handOff(this); }
    void run() override {
        takeOver(this);
        task_();
    }

  private:
    Task task_;
};

QObject* mainReceiver() {
    static MainReceiver* const receiver = [] {
        auto* made = new MainReceiver;
        made->moveToThread(QCoreApplication::instance()->thread());
        return made;
    }();
    return receiver;
}

}  // namespace

void main(Task task) {
    Q_ASSERT_X(QCoreApplication::instance(), "dispatch::main", "needs a QCoreApplication");
    QCoreApplication::postEvent(mainReceiver(), new TaskEvent(std::move(task)));
}

void global(Task task) {
    on(*QThreadPool::globalInstance(), std::move(task));
}

void on(QThreadPool& pool, Task task) {
    pool.start(new TaskRunnable(std::move(task)));
}

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
            if (tasks_.empty())
                return;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

}  // namespace dispatch
