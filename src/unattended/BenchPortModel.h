#pragma once

#include "unattended/BenchPort.h"

#include <QAbstractTableModel>
#include <QList>

#include <functional>

namespace unattended {

class UnattendedBench;

// The bench's ports for a table or a map of the bench: one row per port, the Mac's model, the
// state, the restore's progress and the time in that state. Follows the bench it is bound to;
// `port` answers for views that draw the bench their own way (the device table, the bench map).
class BenchPortModel final : public QAbstractTableModel {
    Q_OBJECT
  public:
    enum Column { PortColumn, ModelColumn, StateColumn, ProgressColumn, TimeColumn, ColumnCount };

    explicit BenchPortModel(std::function<double()> now, QObject* parent = nullptr);

    // Shows this bench's ports from now on; null shows none.
    void bind(UnattendedBench* bench);
    // Moves the times in state on.
    void refreshTimes();
    // The port of that name; null when the bench has none (or no bench is bound).
    const BenchPort* port(const QString& name) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

  signals:
    void portPhaseChanged(const QString& port, unattended::PortPhase phase);

  private:
    void portChanged(const BenchPort& port);

    std::function<double()> now_;
    QList<BenchPort> ports_;
    QMetaObject::Connection connection_;
};

}  // namespace unattended
