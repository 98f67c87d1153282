#pragma once

#include <QJsonObject>
#include <QString>

#include <memory>
#include <vector>

class AcronameHub;
class AcronamePort;

namespace cli {

// Readings shown the way the hub window shows them: one decimal, power as |V x A|.
QString voltageText(const AcronamePort& port);
QString currentText(const AcronamePort& port);
QString powerText(const AcronamePort& port);

// One hub as `hub list` reports it; a hub that could not be connected has no ports.
QJsonObject hubJson(const AcronameHub& hub, bool connected);
QString hubTable(const AcronameHub& hub, bool connected);

}  // namespace cli
