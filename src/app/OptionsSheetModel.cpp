#include "app/OptionsSheetModel.h"

#include "core/Settings.h"
#include "core/SettingsKeys.h"

namespace app {

OptionsSheetModel::OptionsSheetModel(Environment environment)
    : environment_(std::move(environment)) {}

QVariant OptionsSheetModel::value(const QString& key) const {
    const QVariant stored = environment_.settings->userValue(key);
    if (stored.isValid())
        return stored;
    for (const auto& fallback : core::optionsSheetDefaults())
        if (key == QLatin1String(fallback.key))
            return fallback.value;
    return {};
}

bool OptionsSheetModel::toggle(const QString& key) const {
    return core::variantAsBool(value(key));
}

QString OptionsSheetModel::text(const QString& key) const {
    return value(key).toString();
}

void OptionsSheetModel::setToggle(const QString& key, bool on) {
    environment_.settings->setValue(key, on);
}

// Kept exactly as typed: the readers decide what a text that is not a number means.
void OptionsSheetModel::setText(const QString& key, const QString& text) {
    environment_.settings->setValue(key, text);
}

QString OptionsSheetModel::cachedIPSWsFolder() const {
    return environment_.homeFolder +
           QStringLiteral(
               "/Library/Group Containers/K36BKF7T3D.group.com.apple.configurator/"
               "Library/Caches/Firmware");
}

void OptionsSheetModel::showCachedIPSWs() const {
    environment_.openFolder(cachedIPSWsFolder());
}

QString OptionsSheetModel::emptyTemporaryCacheNow() const {
    QString failure;
    environment_.emptyTemporaryCache([&failure](bool success, const QString& message) {
        if (!success)
            failure =
                message.isEmpty() ? QStringLiteral("The cache could not be removed.") : message;
    });
    return failure;
}

}  // namespace app
