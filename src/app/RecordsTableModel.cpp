#include "app/RecordsTableModel.h"

#include "records/RecordStore.h"

#include <QSet>

#include <algorithm>

namespace app {

RecordsTableModel::RecordsTableModel(records::RecordStore& store, QObject* parent)
    : QAbstractTableModel(parent), store_(store) {}

QString RecordsTableModel::load(const QDate& from, const QDate& to,
                                std::optional<records::Outcome> outcome, const QString& search) {
    records::RecordFilter filter;
    filter.since = from.isValid() ? QDateTime(from, QTime(0, 0)) : QDateTime();
    filter.until = to.isValid() ? QDateTime(to, QTime(23, 59, 59, 999)) : QDateTime();
    filter.outcome = outcome;
    QList<records::RestoreRecord> found;
    const QString text = search.trimmed();
    if (text.isEmpty()) {
        found = store_.find(filter);
    } else {
        // One field for both: a serial number, or the ECID as any list shows it.
        records::RecordFilter bySerial = filter;
        bySerial.serialNumber = text;
        found = store_.find(bySerial);
        QString hex = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? text.mid(2) : text;
        bool isHex = false;
        hex.toULongLong(&isHex, 16);
        if (isHex) {
            records::RecordFilter byEcid = filter;
            byEcid.ecid = hex.toUpper();
            found += store_.find(byEcid);
            std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
                return a.endedAt > b.endedAt;
            });
        }
    }
    beginResetModel();
    shown_ = found;
    endResetModel();
    return store_.lastError();
}

int RecordsTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(shown_.size());
}

int RecordsTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant RecordsTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= shown_.size())
        return {};
    const records::RestoreRecord& r = shown_[index.row()];
    if (role == Qt::ToolTipRole)
        return QStringLiteral("Record %1\nHash %2").arg(r.id, r.hash);
    if (role != Qt::DisplayRole)
        return {};
    switch (index.column()) {
        case Ended:
            return r.endedAt.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
        case Outcome:
            return records::outcomeName(r.outcome);
        case Serial:
            return r.serialNumber;
        case Ecid:
            return r.ecid;
        case Model:
            return r.modelIdentifier;
        case Port:
            return r.location;
        case Station:
            return r.station;
        case Operator:
            return r.operatorName;
        default:
            return {};
    }
}

QVariant RecordsTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const char* const titles[] = {"Ended", "Outcome", "Serial Number", "ECID",
                                         "Model",  "Port",    "Station",       "Operator"};
    return section >= 0 && section < ColumnCount ? QString::fromLatin1(titles[section]) : QVariant();
}

}  // namespace app
