// A value written to one of the settings that set a pause or a bound (or to the two texts the
// options sheet stores as typed), read back through the settings store the way the commands read
// it. The store is a file in a scratch folder, kept for the whole run; the first byte picks the
// key, the second the stored type, the rest is the value.
#include "app/StayInFront.h"
#include "core/SettingRanges.h"
#include "core/Settings.h"
#include "core/SettingsKeys.h"
#include "restore/RestoreQueue.h"

#include <QByteArray>
#include <QDir>
#include <QSettings>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariant>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace {

core::Settings& store() {
    // Every write is saved and synced as the real store does: in memory when the system has a
    // tmpfs for it.
    const QString base = QDir(QStringLiteral("/dev/shm")).exists() ? QStringLiteral("/dev/shm")
                                                                     : QDir::tempPath();
    static QTemporaryDir folder(base + QStringLiteral("/fuzz-settings-XXXXXX"));
    static const std::unique_ptr<core::Settings> settings = [] {
        auto made = std::make_unique<core::Settings>(std::make_unique<QSettings>(
            folder.filePath(QStringLiteral("Tarvel.conf")), QSettings::NativeFormat));
        QVariantMap defaults;
        for (const auto& shown : core::optionsSheetDefaults())
            defaults.insert(QLatin1String(shown.key), shown.value);
        made->registerDefaults(defaults);
        return made;
    }();
    return *settings;
}

std::vector<const char*> fuzzedKeys() {
    std::vector<const char*> keys;
    for (const core::SettingRange& range : core::settingRanges()) keys.push_back(range.key);
    keys.push_back(core::keys::stayInFrontAfterDFUSecs);
    return keys;
}

template <typename T>
T numberFrom(const QByteArray& bytes) {
    T number{};
    std::memcpy(&number, bytes.constData(), std::min(sizeof number, std::size_t(bytes.size())));
    return number;
}

QVariant valueFrom(std::uint8_t kind, const QByteArray& bytes) {
    switch (kind % 7) {
        case 0:
            return QString::fromUtf8(bytes);
        case 1:
            return numberFrom<double>(bytes);
        case 2:
            return numberFrom<qint64>(bytes);
        case 3:
            return numberFrom<quint64>(bytes);
        case 4:
            return !bytes.isEmpty() && bytes.front() != 0;
        case 5:
            return QString::fromUtf8(bytes).split(QLatin1Char(','));
        default:
            return bytes;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    static const std::vector<const char*> keys = fuzzedKeys();
    const char* key = keys[data[0] % keys.size()];
    const QByteArray bytes(reinterpret_cast<const char*>(data + 2), static_cast<qsizetype>(size - 2));
    const QVariant value = valueFrom(data[1], bytes);
    core::Settings& settings = store();

    // What `defaults write` says of the value before it stores it.
    if (const core::SettingKey* known = core::findSettingKey(QLatin1String(key)))
        core::settingValueProblem(*known, value);
    settings.setValue(QLatin1String(key), value);

    if (const core::SettingRange* range = core::findSettingRange(QLatin1String(key))) {
        const double bounded = settings.boundedNumber(key);
        if (!std::isfinite(bounded) || bounded < range->minimum || bounded > range->maximum)
            __builtin_trap();
    }
    const QString text = settings.stringForKey(QLatin1String(key));
    if (std::strcmp(key, core::keys::timeBetweenProcesses) == 0)
        restore::RestoreQueue::pauseBetweenStarts(text);
    if (std::strcmp(key, core::keys::stayInFrontAfterDFUSecs) == 0 &&
        app::stay_in_front::seconds(settings.object(QLatin1String(key))) < 0)
        __builtin_trap();

    // The typed reads every other setting goes through.
    settings.boolForKey(QLatin1String(key));
    settings.integerForKey(QLatin1String(key));
    settings.doubleForKey(QLatin1String(key));
    core::finiteNumber(value);
    core::strictDecimalInteger(text);
    return 0;
}
