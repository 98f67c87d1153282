#include "unattended/RestoreAdmission.h"

#include <cmath>
#include <utility>

namespace unattended {

RestoreAdmission::RestoreAdmission(Collaborators collaborators, Rules rules, QObject* parent)
    : QObject(parent), c_(std::move(collaborators)), rules_(rules) {
    gate_.setSingleShot(true);
    connect(&gate_, &QTimer::timeout, this, &RestoreAdmission::tryStarts);
    if (!c_.restorer)
        return;
    connect(c_.restorer, &Restorer::started, this, &RestoreAdmission::restoreStarted);
    connect(c_.restorer, &Restorer::notListed, this, &RestoreAdmission::notListed);
    connect(c_.restorer, &Restorer::refused, this, &RestoreAdmission::restoreRefused);
    connect(c_.restorer, &Restorer::finished, this, &RestoreAdmission::restoreFinished);
}

void RestoreAdmission::queue(const QString& port) {
    waiting_.insert(port, {c_.now()});
    tryStarts();
}

void RestoreAdmission::withdraw(const QString& port) {
    waiting_.remove(port);
}

void RestoreAdmission::tryStarts() {
    if (stopped_ || !lookingUp_.isEmpty() || restoring_.size() >= rules_.maxRestores)
        return;
    const double now = c_.now();
    const double wait = lastStart_ + rules_.secondsBetweenStarts - now;
    if (wait > 0) {
        gate_.start(static_cast<int>(std::ceil(wait * c_.tickMilliseconds)));
        return;
    }
    const QString port = next(now);
    if (port.isEmpty())
        return;
    waiting_[port].lastListing = now;
    lookingUp_ = port;
    c_.restorer->restore(port, c_.locationOf(port));
}

QString RestoreAdmission::next(double now) const {
    QString longest;
    double since = std::numeric_limits<double>::infinity();
    for (auto it = waiting_.begin(); it != waiting_.end(); ++it)
        if (now - it->lastListing >= listingRetrySeconds && it->since < since) {
            longest = it.key();
            since = it->since;
        }
    return longest;
}

void RestoreAdmission::stop() {
    stopped_ = true;
    gate_.stop();
    if (c_.restorer)
        c_.restorer->cancelAll();
}

void RestoreAdmission::restoreStarted(const QString& port, const RestoredMac& mac) {
    lookingUp_.clear();
    lastStart_ = c_.now();
    waiting_.remove(port);
    restoring_.insert(port);
    emit started(port, mac);
    if (stopped_)  // it was being looked up when the stop came
        c_.restorer->cancelAll();
    tryStarts();
}

void RestoreAdmission::notListed(const QString& port) {
    if (lookingUp_ == port)
        lookingUp_.clear();
    tryStarts();
}

void RestoreAdmission::restoreRefused(const QString& port, const QString& why) {
    if (lookingUp_ == port)
        lookingUp_.clear();
    emit refused(port, why);
    tryStarts();
}

void RestoreAdmission::restoreFinished(const QString& port, bool ok, bool cancelled,
                                       const QString& message) {
    if (!restoring_.remove(port))
        return;
    emit finished(port, ok, cancelled, message);
    tryStarts();
}

}  // namespace unattended
