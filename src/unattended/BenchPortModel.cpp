#include "unattended/BenchPortModel.h"

#include "unattended/UnattendedBench.h"

#include <cmath>

namespace unattended {

BenchPortModel::BenchPortModel(std::function<double()> now, QObject* parent)
    : QAbstractTableModel(parent), now_(std::move(now)) {}

void BenchPortModel::bind(UnattendedBench* bench) {
    disconnect(connection_);
    beginResetModel();
    ports_ = bench ? bench->ports() : QList<BenchPort>{};
    endResetModel();
    if (bench)
        connection_ =
            connect(bench, &UnattendedBench::portChanged, this, &BenchPortModel::portChanged);
}

void BenchPortModel::portChanged(const BenchPort& port) {
    for (qsizetype row = 0; row < ports_.size(); ++row) {
        if (ports_[row].name != port.name)
            continue;
        const bool newPhase = ports_[row].phase != port.phase;
        ports_[row] = port;
        emit dataChanged(index(int(row), 0), index(int(row), ColumnCount - 1));
        if (newPhase)
            emit portPhaseChanged(port.name, port.phase);
        return;
    }
    // The bench lists its ports once it has them.
    beginInsertRows({}, int(ports_.size()), int(ports_.size()));
    ports_.append(port);
    endInsertRows();
    emit portPhaseChanged(port.name, port.phase);
}

void BenchPortModel::refreshTimes() {
    if (!ports_.isEmpty())
        emit dataChanged(index(0, TimeColumn), index(int(ports_.size()) - 1, TimeColumn));
}

const BenchPort* BenchPortModel::port(const QString& name) const {
    for (const BenchPort& shown : ports_)
        if (shown.name == name)
            return &shown;
    return nullptr;
}

int BenchPortModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(ports_.size());
}

int BenchPortModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant BenchPortModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= ports_.size())
        return {};
    if (role != Qt::DisplayRole)
        return {};
    const BenchPort& port = ports_[index.row()];
    switch (index.column()) {
        case PortColumn:
            return port.name;
        case ModelColumn:
            return port.model;
        case StateColumn:
            return port.reason.isEmpty()
                       ? portPhaseText(port.phase)
                       : QStringLiteral("%1 (%2)").arg(portPhaseText(port.phase), port.reason);
        case ProgressColumn:
            return port.progress >= 0 ? QVariant(int(std::lround(port.progress * 100)))
                                      : QVariant();
        case TimeColumn: {
            const auto seconds = static_cast<qint64>(std::max(0.0, now_() - port.since));
            return QStringLiteral("%1:%2")
                .arg(seconds / 60)
                .arg(seconds % 60, 2, 10, QLatin1Char('0'));
        }
        default:
            return {};
    }
}

QVariant BenchPortModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const char* titles[] = {"Port", "Model", "State", "Progress", "Time in State"};
    return section >= 0 && section < ColumnCount ? QString::fromLatin1(titles[section])
                                                 : QVariant();
}

}  // namespace unattended
