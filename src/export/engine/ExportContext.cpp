#include "export/engine/ExportContext.h"

#include "core/json/JsonSeconds.h"

#include <QJsonArray>

namespace folivox {

QJsonObject ExportedChapter::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("title"), title);
    o.insert(QStringLiteral("start"), JsonSeconds::value(start));
    o.insert(QStringLiteral("duration"), JsonSeconds::value(duration));
    if (!file.isEmpty())
        o.insert(QStringLiteral("file"), file);
    return o;
}

QJsonObject ExportOutcome::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("outputPath"), outputPath);
    o.insert(QStringLiteral("outputFiles"), QJsonArray::fromStringList(outputFiles));
    o.insert(QStringLiteral("strategy"), enumName(strategy));
    o.insert(QStringLiteral("reasons"), QJsonArray::fromStringList(reasons));
    QJsonArray list;
    for (const ExportedChapter& c : chapters)
        list.append(c.toJson());
    o.insert(QStringLiteral("chapters"), list);
    QJsonObject times;
    for (const auto& [name, seconds] : timings)
        times.insert(name, JsonSeconds::value(seconds));
    o.insert(QStringLiteral("timings"), times);
    return o;
}

ExportResult ExportResult::success(ExportOutcome outcome)
{
    ExportResult r;
    r.outcome = std::move(outcome);
    return r;
}

ExportResult ExportResult::failure(ExportError error, std::optional<ExportFailureContext> context)
{
    ExportResult r;
    r.error = std::move(error);
    r.failureContext = std::move(context);
    return r;
}

void ExportContext::throwIfCancelled() const
{
    if (isCancelled())
        throw ExportError::cancelled();
}

std::vector<ExportContext::MetadataItem> ExportContext::makeMetadataItems(const BookMetadata& m)
{
    std::vector<MetadataItem> items;
    auto add = [&items](const char* key, const std::optional<QString>& value) {
        if (value && !value->isEmpty())
            items.push_back({QString::fromLatin1(key), *value});
    };
    if (!m.title.isEmpty())
        items.push_back({QStringLiteral("title"), m.title});
    add("author", m.author);
    add("narrator", m.narrator);
    add("series", m.seriesName);
    if (m.seriesIndex)
        items.push_back({QStringLiteral("seriesIndex"), m.seriesIndex->text()});
    add("year", m.year);
    add("genre", m.genre);
    add("language", m.language);
    add("summary", m.summary);
    add("description", m.description);
    add("comment", m.comment);
    add("publisher", m.publisher);
    add("copyright", m.copyright);
    add("encodedBy", m.encodedBy);
    add("encodedWith", m.encodedWith);
    add("sortTitle", m.sortTitle);
    add("sortAuthor", m.sortAuthor);
    add("sortAlbum", m.sortAlbum);
    add("sortAlbumArtist", m.sortAlbumArtist);
    if (m.coverImageData && !m.coverImageData->isEmpty())
        items.push_back({QStringLiteral("cover"), QStringLiteral("%1 bytes").arg(m.coverImageData->size())});
    return items;
}

} // namespace folivox
