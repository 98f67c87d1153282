#include "JsonScan.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <vector>

namespace sim {
namespace {

// One open object or array and where the scan is in it.
struct Frame {
    bool isObject = false;
    bool expectingKey = true;
    qsizetype index = 0;
    QString key;
    std::vector<QString> keys;
};

QString decodeKey(const QByteArray& raw) {
    if (!raw.contains('\\'))
        return QString::fromUtf8(raw);
    return QJsonDocument::fromJson("[\"" + raw + "\"]").array().at(0).toString();
}

QString pathOf(const std::vector<Frame>& frames) {
    QString path;
    for (const Frame& frame : frames) {
        if (frame.isObject)
            path = path.isEmpty() ? frame.key : path + u'.' + frame.key;
        else
            path += QStringLiteral("[%1]").arg(frame.index);
    }
    return path;
}

// The end of the string whose opening quote is at `start`: the index of its closing quote.
qsizetype stringEnd(const QByteArray& json, qsizetype start) {
    qsizetype i = start + 1;
    while (i < json.size() && json[i] != '"') i += json[i] == '\\' ? 2 : 1;
    return i;
}

}  // namespace

JsonShape measureJson(const QByteArray& json) {
    JsonShape shape;
    for (qsizetype i = 0; i < json.size(); ++i) {
        switch (json[i]) {
            case '{':
            case '[':
                ++shape.containers;
                break;
            case ',':
                ++shape.commas;
                break;
            case '"':
                i = stringEnd(json, i);
                break;
            default:
                break;
        }
    }
    return shape;
}

void findDuplicateKeys(const QByteArray& json, const std::function<void(const QString&)>& found,
                       qsizetype keysPerObject) {
    std::vector<Frame> frames;
    for (qsizetype i = 0; i < json.size(); ++i) {
        switch (json[i]) {
            case '{':
            case '[':
                frames.emplace_back().isObject = json[i] == '{';
                break;
            case '}':
            case ']':
                if (!frames.empty())
                    frames.pop_back();
                break;
            case ',':
                if (!frames.empty()) {
                    frames.back().expectingKey = true;
                    ++frames.back().index;
                }
                break;
            case '"': {
                const qsizetype end = stringEnd(json, i);
                if (!frames.empty() && frames.back().isObject && frames.back().expectingKey) {
                    Frame& object = frames.back();
                    object.expectingKey = false;
                    object.key = decodeKey(json.mid(i + 1, end - i - 1));
                    if (std::find(object.keys.begin(), object.keys.end(), object.key) !=
                        object.keys.end())
                        found(pathOf(frames));
                    else if (qsizetype(object.keys.size()) < keysPerObject)
                        object.keys.push_back(object.key);
                }
                i = end;
                break;
            }
            default:
                break;
        }
    }
}

}  // namespace sim
