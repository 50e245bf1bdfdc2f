#include "chapters/FormatVariable.h"

#include "chapters/ChapterFormatError.h"
#include "platform/L10n.h"

namespace folivox {

QString FormatVariable::caseName() const
{
    switch (kind) {
    case Kind::chapterNumber: return QStringLiteral("chapterNumber");
    case Kind::chapterCount: return QStringLiteral("chapterCount");
    case Kind::chapterName: return QStringLiteral("chapterName");
    case Kind::bookTitle: return QStringLiteral("bookTitle");
    }
    return {};
}

QString FormatVariable::label() const
{
    switch (kind) {
    case Kind::chapterNumber: return L10n::text("format.variable.chapterNumber", "Chapter Number");
    case Kind::chapterCount: return L10n::text("format.variable.chapterCount", "Chapter Count");
    case Kind::chapterName: return L10n::text("format.variable.chapterName", "Chapter Name");
    case Kind::bookTitle: return L10n::text("format.variable.bookTitle", "Book Title");
    }
    return {};
}

QJsonObject FormatVariable::toJson() const
{
    QJsonObject payload;
    if (hasConfig())
        payload.insert(QStringLiteral("config"), config.toJson());
    QJsonObject o;
    o.insert(caseName(), payload);
    return o;
}

FormatVariable FormatVariable::fromJson(const QJsonObject& json)
{
    if (json.size() != 1)
        throw ChapterFormatError(ChapterFormatError::Kind::invalidNumberOfKeys, {});
    const QString name = json.begin().key();
    FormatVariable v;
    if (name == u"chapterNumber")
        v.kind = Kind::chapterNumber;
    else if (name == u"chapterCount")
        v.kind = Kind::chapterCount;
    else if (name == u"chapterName")
        v.kind = Kind::chapterName;
    else if (name == u"bookTitle")
        v.kind = Kind::bookTitle;
    else
        throw ChapterFormatError(ChapterFormatError::Kind::unknownCase, name);
    if (!json.begin().value().isObject())
        throw ChapterFormatError(ChapterFormatError::Kind::invalidValue, name);
    if (v.hasConfig()) {
        const QJsonValue config = json.begin().value().toObject().value(QStringLiteral("config"));
        if (!config.isObject())
            throw ChapterFormatError(ChapterFormatError::Kind::invalidValue, QStringLiteral("config"));
        v.config = NumberingConfig::fromJson(config.toObject());
    }
    return v;
}

} // namespace folivox
