#pragma once

#include "records/RecordFilter.h"
#include "records/RestoreRecord.h"

#include <QAbstractTableModel>
#include <QList>
#include <QString>

namespace records {
class RecordStore;
}

namespace app {

// The Records window's table without a widget: the bench's records between two dates, of one
// outcome, or of the Mac whose serial number or ECID was searched for, newest first.
class RecordsTableModel : public QAbstractTableModel {
    Q_OBJECT

  public:
    enum Column { Ended, Outcome, Serial, Ecid, Model, Port, Station, Operator, ColumnCount };

    explicit RecordsTableModel(records::RecordStore& store, QObject* parent = nullptr);

    // Reads the records again with these conditions; `search` matches a serial number or an
    // ECID (hexadecimal, with or without 0x). Answers the store's error, empty when it read.
    QString load(const QDate& from, const QDate& to, std::optional<records::Outcome> outcome,
                 const QString& search);

    const QList<records::RestoreRecord>& shown() const { return shown_; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

  private:
    records::RecordStore& store_;
    QList<records::RestoreRecord> shown_;
};

}  // namespace app
