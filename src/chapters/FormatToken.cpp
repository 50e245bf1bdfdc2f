#include "chapters/FormatToken.h"

#include "chapters/ChapterFormatError.h"

namespace folivox {

QJsonObject FormatToken::toJson() const
{
    QJsonObject payload;
    if (kind == Kind::text)
        payload.insert(QStringLiteral("_0"), text);
    else
        payload.insert(QStringLiteral("_0"), variable.toJson());
    QJsonObject o;
    o.insert(kind == Kind::text ? QStringLiteral("text") : QStringLiteral("variable"), payload);
    return o;
}

FormatToken FormatToken::fromJson(const QJsonObject& json)
{
    if (json.size() != 1)
        throw ChapterFormatError(ChapterFormatError::Kind::invalidNumberOfKeys, {});
    const QString name = json.begin().key();
    const QJsonValue payload = json.begin().value().toObject().value(QStringLiteral("_0"));
    if (name == u"text") {
        if (!payload.isString())
            throw ChapterFormatError(ChapterFormatError::Kind::invalidValue, QStringLiteral("_0"));
        return fixed(payload.toString());
    }
    if (name == u"variable") {
        if (!payload.isObject())
            throw ChapterFormatError(ChapterFormatError::Kind::invalidValue, QStringLiteral("_0"));
        return of(FormatVariable::fromJson(payload.toObject()));
    }
    throw ChapterFormatError(ChapterFormatError::Kind::unknownCase, name);
}

} // namespace folivox
