#pragma once

#include "core/json/EnumNames.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <cmath>
#include <limits>
#include <optional>
#include <type_traits>
#include <vector>

namespace folivox {

// Builds the JSON object of a record, in the forms JsonReader reads back:
// UUIDs upper case without braces, URLs as their encoded string, bytes as
// base64, dates as ISO 8601 UTC with milliseconds, enumerations by case name,
// records through their toJson(). An empty optional is left out; null is
// never written. A number that is not finite (which JSON cannot hold) is
// written as 0.
class JsonWriter {
public:
    template<class T>
    JsonWriter& set(const char* key, const T& value)
    {
        object_.insert(QLatin1StringView(key), toValue(value));
        return *this;
    }

    template<class T>
    JsonWriter& set(const char* key, const std::optional<T>& value)
    {
        if (value)
            object_.insert(QLatin1StringView(key), toValue(*value));
        return *this;
    }

    QJsonObject object() const { return object_; }

    static QString uuidText(const QUuid& uuid) { return uuid.toString(QUuid::WithoutBraces).toUpper(); }
    static QString urlText(const QUrl& url) { return url.toString(QUrl::FullyEncoded); }
    static QString dateText(const QDateTime& date) { return date.toUTC().toString(Qt::ISODateWithMs); }

    template<class T>
    static QJsonValue toValue(const T& value)
    {
        if constexpr (std::is_same_v<T, bool>) {
            return QJsonValue(value);
        } else if constexpr (std::is_enum_v<T>) {
            return enumName(value);
        } else if constexpr (std::is_integral_v<T>) {
            if constexpr (std::is_unsigned_v<T> && sizeof(T) >= sizeof(qint64)) {
                // Beyond the signed range JSON readers keep it only as a double.
                if (value > static_cast<T>(std::numeric_limits<qint64>::max()))
                    return QJsonValue(static_cast<double>(value));
            }
            return QJsonValue(static_cast<qint64>(value));
        } else if constexpr (std::is_floating_point_v<T>) {
            return QJsonValue(std::isfinite(value) ? static_cast<double>(value) : 0.0);
        } else if constexpr (std::is_same_v<T, QString>) {
            return QJsonValue(value);
        } else if constexpr (std::is_same_v<T, QUuid>) {
            return uuidText(value);
        } else if constexpr (std::is_same_v<T, QUrl>) {
            return urlText(value);
        } else if constexpr (std::is_same_v<T, QByteArray>) {
            return QString::fromLatin1(value.toBase64());
        } else if constexpr (std::is_same_v<T, QDateTime>) {
            return dateText(value);
        } else if constexpr (requires { value.toJson(); }) {
            return QJsonValue(value.toJson());
        } else if constexpr (requires { value.begin(); value.end(); typename T::value_type; }) {
            QJsonArray array;
            for (const auto& item : value)
                array.append(toValue(static_cast<typename T::value_type>(item)));
            return array;
        } else {
            static_assert(sizeof(T) == 0, "JsonWriter: no JSON form for this type");
        }
    }

private:
    QJsonObject object_;
};

} // namespace folivox
