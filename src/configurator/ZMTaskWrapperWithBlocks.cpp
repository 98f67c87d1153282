#include "configurator/ZMTaskWrapperWithBlocks.h"

#include "configurator/ChildProcess.h"

#include <QSocketNotifier>
#include <QStringDecoder>

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>

namespace {

// Large enough to take a full pipe in one read, so a chunk is whatever the child had written.
constexpr size_t chunkSize = 64 * 1024;

// Text that is not UTF-8 gives a null string rather than a guess at what was meant.
QString decodeChunk(const QByteArray& bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return QString();
    return text;
}

enum class ReadResult { Chunk, EndOfFile, NothingYet };

ReadResult readChunk(int fd, QByteArray* chunk) {
    chunk->resize(chunkSize);
    ssize_t count = 0;
    do {
        count = ::read(fd, chunk->data(), chunkSize);
    } while (count < 0 && errno == EINTR);
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return ReadResult::NothingYet;
    if (count <= 0)
        return ReadResult::EndOfFile;
    chunk->resize(count);
    return ReadResult::Chunk;
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
    task_ = configurator::ChildProcess::spawn(arguments_, &error);
    if (!task_) {
        logLaunchFailure(error);
        return;
    }
    outputNotifier_.reset(new QSocketNotifier(task_->standardOutput(), QSocketNotifier::Read));
    errorNotifier_.reset(new QSocketNotifier(task_->standardError(), QSocketNotifier::Read));
    QObject::connect(outputNotifier_.get(), &QSocketNotifier::activated, [this] { getData(); });
    QObject::connect(errorNotifier_.get(), &QSocketNotifier::activated, [this] { getStdErr(); });
}

void ZMTaskWrapperWithBlocks::getData() {
    const auto keepAlive = weak_from_this().lock();
    if (!task_ || !outputNotifier_)
        return;
    QByteArray chunk;
    switch (readChunk(task_->standardOutput(), &chunk)) {
        case ReadResult::NothingYet:
            return;
        case ReadResult::EndOfFile:
            stopProcess();
            return;
        case ReadResult::Chunk:
            if (outputBlock_)
                outputBlock_(decodeChunk(chunk));
            return;
    }
}

void ZMTaskWrapperWithBlocks::getStdErr() {
    const auto keepAlive = weak_from_this().lock();
    if (!task_ || !errorNotifier_)
        return;
    QByteArray chunk;
    switch (readChunk(task_->standardError(), &chunk)) {
        case ReadResult::NothingYet:
            return;
        case ReadResult::EndOfFile:
            // Standard error never ends a run. Past its end the pipe can deliver nothing more, so
            // watching it would only spin the loop until the run stops.
            errorNotifier_->setEnabled(false);
            return;
        case ReadResult::Chunk:
            if (errorOutputBlock_)
                errorOutputBlock_(decodeChunk(chunk));
            return;
    }
}

void ZMTaskWrapperWithBlocks::unregisterReads() {
    outputNotifier_.reset();
    errorNotifier_.reset();
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
