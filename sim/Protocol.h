#pragma once

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

  private:
    QJsonObject dispatch(const QString& call, const QJsonObject& request);
    QJsonObject macsList() const;
    void waitForRoundTrip() const;
    QJsonObject restoreCall(const QJsonObject& request, bool cancel);
    QJsonObject localMessage(bool dfu);

    Station& station_;
    double speed_;
};

// The hub library calls ("stem.*").
QJsonObject handleStemCall(Station& station, const QString& call, const QJsonObject& request);

QJsonObject failure(int result, const QString& message);

}  // namespace sim
