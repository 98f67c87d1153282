#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QJsonObject>
#include <QString>

namespace sim {

class Station;

// Answers one request line of the socket protocol (everything but "subscribe", which belongs to
// a connection). The reply always carries the request's id and a result code.
class Protocol {
  public:
    Protocol(Station& station, double speed);

    QJsonObject handle(const QJsonObject& request);

    // How long from now the reply to `request` must wait: a hub library call is a USB round
    // trip over its hub's own link, which carries one call at a time, so calls to one hub queue
    // while calls to different hubs overlap. Books the link; call once per request, before
    // handling it.
    qint64 roundTripMicroseconds(const QJsonObject& request);

  private:
    QJsonObject dispatch(const QString& call, const QJsonObject& request);
    QJsonObject macsList() const;
    QJsonObject restoreCall(const QJsonObject& request, bool cancel);
    QJsonObject engineFaultUsed(const QJsonObject& request);
    QJsonObject localMessage(bool dfu);

    Station& station_;
    double speed_;
    QElapsedTimer clock_;
    // When each hub's link (by the serial the call names; 0 for discovery) is free again, in
    // microseconds of clock_.
    QHash<qint64, qint64> linkFreeAt_;
};

// The hub library calls ("stem.*").
QJsonObject handleStemCall(Station& station, const QString& call, const QJsonObject& request);

QJsonObject failure(int result, const QString& message);

}  // namespace sim
