#include "core/BundleInfo.h"

#include "core/PropertyList.h"

#include <QFile>

namespace core {

BundleInfo::BundleInfo(QVariantMap dictionary) : dictionary_(std::move(dictionary)) {}

BundleInfo BundleInfo::fromResource(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return BundleInfo({});
    const auto parsed = parsePropertyList(file.readAll());
    return BundleInfo(parsed ? parsed->toMap() : QVariantMap());
}

const BundleInfo& BundleInfo::shared() {
    static const BundleInfo instance = fromResource(QStringLiteral(":/Info.plist"));
    return instance;
}

QString BundleInfo::identifier() const { return value("CFBundleIdentifier").toString(); }

QString BundleInfo::bundleVersion() const { return value("CFBundleVersion").toString(); }

QString BundleInfo::shortVersion() const { return value("CFBundleShortVersionString").toString(); }

QString BundleInfo::troubleshootingGuide() const {
    return value("Support URLs").toMap().value("troubleshootingGuide").toString();
}

}  // namespace core
