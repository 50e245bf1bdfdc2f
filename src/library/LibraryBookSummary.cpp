#include "library/LibraryBookSummary.h"

#include "core/book/BookStateDTO.h"
#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"
#include "core/settings/SettingsFingerprint.h"

#include <QFileInfo>

#include <algorithm>

namespace folivox {

namespace {
bool blank(const std::optional<QString>& v)
{
    return !v || v->trimmed().isEmpty();
}
} // namespace

const QStringList& LibraryBookSummary::watchedTags()
{
    static const QStringList kTags{QStringLiteral("author"), QStringLiteral("narrator"), QStringLiteral("year"),
                                   QStringLiteral("genre"), QStringLiteral("language"), QStringLiteral("description")};
    return kTags;
}

LibraryBookSummary LibraryBookSummary::from(const BookStateDTO& state, bool hasThumb, bool sourcesMissing)
{
    const BookMetadata& m = state.metadata;
    LibraryBookSummary s;
    s.id = state.id;
    s.title = m.title;
    s.author = m.author;
    s.narrator = m.narrator;
    s.revision = state.revision;
    s.createdAt = state.createdAt;
    s.editedAt = state.editedAt;
    s.hasThumb = hasThumb;
    if (!state.sources.isEmpty())
        s.sourceHint = state.sources.first().toLocalFile();
    else if (!state.tracks.empty())
        s.sourceHint = QFileInfo(state.tracks.front().url.toLocalFile()).absolutePath();
    s.needsAttention = sourcesMissing;

    QStringList formats;
    double total = 0;
    for (const Track& t : state.tracks) {
        const QString ext = QFileInfo(t.url.path()).suffix().toLower();
        if (!ext.isEmpty() && !formats.contains(ext))
            formats << ext;
        total += t.duration;
    }
    std::sort(formats.begin(), formats.end());
    s.sourceFormats = formats;
    s.totalDuration = total;
    s.hasArtwork = (m.coverImageData && !m.coverImageData->isEmpty()) || state.coverRef.has_value();

    QStringList missing;
    const std::optional<QString> values[] = {m.author, m.narrator, m.year, m.genre, m.language,
                                             blank(m.description) ? m.summary : m.description};
    for (int i = 0; i < watchedTags().size(); ++i)
        if (blank(values[i]))
            missing << watchedTags()[i];
    s.missingTags = missing;

    s.settingsFingerprint = SettingsFingerprint::of(state.settings);
    if (state.lastBuild) {
        const BuildRecord& b = *state.lastBuild;
        s.builtRevision = b.revision;
        s.builtAt = b.builtAt;
        s.lastBuildFormat = enumName(b.format);
        if (!b.outputs.empty())
            s.lastBuildOutputPath = b.outputs.front().path;
        s.lastBuildSettingsFingerprint = b.settingsFingerprint;
    }
    return s;
}

bool LibraryBookSummary::sourcesMissing(const BookStateDTO& state)
{
    for (const Track& t : state.tracks)
        if (!QFileInfo::exists(t.url.toLocalFile()))
            return true;
    return false;
}

LibraryBookSummary LibraryBookSummary::unreadable(const QUuid& id, const QDateTime& seen)
{
    LibraryBookSummary s;
    s.id = id;
    s.createdAt = seen;
    s.editedAt = seen;
    s.needsAttention = true;
    return s;
}

bool LibraryBookSummary::changedSinceBuild() const
{
    if (builtRevision <= 0 || !builtAt)
        return true;
    if (revision > builtRevision)
        return true;
    return settingsFingerprint && lastBuildSettingsFingerprint && *settingsFingerprint != *lastBuildSettingsFingerprint;
}

QJsonObject LibraryBookSummary::toJson() const
{
    return JsonWriter()
        .set("id", id)
        .set("title", title)
        .set("author", author)
        .set("narrator", narrator)
        .set("revision", revision)
        .set("builtRevision", builtRevision)
        .set("builtAt", builtAt)
        .set("createdAt", createdAt)
        .set("editedAt", editedAt)
        .set("hasThumb", hasThumb)
        .set("sourceHint", sourceHint)
        .set("needsAttention", needsAttention)
        .set("sourceFormats", sourceFormats)
        .set("hasArtwork", hasArtwork)
        .set("missingTags", missingTags)
        .set("totalDuration", totalDuration)
        .set("settingsFingerprint", settingsFingerprint)
        .set("lastBuildFormat", lastBuildFormat)
        .set("lastBuildOutputPath", lastBuildOutputPath)
        .set("lastBuildSettingsFingerprint", lastBuildSettingsFingerprint)
        .object();
}

LibraryBookSummary LibraryBookSummary::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    LibraryBookSummary s;
    s.id = r.uuid("id");
    s.title = r.string("title");
    s.author = r.optionalString("author");
    s.narrator = r.optionalString("narrator");
    s.revision = r.integer("revision");
    s.builtRevision = r.integer("builtRevision");
    s.builtAt = r.optionalDate("builtAt");
    s.createdAt = r.date("createdAt");
    s.editedAt = r.date("editedAt");
    s.hasThumb = r.boolean("hasThumb");
    s.sourceHint = r.string("sourceHint");
    s.needsAttention = r.boolean("needsAttention");
    if (r.contains("sourceFormats"))
        s.sourceFormats = JsonReader::listOf<QString>(json.value(QStringLiteral("sourceFormats")), QStringLiteral("sourceFormats"),
                                                      &JsonReader::asString);
    s.hasArtwork = r.optionalBoolean("hasArtwork");
    if (r.contains("missingTags"))
        s.missingTags = JsonReader::listOf<QString>(json.value(QStringLiteral("missingTags")), QStringLiteral("missingTags"),
                                                    &JsonReader::asString);
    s.totalDuration = r.optionalNumber("totalDuration");
    s.settingsFingerprint = r.optionalString("settingsFingerprint");
    s.lastBuildFormat = r.optionalString("lastBuildFormat");
    s.lastBuildOutputPath = r.optionalString("lastBuildOutputPath");
    s.lastBuildSettingsFingerprint = r.optionalString("lastBuildSettingsFingerprint");
    return s;
}

} // namespace folivox
