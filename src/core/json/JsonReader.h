#pragma once

#include "core/json/DecodingError.h"
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

#include <optional>
#include <vector>

namespace folivox {

// Reads the fields of one JSON object for a record's fromJson. Every accessor
// throws DecodingError with the key's path on a fault:
//   - required accessors: keyNotFound when the key is absent, valueNotFound
//     when it is null;
//   - optional accessors: an absent key or a null gives no value;
//   - both: typeMismatch for the wrong JSON type, dataCorrupted for a value of
//     the right type in the wrong form.
// Unknown keys are never looked at, so they are ignored.
//
// Value forms shared by every record: UUIDs are strings (any case, braces
// optional), URLs are URL strings, bytes are base64 strings, dates are
// ISO 8601 strings, enumerations are their case names.
class JsonReader {
public:
    explicit JsonReader(QJsonObject object) : object_(std::move(object)) {}

    // Whole documents. Malformed text or the wrong top-level type is
    // dataCorrupted at the top level.
    static QJsonObject parseObject(const QByteArray& text);
    static QJsonArray parseArray(const QByteArray& text);

    const QJsonObject& object() const { return object_; }

    // Present and not null.
    bool contains(const char* key) const;

    QString string(const char* key) const { return asString(required(key), path(key)); }
    std::optional<QString> optionalString(const char* key) const { return optionalOf(key, &JsonReader::asString); }

    double number(const char* key) const { return asDouble(required(key), path(key)); }
    std::optional<double> optionalNumber(const char* key) const { return optionalOf(key, &JsonReader::asDouble); }

    int integer(const char* key) const { return asInt(required(key), path(key)); }
    std::optional<int> optionalInteger(const char* key) const { return optionalOf(key, &JsonReader::asInt); }
    qint64 integer64(const char* key) const { return asInt64(required(key), path(key)); }
    std::optional<qint64> optionalInteger64(const char* key) const { return optionalOf(key, &JsonReader::asInt64); }
    std::optional<quint64> optionalUnsigned64(const char* key) const { return optionalOf(key, &JsonReader::asUInt64); }

    bool boolean(const char* key) const { return asBool(required(key), path(key)); }
    std::optional<bool> optionalBoolean(const char* key) const { return optionalOf(key, &JsonReader::asBool); }

    QUuid uuid(const char* key) const { return asUuid(required(key), path(key)); }
    std::optional<QUuid> optionalUuid(const char* key) const { return optionalOf(key, &JsonReader::asUuid); }

    QUrl url(const char* key) const { return asUrl(required(key), path(key)); }
    std::optional<QUrl> optionalUrl(const char* key) const { return optionalOf(key, &JsonReader::asUrl); }

    QByteArray bytes(const char* key) const { return asBytes(required(key), path(key)); }
    std::optional<QByteArray> optionalBytes(const char* key) const { return optionalOf(key, &JsonReader::asBytes); }

    QDateTime date(const char* key) const { return asDate(required(key), path(key)); }
    std::optional<QDateTime> optionalDate(const char* key) const { return optionalOf(key, &JsonReader::asDate); }

    QList<QUrl> urlList(const char* key) const { return listOf<QUrl>(required(key), path(key), &JsonReader::asUrl); }

    template<NamedEnum E>
    E enumeration(const char* key) const
    {
        return asEnum<E>(required(key), path(key));
    }
    template<NamedEnum E>
    std::optional<E> optionalEnumeration(const char* key) const
    {
        if (!contains(key))
            return std::nullopt;
        return asEnum<E>(object_.value(QLatin1StringView(key)), path(key));
    }

    // A value decoded by T::fromJson, which takes a QJsonObject (a record)
    // or a QJsonValue (a single-value type such as SeriesIndex). Errors from
    // inside are re-thrown with this key in front of their path.
    template<class T>
    T value(const char* key) const
    {
        return decode<T>(required(key), path(key));
    }
    template<class T>
    std::optional<T> optionalValue(const char* key) const
    {
        if (!contains(key))
            return std::nullopt;
        return decode<T>(object_.value(QLatin1StringView(key)), path(key));
    }
    template<class T>
    std::vector<T> list(const char* key) const
    {
        return decodeList<T>(required(key), path(key));
    }
    template<class T>
    std::optional<std::vector<T>> optionalList(const char* key) const
    {
        if (!contains(key))
            return std::nullopt;
        return decodeList<T>(object_.value(QLatin1StringView(key)), path(key));
    }

    // Conversions of single values; `where` names the value in errors.
    static QString asString(const QJsonValue& v, const QString& where);
    static double asDouble(const QJsonValue& v, const QString& where);
    static int asInt(const QJsonValue& v, const QString& where);
    static qint64 asInt64(const QJsonValue& v, const QString& where);
    static quint64 asUInt64(const QJsonValue& v, const QString& where);
    static bool asBool(const QJsonValue& v, const QString& where);
    static QUuid asUuid(const QJsonValue& v, const QString& where);
    static QUrl asUrl(const QJsonValue& v, const QString& where);
    static QByteArray asBytes(const QJsonValue& v, const QString& where);
    static QDateTime asDate(const QJsonValue& v, const QString& where);
    static QJsonObject asObject(const QJsonValue& v, const QString& where);
    static QJsonArray asArray(const QJsonValue& v, const QString& where);

    template<NamedEnum E>
    static E asEnum(const QJsonValue& v, const QString& where)
    {
        const QString text = asString(v, where);
        if (auto e = enumFromName<E>(text))
            return *e;
        throw DecodingError::dataCorrupted(
            where, QStringLiteral("Cannot initialize %1 from invalid value \"%2\"")
                       .arg(QLatin1StringView(EnumNames<E>::typeName), text));
    }

    template<class T>
    static T decode(const QJsonValue& v, const QString& where)
    {
        if constexpr (requires(const QJsonObject& o) { T::fromJson(o); }
                      && !requires(const QJsonValue& jv) { T::fromJson(jv); }) {
            const QJsonObject object = asObject(v, where);
            try {
                return T::fromJson(object);
            } catch (const DecodingError& e) {
                throw e.prefixed(where);
            }
        } else {
            try {
                return T::fromJson(v);
            } catch (const DecodingError& e) {
                throw e.prefixed(where);
            }
        }
    }

    template<class T>
    static std::vector<T> decodeList(const QJsonValue& v, const QString& where)
    {
        const QJsonArray array = asArray(v, where);
        std::vector<T> out;
        out.reserve(static_cast<std::size_t>(array.size()));
        for (qsizetype i = 0; i < array.size(); ++i)
            out.push_back(decode<T>(array.at(i), indexPath(where, i)));
        return out;
    }

    template<class T, class Convert>
    static QList<T> listOf(const QJsonValue& v, const QString& where, Convert convert)
    {
        const QJsonArray array = asArray(v, where);
        QList<T> out;
        out.reserve(array.size());
        for (qsizetype i = 0; i < array.size(); ++i)
            out.append(convert(array.at(i), indexPath(where, i)));
        return out;
    }

    static QString indexPath(const QString& where, qsizetype index);

private:
    QJsonValue required(const char* key) const;
    static QString path(const char* key) { return QString::fromLatin1(key); }

    template<class Convert>
    auto optionalOf(const char* key, Convert convert) const
        -> std::optional<decltype(convert(QJsonValue(), QString()))>
    {
        if (!contains(key))
            return std::nullopt;
        return convert(object_.value(QLatin1StringView(key)), path(key));
    }

    QJsonObject object_;
};

} // namespace folivox
