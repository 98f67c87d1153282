#include "app/DfuPortLookup.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace app {
namespace {

QByteArray shippedTable() {
    QFile file(QStringLiteral(":/dfu-ports.json"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool matches(const DfuPortRecord& record, const QStringList& words) {
    const QString text = record.model + ' ' + record.identifiers.join(' ') + ' ' + record.dfuPort;
    return std::all_of(words.begin(), words.end(), [&](const QString& word) {
        return text.contains(word, Qt::CaseInsensitive);
    });
}

}  // namespace

DfuPortLookup::DfuPortLookup(QObject* parent) : DfuPortLookup(shippedTable(), parent) {}

DfuPortLookup::DfuPortLookup(const QByteArray& json, QObject* parent)
    : QAbstractTableModel(parent) {
    load(json);
    shown_ = all_;
}

void DfuPortLookup::load(const QByteArray& json) {
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    const QJsonValue models = document.object().value(QStringLiteral("models"));
    if (parseError.error != QJsonParseError::NoError || !models.isArray()) {
        error_ = parseError.error != QJsonParseError::NoError
                     ? QStringLiteral("the DFU port table is not valid JSON: %1")
                           .arg(parseError.errorString())
                     : QStringLiteral("the DFU port table has no \"models\" list");
        return;
    }
    for (const QJsonValue value : models.toArray()) {
        const QJsonObject object = value.toObject();
        DfuPortRecord record;
        record.model = object.value(QStringLiteral("model")).toString();
        for (const QJsonValue id : object.value(QStringLiteral("identifiers")).toArray())
            record.identifiers << id.toString();
        record.dfuPort = object.value(QStringLiteral("dfuPort")).toString();
        record.verified = object.value(QStringLiteral("verified")).toBool(true);
        record.source = object.value(QStringLiteral("source")).toString();
        all_.append(record);
    }
}

void DfuPortLookup::setQuery(const QString& query) {
    const QStringList words = query.split(' ', Qt::SkipEmptyParts);
    beginResetModel();
    shown_.clear();
    for (const DfuPortRecord& record : all_)
        if (matches(record, words))
            shown_.append(record);
    endResetModel();
}

std::optional<DfuPortRecord> DfuPortLookup::forDeviceType(const QString& deviceType) const {
    for (const DfuPortRecord& record : all_)
        if (record.identifiers.contains(deviceType, Qt::CaseInsensitive))
            return record;
    return std::nullopt;
}

int DfuPortLookup::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(shown_.size());
}

int DfuPortLookup::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant DfuPortLookup::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= shown_.size())
        return {};
    const DfuPortRecord& record = shown_[index.row()];
    if (role == Qt::ToolTipRole)
        return record.source;
    if (role != Qt::DisplayRole)
        return {};
    switch (index.column()) {
        case Model: return record.model;
        case Identifiers: return record.identifiers.join(QStringLiteral(", "));
        case Port: return record.dfuPort;
        case Verified:
            return record.verified ? QStringLiteral("Yes") : QStringLiteral("Unverified");
    }
    return {};
}

QVariant DfuPortLookup::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    static const QStringList titles{"Model", "Identifiers", "DFU Port", "Verified"};
    return titles.value(section);
}

}  // namespace app
