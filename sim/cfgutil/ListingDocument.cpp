#include "ListingDocument.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace simcfgutil {
namespace {

QString escaped(const QString& text) {
    return text.toHtmlEscaped();
}

QString plistValue(const QJsonValue& value, int depth);

QString plistDictionary(const QJsonObject& object, int depth) {
    const QString indent(depth, '\t');
    QString text = "<dict>\n";
    for (auto it = object.begin(); it != object.end(); ++it) {
        text += indent + "\t<key>" + escaped(it.key()) + "</key>\n";
        text += indent + "\t" + plistValue(it.value(), depth + 1);
    }
    return text + indent + "</dict>\n";
}

QString plistValue(const QJsonValue& value, int depth) {
    const QString indent(depth, '\t');
    if (value.isObject())
        return plistDictionary(value.toObject(), depth);
    if (value.isArray()) {
        QString text = "<array>\n";
        for (const QJsonValue& element : value.toArray())
            text += indent + "\t" + plistValue(element, depth + 1);
        return text + indent + "</array>\n";
    }
    if (value.isBool())
        return value.toBool() ? "<true/>\n" : "<false/>\n";
    if (value.isDouble())
        return "<integer>" + QString::number(value.toInteger()) + "</integer>\n";
    return "<string>" + escaped(value.toString()) + "</string>\n";
}

QByteArray render(const QJsonObject& document, bool plist) {
    // JSON documents go on one line, as every line of the tool's JSON output is one object.
    if (!plist)
        return QJsonDocument(document).toJson(QJsonDocument::Compact) + "\n";
    return QStringLiteral(
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
               "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
               "<plist version=\"1.0\">\n%1</plist>\n")
        .arg(plistDictionary(document, 0))
        .toUtf8();
}

QJsonObject listingObject(const QJsonArray& macs) {
    QJsonArray keys;
    QJsonObject output;
    for (const QJsonValue& value : macs) {
        const QJsonObject mac = value.toObject();
        const QString ecid = mac.value("ecid").toString();
        keys.append(ecid);
        output.insert(ecid, QJsonObject{{"ECID", ecid},
                                        {"UDID", mac.value("udid")},
                                        {"deviceType", mac.value("deviceType")},
                                        {"locationID", mac.value("locationID")},
                                        {"name", mac.value("name")}});
    }
    return {{"Command", "list"}, {"Type", "CommandOutput"}, {"Devices", keys}, {"Output", output}};
}

}  // namespace

QByteArray listingDocument(const QJsonArray& macs, bool plist) {
    return render(listingObject(macs), plist);
}

QByteArray garbledListingDocument(const QJsonArray& macs, bool plist) {
    const QByteArray whole = listingDocument(macs, plist);
    return whole.left(whole.size() * 2 / 3);
}

QByteArray errorDocument(const QString& command, const QString& message, int code, bool plist) {
    return render({{"Command", command},
                   {"Type", "Error"},
                   {"Message", message},
                   {"Code", code},
                   {"Domain", "com.kestrune.tarvel-sim"},
                   {"FailureReason", message},
                   {"Detail", ""},
                   {"AffectedDevices", QJsonArray()},
                   {"UnaffectedDevices", QJsonArray()}},
                  plist);
}

}  // namespace simcfgutil
