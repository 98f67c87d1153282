#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

// The promises a tarvel-cli run makes in what it prints, whatever went wrong under it.
namespace faults {

std::optional<QJsonObject> lastEvent(const QString& output, const QString& event);

// Every port the command was given is in one place of the verdict, and the verdict's word
// agrees with the exit status.
void checkVerdict(const QJsonObject& verdict, QStringList ports, int exit);

// A run's JSON lines are JSON, one document a line, and their time never goes back.
void checkJsonLines(const QString& output);

// A run that ended on its own says so last: its verdict, or its end or summary with the status.
void checkOutcomeLine(const QString& output, int exit);

// A failure says why on standard error, no reason twice; a sequence's verdict is logged too.
void checkOneReason(const QString& errors, const QString& log);

// A warning is given once: no two lines of standard output warn alike.
void checkWarningsOnce(const QString& output);

// Hubs worked at once take turns port by port while the first pass runs; worked one after
// another, each hub's steps would come in one block.
void checkLanesOverlap(const QString& output, int hubs);

// The processes, but `except`, whose environment carries the mark.
QStringList processesMarked(const QByteArray& mark, qint64 except);

}  // namespace faults
