#pragma once

#include <QAbstractTableModel>
#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace app {

// Which port of a Mac to cable for a DFU revive or restore, by model, from the table shipped as
// the resource "dfu-ports.json". Rows marked unverified are inferences or conflicting reports.
struct DfuPortRecord {
    QString model;
    QStringList identifiers;  // model identifiers such as "Macmini9,1"
    QString dfuPort;
    bool verified = true;
    QString source;
};

class DfuPortLookup : public QAbstractTableModel {
    Q_OBJECT

  public:
    enum Column { Model, Identifiers, Port, Verified, ColumnCount };

    // The shipped table.
    explicit DfuPortLookup(QObject* parent = nullptr);
    // A table from JSON text; an unreadable text gives an empty table and `error()` says why.
    DfuPortLookup(const QByteArray& json, QObject* parent);

    QString error() const { return error_; }
    const QList<DfuPortRecord>& records() const { return shown_; }

    // Shows only the rows whose model, identifiers or port text hold every word of the query,
    // ignoring case; an empty query shows all.
    void setQuery(const QString& query);
    // The record for a model identifier ("deviceType"), if the table has one.
    std::optional<DfuPortRecord> forDeviceType(const QString& deviceType) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

  private:
    void load(const QByteArray& json);

    QList<DfuPortRecord> all_;
    QList<DfuPortRecord> shown_;
    QString error_;
};

}  // namespace app
