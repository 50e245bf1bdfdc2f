#include "queue/records/OutputOrganization.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"
#include "export/strategies/MultiFileExportStrategy.h"

#include <QRegularExpression>

namespace folivox {

namespace {

const QRegularExpression& placeholderPattern()
{
    static const QRegularExpression pattern(QStringLiteral("\\{([^{}]*)\\}"));
    return pattern;
}

} // namespace

QStringList OutputOrganization::placeholderNames()
{
    return {QStringLiteral("title"), QStringLiteral("author"), QStringLiteral("narrator"), QStringLiteral("series"),
            QStringLiteral("seriesIndex"), QStringLiteral("year"), QStringLiteral("genre")};
}

QStringList OutputOrganization::unknownPlaceholders() const
{
    QStringList unknown;
    const QStringList known = placeholderNames();
    for (auto it = placeholderPattern().globalMatch(folderTemplate); it.hasNext();) {
        const QString name = it.next().captured(1);
        if (!known.contains(name) && !unknown.contains(name))
            unknown << name;
    }
    return unknown;
}

QString OutputOrganization::folderFor(const OrganizationContext& context) const
{
    QStringList folders;
    for (const QString& segment : folderTemplate.split(u'/', Qt::SkipEmptyParts)) {
        bool anyValue = false;
        bool anyPlaceholder = false;
        QString filled;
        qsizetype at = 0;
        for (auto it = placeholderPattern().globalMatch(segment); it.hasNext();) {
            const QRegularExpressionMatch m = it.next();
            filled += segment.mid(at, m.capturedStart() - at);
            const QString value = context.value(m.captured(1));
            anyPlaceholder = true;
            anyValue = anyValue || !value.isEmpty();
            filled += value;
            at = m.capturedEnd();
        }
        filled += segment.mid(at);
        if (anyPlaceholder && !anyValue)
            continue;
        if (filled.trimmed().isEmpty())
            continue;
        // The same rules as per-chapter file names: no separators, no
        // leading dot (so never "." or ".."), at most 120 characters.
        folders << MultiFileExportStrategy::sanitizedTitle(filled);
    }
    return folders.join(u'/');
}

QJsonObject OutputOrganization::toJson() const
{
    return JsonWriter().set("folderTemplate", folderTemplate).set("replacesExisting", replacesExisting).object();
}

OutputOrganization OutputOrganization::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    return OutputOrganization{r.string("folderTemplate"), r.boolean("replacesExisting")};
}

} // namespace folivox
