#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace sim {

// The bytes of a station file, or nullopt with `problem` saying why not. Only a regular file of
// at most StationLoad::maxFileBytes is read: a device, a FIFO or a huge file named by mistake
// must end in a clear message, not in a read that never ends or takes all the memory.
std::optional<QByteArray> readStationBytes(const QString& path, QString& problem);

}  // namespace sim
