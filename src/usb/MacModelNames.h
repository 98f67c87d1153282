#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace usb {

// The marketing names of Apple-silicon Mac model identifiers ("Macmini9,1" is "Mac mini (M1,
// 2020)"), from the table shipped as the resource "mac-models.json". It also names the model of
// a Mac in DFU mode from its boot ROM's chip and board numbers, where that pair names one model.
class MacModelNames {
  public:
    // The shipped table, read once.
    static const MacModelNames& shipped();
    // A table from JSON text; an unreadable text gives an empty table.
    explicit MacModelNames(const QByteArray& json);

    // The marketing name, or empty for an identifier the table does not hold.
    QString nameOf(const QString& identifier) const;
    // The name when known, else the identifier itself.
    QString displayName(const QString& identifier) const;
    // The identifier of the model with this boot ROM chip (CPID) and board (BDID); empty if none.
    QString identifierOfChip(int chip, int board) const;
    struct Chip {
        int chip = 0;
        int board = 0;
    };
    // The boot ROM chip and board of a model, where the table gives them.
    std::optional<Chip> chipOf(const QString& identifier) const;
    QStringList identifiers() const { return names_.keys(); }

  private:
    QHash<QString, QString> names_;
    QHash<std::uint32_t, QString> byChip_;
    QHash<QString, Chip> chips_;
};

}  // namespace usb
