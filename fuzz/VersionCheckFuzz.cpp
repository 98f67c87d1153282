// The version-check reply's body, judged as the check judges it against this application's entry,
// and the version it names compared both ways with an installed version.
#include "app/VersionCheck.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (static_cast<qint64>(size) > app::VersionCheck::maxBodyBytes)
        return 0;  // the check never reads more than this
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    QString newer;
    const auto outcome = app::VersionCheck::decode(body, QStringLiteral("com.kestrune.tarvel"),
                                                   QStringLiteral("1.4.2"), newer);
    if (outcome == app::VersionCheck::Outcome::Newer &&
        (!app::VersionCheck::isVersionText(newer) ||
         !app::VersionCheck::isNewer(newer, QStringLiteral("1.4.2"))))
        __builtin_trap();
    // Two versions against each other, split at the first NUL: neither may be newer than the
    // other, or than itself.
    const qsizetype split = body.indexOf('\0');
    if (split >= 0) {
        const QString a = QString::fromUtf8(body.left(split));
        const QString b = QString::fromUtf8(body.mid(split + 1));
        if (app::VersionCheck::isNewer(a, a) ||
            (app::VersionCheck::isNewer(a, b) && app::VersionCheck::isNewer(b, a)))
            __builtin_trap();
    }
    return 0;
}
