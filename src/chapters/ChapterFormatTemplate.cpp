#include "chapters/ChapterFormatTemplate.h"

#include "chapters/ChapterFormatError.h"

#include <QJsonArray>

namespace folivox {

QJsonObject ChapterFormatTemplate::toJson() const
{
    QJsonArray list;
    for (const auto& t : tokens)
        list.append(t.toJson());
    QJsonObject o;
    o.insert(QStringLiteral("tokens"), list);
    return o;
}

ChapterFormatTemplate ChapterFormatTemplate::fromJson(const QJsonObject& json)
{
    const QJsonValue list = json.value(QStringLiteral("tokens"));
    if (!list.isArray())
        throw ChapterFormatError(ChapterFormatError::Kind::invalidValue, QStringLiteral("tokens"));
    ChapterFormatTemplate t;
    for (const auto& v : list.toArray()) {
        if (!v.isObject())
            throw ChapterFormatError(ChapterFormatError::Kind::invalidValue, QStringLiteral("tokens"));
        t.tokens.append(FormatToken::fromJson(v.toObject()));
    }
    return t;
}

} // namespace folivox
