#include "core/json/JsonReader.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QVariant>

#include <cmath>
#include <limits>

namespace folivox {

namespace {

// Qt keeps a JSON number that has an integral value as a 64-bit integer and
// every other number as a double.
bool isStoredInteger(const QJsonValue& v)
{
    return v.isDouble() && v.toVariant().typeId() == QMetaType::LongLong;
}

[[noreturn]] void mismatch(const QJsonValue& v, const QString& where, const char* expected)
{
    if (v.isNull() || v.isUndefined())
        throw DecodingError::valueNotFound(where, QString::fromLatin1(expected));
    throw DecodingError::typeMismatch(where, QString::fromLatin1(expected));
}

} // namespace

QJsonObject JsonReader::parseObject(const QByteArray& text)
{
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        throw DecodingError::dataCorrupted({}, QStringLiteral("The given data was not valid JSON: %1 at offset %2")
                                                   .arg(error.errorString())
                                                   .arg(error.offset));
    if (!doc.isObject())
        throw DecodingError::typeMismatch({}, QStringLiteral("an object"));
    return doc.object();
}

QJsonArray JsonReader::parseArray(const QByteArray& text)
{
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        throw DecodingError::dataCorrupted({}, QStringLiteral("The given data was not valid JSON: %1 at offset %2")
                                                   .arg(error.errorString())
                                                   .arg(error.offset));
    if (!doc.isArray())
        throw DecodingError::typeMismatch({}, QStringLiteral("an array"));
    return doc.array();
}

bool JsonReader::contains(const char* key) const
{
    const QJsonValue v = object_.value(QLatin1StringView(key));
    return !v.isUndefined() && !v.isNull();
}

QJsonValue JsonReader::required(const char* key) const
{
    const auto it = object_.constFind(QLatin1StringView(key));
    if (it == object_.constEnd())
        throw DecodingError::keyNotFound(path(key));
    return it.value();
}

QString JsonReader::indexPath(const QString& where, qsizetype index)
{
    return QStringLiteral("%1[%2]").arg(where).arg(index);
}

QString JsonReader::asString(const QJsonValue& v, const QString& where)
{
    if (!v.isString())
        mismatch(v, where, "a string");
    return v.toString();
}

double JsonReader::asDouble(const QJsonValue& v, const QString& where)
{
    if (!v.isDouble())
        mismatch(v, where, "a number");
    return v.toDouble();
}

qint64 JsonReader::asInt64(const QJsonValue& v, const QString& where)
{
    if (!v.isDouble())
        mismatch(v, where, "an integer");
    if (isStoredInteger(v))
        return v.toInteger();
    // A double with an integral value (e.g. written as 3.0 by another writer)
    // is accepted when it fits exactly.
    const double d = v.toDouble();
    if (std::isfinite(d) && std::floor(d) == d && d >= -9.2e18 && d <= 9.2e18)
        return static_cast<qint64>(d);
    throw DecodingError::dataCorrupted(where, QStringLiteral("Number %1 does not fit in an integer").arg(d));
}

int JsonReader::asInt(const QJsonValue& v, const QString& where)
{
    const qint64 n = asInt64(v, where);
    if (n < std::numeric_limits<int>::min() || n > std::numeric_limits<int>::max())
        throw DecodingError::dataCorrupted(where, QStringLiteral("Number %1 does not fit in a 32-bit integer").arg(n));
    return static_cast<int>(n);
}

quint64 JsonReader::asUInt64(const QJsonValue& v, const QString& where)
{
    if (!v.isDouble())
        mismatch(v, where, "an unsigned integer");
    if (isStoredInteger(v)) {
        const qint64 n = v.toInteger();
        if (n < 0)
            throw DecodingError::dataCorrupted(where, QStringLiteral("Number %1 is negative").arg(n));
        return static_cast<quint64>(n);
    }
    // Integers beyond the signed 64-bit range arrive as doubles.
    const double d = v.toDouble();
    if (std::isfinite(d) && std::floor(d) == d && d >= 0 && d < 18446744073709551616.0)
        return static_cast<quint64>(d);
    throw DecodingError::dataCorrupted(where, QStringLiteral("Number %1 is not an unsigned integer").arg(d));
}

bool JsonReader::asBool(const QJsonValue& v, const QString& where)
{
    if (!v.isBool())
        mismatch(v, where, "a boolean");
    return v.toBool();
}

QUuid JsonReader::asUuid(const QJsonValue& v, const QString& where)
{
    const QString text = asString(v, where);
    const QUuid uuid = QUuid::fromString(text);
    static const QString nilText = QStringLiteral("00000000-0000-0000-0000-000000000000");
    if (uuid.isNull() && text.trimmed() != nilText && text.trimmed() != u'{' + nilText + u'}')
        throw DecodingError::dataCorrupted(where, QStringLiteral("Attempted to decode UUID from invalid UUID string."));
    return uuid;
}

QUrl JsonReader::asUrl(const QJsonValue& v, const QString& where)
{
    const QString text = asString(v, where);
    const QUrl url(text, QUrl::TolerantMode);
    if (text.isEmpty() || !url.isValid())
        throw DecodingError::dataCorrupted(where, QStringLiteral("Invalid URL string."));
    return url;
}

QByteArray JsonReader::asBytes(const QJsonValue& v, const QString& where)
{
    const QString text = asString(v, where);
    auto result = QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!result)
        throw DecodingError::dataCorrupted(where, QStringLiteral("Encountered Data is not valid Base64."));
    return *result;
}

QDateTime JsonReader::asDate(const QJsonValue& v, const QString& where)
{
    const QString text = asString(v, where);
    QDateTime date = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (!date.isValid())
        throw DecodingError::dataCorrupted(where, QStringLiteral("Expected date string to be ISO8601-formatted."));
    // A time without an offset is taken as UTC, the form every record writes.
    if (date.timeSpec() == Qt::LocalTime)
        date.setTimeSpec(Qt::UTC);
    return date.toUTC();
}

QJsonObject JsonReader::asObject(const QJsonValue& v, const QString& where)
{
    if (!v.isObject())
        mismatch(v, where, "an object");
    return v.toObject();
}

QJsonArray JsonReader::asArray(const QJsonValue& v, const QString& where)
{
    if (!v.isArray())
        mismatch(v, where, "an array");
    return v.toArray();
}

} // namespace folivox
