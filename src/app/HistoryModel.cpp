#include "app/HistoryModel.h"

#include "restore/RestoreSession.h"

namespace app {

HistoryModel::HistoryModel(const restore::RestoreSession& session, QObject* parent)
    : QAbstractTableModel(parent), session_(session) {
    connect(&session, &restore::RestoreSession::historyAppended, this, [this] {
        const int row = static_cast<int>(session_.history().size()) - 1;
        beginInsertRows({}, row, row);
        endInsertRows();
    });
}

int HistoryModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(session_.history().size());
}

int HistoryModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant HistoryModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= session_.history().size())
        return {};
    const restore::History& record = session_.history()[index.row()];
    if (role == Qt::ToolTipRole && index.column() == Message)
        return record.message;
    if (role != Qt::DisplayRole)
        return {};
    switch (index.column()) {
        case Date: return restore::History::dateFormatter(record.date);
        case Device: return record.device;
        case Serial: return record.serialNumber;
        case Message: return record.message;
    }
    return {};
}

QVariant HistoryModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const QStringList titles{"Date", "ECID", "Serial Number", "Outcome"};
    return titles.value(section);
}

}  // namespace app
