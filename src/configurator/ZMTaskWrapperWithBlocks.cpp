#include "configurator/ZMTaskWrapperWithBlocks.h"

#include "configurator/ChildProcess.h"

#include <QSocketNotifier>
#include <QStringDecoder>
#include <QTimer>

#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <utility>

namespace {

// One read takes at most a full pipe; a chunk gathers reads up to this cap. A tool's document
// is parsed chunk by chunk, so the cap is far above any listing a bench can produce.
constexpr qsizetype readSize = 64 * 1024;
constexpr qsizetype chunkCap = ZMTaskWrapperWithBlocks::kChunkCap;
// Less than this at a wake-up is a line or two, written whole (the most a pipe writes at once):
// it goes over at once, so a tool's progress lines arrive one chunk each as they are printed.
constexpr qsizetype bulkWrite = PIPE_BUF;

// Text that is not UTF-8 gives a null string rather than a guess at what was meant.
QString decodeChunk(const QByteArray& bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return QString();
    return text;
}

struct Drained {
    QByteArray chunk;
    bool endOfFile = false;
};

// Everything readable now, up to `limit` bytes, and whether the writer is gone. A chunk and the
// end of file can come from the same call: the chunk is to be handed over before the run ends.
Drained drain(int fd, qsizetype limit = chunkCap) {
    Drained result;
    while (result.chunk.size() < limit) {
        const qsizetype had = result.chunk.size();
        const qsizetype wanted = std::min(readSize, limit - had);
        result.chunk.resize(had + wanted);
        ssize_t count = 0;
        do {
            count = ::read(fd, result.chunk.data() + had, static_cast<size_t>(wanted));
        } while (count < 0 && errno == EINTR);
        result.chunk.resize(had + std::max<ssize_t>(count, 0));
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        if (count <= 0) {
            result.endOfFile = true;
            break;
        }
    }
    return result;
}

// A launch failure goes to the system log only; the application's log never hears of it.
void logLaunchFailure(const QString& description) {
    const QByteArray line = QStringLiteral("task error;%1").arg(description).toUtf8();
    syslog(LOG_NOTICE, "%s", line.constData());
    std::fprintf(stderr, "%s\n", line.constData());
}

}  // namespace

void ZMTaskWrapperWithBlocks::NotifierDeleter::operator()(QSocketNotifier* notifier) const {
    // The notifier may be the one whose signal is being delivered right now.
    notifier->setEnabled(false);
    notifier->deleteLater();
}

void ZMTaskWrapperWithBlocks::TimerDeleter::operator()(QTimer* timer) const {
    // Likewise the timer, when an owner drops the runner from inside a chunk it handed over.
    timer->stop();
    timer->deleteLater();
}

ZMTaskWrapperWithBlocks::ZMTaskWrapperWithBlocks(StartBlock startBlock, EndBlock endBlock,
                                                 OutputBlock outputBlock,
                                                 OutputBlock errorOutputBlock,
                                                 QStringList arguments, core::Clock& clock)
    : startBlock_(std::move(startBlock)),
      endBlock_(std::move(endBlock)),
      outputBlock_(std::move(outputBlock)),
      errorOutputBlock_(std::move(errorOutputBlock)),
      arguments_(std::move(arguments)),
      clock_(clock) {}

ZMTaskWrapperWithBlocks::~ZMTaskWrapperWithBlocks() {
    dropChild();
}

void ZMTaskWrapperWithBlocks::startProcess() {
    if (startBlock_)
        startBlock_();
    dropChild();

    QString error;
    task_ = configurator::ChildProcess::spawn(arguments_, &error, workingDirectory_);
    if (!task_) {
        logLaunchFailure(error);
        return;
    }
    outputNotifier_.reset(new QSocketNotifier(task_->standardOutput(), QSocketNotifier::Read));
    errorNotifier_.reset(new QSocketNotifier(task_->standardError(), QSocketNotifier::Read));
    QObject::connect(outputNotifier_.get(), &QSocketNotifier::activated, [this] { getData(); });
    QObject::connect(errorNotifier_.get(), &QSocketNotifier::activated, [this] { getStdErr(); });
    settleTimer_.reset(new QTimer);
    settleTimer_->setSingleShot(true);
    QObject::connect(settleTimer_.get(), &QTimer::timeout, [this] { settled(); });
}

// A tool prints a long document in several write() calls (stdio flushes a buffer at a time), and
// we are woken by the first of them. Standard output that arrives in bulk is therefore gathered
// for a moment, so a document written in one go reaches the owner as one chunk: the device
// listing parses each chunk by itself. The end of the output hands over what was gathered at once.
void ZMTaskWrapperWithBlocks::getData() {
    const auto keepAlive = weak_from_this().lock();
    if (!task_ || !outputNotifier_)
        return;
    const Drained drained = drain(task_->standardOutput(), chunkCap - pendingOutput_.size());
    pendingOutput_ += drained.chunk;
    if (drained.endOfFile || pendingOutput_.size() >= chunkCap) {
        handOverOutput();
        // What the child wrote to standard error before it ended may not have been read yet:
        // its last error line is often the reason of a failure.
        if (drained.endOfFile && task_ && errorNotifier_ && errorNotifier_->isEnabled())
            getStdErr();
        if (drained.endOfFile && task_ && outputNotifier_)
            stopProcess();
        return;
    }
    if (pendingOutput_.isEmpty() || outputWhole_)
        return;
    // Bulk output is handed over once the writer has paused for a moment, however long it
    // writes: the pipe holds only so much, and a busy machine reads it in many wake-ups.
    if (!drained.chunk.isEmpty() && pendingOutput_.size() >= bulkWrite)
        settleTimer_->start(settleMilliseconds);
    else if (!settleTimer_->isActive())
        handOverOutput();
}

void ZMTaskWrapperWithBlocks::settled() {
    const auto keepAlive = weak_from_this().lock();
    if (!task_ || !outputNotifier_)
        return;
    // What arrived since the last wake-up belongs to the same chunk; the notifier reports the end.
    pendingOutput_ += drain(task_->standardOutput(), chunkCap - pendingOutput_.size()).chunk;
    handOverOutput();
}

void ZMTaskWrapperWithBlocks::handOverOutput() {
    settleTimer_->stop();
    if (pendingOutput_.isEmpty())
        return;
    const QByteArray chunk = std::exchange(pendingOutput_, QByteArray());
    if (outputBlock_)
        outputBlock_(decodeChunk(chunk));
}

void ZMTaskWrapperWithBlocks::getStdErr() {
    const auto keepAlive = weak_from_this().lock();
    if (!task_ || !errorNotifier_)
        return;
    const Drained drained = drain(task_->standardError());
    if (!drained.chunk.isEmpty() && errorOutputBlock_) {
        errorOutputBlock_(decodeChunk(drained.chunk));
        if (!task_ || !errorNotifier_)
            return;
    }
    // Standard error never ends a run. Past its end the pipe can deliver nothing more, so
    // watching it would only spin the loop until the run stops.
    if (drained.endOfFile)
        errorNotifier_->setEnabled(false);
}

// Output gathered but not yet handed over goes with the reads: a stopped run reports nothing more.
void ZMTaskWrapperWithBlocks::unregisterReads() {
    outputNotifier_.reset();
    errorNotifier_.reset();
    settleTimer_.reset();
    pendingOutput_.clear();
}

void ZMTaskWrapperWithBlocks::stopProcess() {
    const auto keepAlive = weak_from_this().lock();
    unregisterReads();
    if (task_) {
        terminateChild();
        task_->closePipes();
    }
    if (endBlock_)
        endBlock_(task_ ? task_->terminationStatus() : -1);
}

// A child that closed its output but keeps running is sent SIGTERM until it stops. One that
// ignores it is killed once the grace has passed on the host's own clock: a stuck tool must
// never hang the application, and a test's virtual clock must never cut a slow exit short.
void ZMTaskWrapperWithBlocks::terminateChild() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(killGraceSeconds);
    while (task_->isRunning()) {
        task_->sendTerminate();
        if (std::chrono::steady_clock::now() >= deadline)
            task_->sendKill();
    }
}

void ZMTaskWrapperWithBlocks::dropChild() {
    unregisterReads();
    task_.reset();
}

void ZMTaskWrapperWithBlocks::terminate() {
    if (task_ && task_->isRunning())
        task_->sendTerminate();
}

bool ZMTaskWrapperWithBlocks::isRunning() const {
    return task_ && task_->isRunning();
}

std::int32_t ZMTaskWrapperWithBlocks::pid() const {
    return task_ ? task_->pid() : -1;
}

std::int32_t ZMTaskWrapperWithBlocks::terminationStatus() {
    if (!task_)
        return -1;
    if (!task_->isRunning())
        return task_->terminationStatus();
    clock_.sleepSeconds(terminationGraceSeconds);
    if (task_->isRunning())
        return stillRunningStatus;
    return task_->terminationStatus();
}
