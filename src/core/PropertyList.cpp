#include "core/PropertyList.h"

#include <QDateTime>
#include <QVariantList>
#include <QVariantMap>

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>

namespace core {
namespace {

QVariant toVariant(plist_t node);

QVariantMap dictionaryToMap(plist_t node) {
    QVariantMap map;
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(node, &it);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, it, &key, &value);
        if (!value) {
            std::free(key);
            break;
        }
        map.insert(QString::fromUtf8(key), toVariant(value));
        std::free(key);
    }
    std::free(it);
    return map;
}

QVariantList arrayToList(plist_t node) {
    QVariantList list;
    const uint32_t count = plist_array_get_size(node);
    for (uint32_t i = 0; i < count; ++i) list.append(toVariant(plist_array_get_item(node, i)));
    return list;
}

QVariant unsignedToVariant(uint64_t value) {
    if (value > static_cast<uint64_t>(std::numeric_limits<qint64>::max()))
        return QVariant::fromValue<quint64>(value);
    return QVariant::fromValue<qint64>(static_cast<qint64>(value));
}

QVariant toVariant(plist_t node) {
    switch (plist_get_node_type(node)) {
        case PLIST_DICT:
            return dictionaryToMap(node);
        case PLIST_ARRAY:
            return arrayToList(node);
        case PLIST_BOOLEAN: {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return value != 0;
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            return unsignedToVariant(value);
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return value;
        }
        case PLIST_STRING: {
            // By pointer and length: a string with a NUL inside trips the copying getter's
            // assertion, and a garbled document must never stop the process.
            uint64_t length = 0;
            const char* text = plist_get_string_ptr(node, &length);
            return QString::fromUtf8(text, static_cast<qsizetype>(length));
        }
        case PLIST_DATA: {
            char* bytes = nullptr;
            uint64_t length = 0;
            plist_get_data_val(node, &bytes, &length);
            QByteArray result(bytes, static_cast<qsizetype>(length));
            std::free(bytes);
            return result;
        }
        case PLIST_DATE: {
            int32_t sec = 0;
            int32_t usec = 0;
            plist_get_date_val(node, &sec, &usec);
            // Property-list dates count from 2001-01-01 UTC.
            const qint64 appleEpochMs = 978307200000LL;
            return QDateTime::fromMSecsSinceEpoch(appleEpochMs + qint64(sec) * 1000 + usec / 1000,
                                                  Qt::UTC);
        }
        case PLIST_UID: {
            uint64_t value = 0;
            plist_get_uid_val(node, &value);
            return unsignedToVariant(value);
        }
        default:
            return {};
    }
}

}  // namespace

std::optional<QVariant> parsePropertyList(const QByteArray& bytes) {
    if (bytes.isEmpty())
        return std::nullopt;
    plist_t root = nullptr;
    plist_from_memory(bytes.constData(), static_cast<uint32_t>(bytes.size()), &root);
    if (!root)
        return std::nullopt;
    std::unique_ptr<void, decltype(&plist_free)> owner(root, &plist_free);
    return toVariant(root);
}

}  // namespace core
