#pragma once

#include <QString>
#include <QVariantMap>

namespace core {

// The application's information dictionary, compiled in from resources/Info.plist.
class BundleInfo {
public:
    explicit BundleInfo(QVariantMap dictionary);
    static const BundleInfo& shared();
    static BundleInfo fromResource(const QString& path);

    QVariant value(const QString& key) const { return dictionary_.value(key); }
    QString identifier() const;
    QString bundleVersion() const;
    QString shortVersion() const;
    QString troubleshootingGuide() const;

private:
    QVariantMap dictionary_;
};

}  // namespace core
