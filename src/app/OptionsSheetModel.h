#pragma once

#include <QString>
#include <QVariant>

#include <functional>

namespace core {
class Settings;
}

namespace app {

// The settings the options sheet edits. It shows the user's value, or the sheet's own default
// for a key never set, and writes a key the moment its control changes.
class OptionsSheetModel {
  public:
    struct Environment {
        core::Settings* settings = nullptr;
        // Removes Apple Configurator's temporary files and calls back once with the outcome.
        std::function<void(std::function<void(bool, const QString&)>)> emptyTemporaryCache;
        std::function<void(const QString& folder)> openFolder;
        QString homeFolder;
    };

    explicit OptionsSheetModel(Environment environment);

    bool toggle(const QString& key) const;
    QString text(const QString& key) const;
    void setToggle(const QString& key, bool on);
    void setText(const QString& key, const QString& text);

    // Where Apple Configurator keeps the firmware files it downloaded.
    QString cachedIPSWsFolder() const;
    void showCachedIPSWs() const;
    // Answers the failure's text, empty when everything went.
    QString emptyTemporaryCacheNow() const;

  private:
    QVariant value(const QString& key) const;

    Environment environment_;
};

}  // namespace app
