#include "usb/MacModelNames.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace usb {
namespace {

QByteArray shippedTable() {
    QFile file(QStringLiteral(":/mac-models.json"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

std::uint32_t chipKey(int chip, int board) {
    return (static_cast<std::uint32_t>(chip) << 8) | static_cast<std::uint32_t>(board & 0xFF);
}

}  // namespace

const MacModelNames& MacModelNames::shipped() {
    static const MacModelNames table(shippedTable());
    return table;
}

MacModelNames::MacModelNames(const QByteArray& json) {
    const QJsonArray models = QJsonDocument::fromJson(json).object().value("models").toArray();
    for (const QJsonValue value : models) {
        const QJsonObject model = value.toObject();
        const QString identifier = model.value("identifier").toString();
        if (identifier.isEmpty())
            continue;
        names_.insert(identifier, model.value("name").toString());
        bool chipOk = false;
        bool boardOk = false;
        const int chip = model.value("chip").toString().toInt(&chipOk, 16);
        const int board = model.value("board").toString().toInt(&boardOk, 16);
        if (chipOk && boardOk) {
            byChip_.insert(chipKey(chip, board), identifier);
            chips_.insert(identifier, Chip{chip, board});
        }
    }
}

QString MacModelNames::nameOf(const QString& identifier) const {
    return names_.value(identifier);
}

QString MacModelNames::displayName(const QString& identifier) const {
    const QString name = nameOf(identifier);
    return name.isEmpty() ? identifier : name;
}

QString MacModelNames::identifierOfChip(int chip, int board) const {
    return byChip_.value(chipKey(chip, board));
}

std::optional<MacModelNames::Chip> MacModelNames::chipOf(const QString& identifier) const {
    const auto chip = chips_.constFind(identifier);
    return chip == chips_.cend() ? std::nullopt : std::optional<Chip>(*chip);
}

}  // namespace usb
