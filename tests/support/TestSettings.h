#pragma once

#include "core/Settings.h"

#include <QTemporaryDir>

#include <memory>

namespace testing_support {

// A settings store of its own in a temporary folder, with the shipped defaults registered, so
// no test reads or changes the developer's preferences.
class TestSettings {
public:
    explicit TestSettings(bool registerShippedDefaults = true);
    core::Settings& settings() { return *settings_; }
    QString path() const;

private:
    QTemporaryDir dir_;
    std::unique_ptr<core::Settings> settings_;
};

}  // namespace testing_support
