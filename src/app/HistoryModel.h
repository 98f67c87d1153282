#pragma once

#include "restore/History.h"

#include <QAbstractTableModel>

namespace restore {
class RestoreSession;
}

namespace app {

// The restore history as a table, newest last, following the session as records arrive.
class HistoryModel : public QAbstractTableModel {
    Q_OBJECT

  public:
    enum Column { Date, Device, Serial, Message, ColumnCount };

    explicit HistoryModel(const restore::RestoreSession& session, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

  private:
    const restore::RestoreSession& session_;
};

}  // namespace app
