#include "support/TestSettings.h"

#include "core/BundledDefaults.h"

namespace testing_support {

TestSettings::TestSettings(bool registerShippedDefaults)
    : settings_(std::make_unique<core::Settings>(
          std::make_unique<QSettings>(dir_.filePath("Tarvel.conf"), QSettings::IniFormat))) {
    if (registerShippedDefaults) core::registerBundledDefaults(*settings_);
}

QString TestSettings::path() const { return dir_.filePath("Tarvel.conf"); }

}  // namespace testing_support
