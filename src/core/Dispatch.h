#pragma once

#include <QString>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class QThreadPool;

namespace dispatch {

using Task = std::function<void()>;

// Runs the task later on the main thread's event loop.
void main(Task task);

// Runs the task on a worker of the shared thread pool.
void global(Task task);
// Runs the task on a worker of `pool`.
void on(QThreadPool& pool, Task task);

// Runs every task at once, each on a thread of its own, and returns when all have finished, so
// tasks that sleep or wait on each other never queue behind one another.
void concurrently(std::vector<Task> tasks);

// One worker thread that runs tasks one after another in the order they were submitted. The
// destructor lets the queued tasks finish.
class SerialQueue {
  public:
    explicit SerialQueue(QString label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void async(Task task);
    const QString& label() const { return label_; }

  private:
    void run();

    QString label_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task> tasks_;
    bool stopping_ = false;
    std::thread worker_;
};

}  // namespace dispatch
