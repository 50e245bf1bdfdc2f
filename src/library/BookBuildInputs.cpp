#include "library/BookBuildInputs.h"

#include "core/settings/SettingsFingerprint.h"

#include <QFileInfo>

namespace folivox {

BookBuildInputs BookBuildInputs::from(const BookStateDTO& state)
{
    BookBuildInputs in;
    in.bookID = state.id;
    in.revision = state.revision;
    in.tracks = state.tracks;
    in.bookmarks = state.bookmarks;
    in.metadata = state.metadata;
    in.settings = state.settings;
    return in;
}

BuildRecord BookBuildInputs::record(const QStringList& outputPaths, const QDateTime& builtAt) const
{
    BuildRecord r;
    r.builtAt = builtAt.toUTC();
    r.revision = revision;
    r.settingsFingerprint = SettingsFingerprint::of(settings);
    r.format = settings.outputFormat;
    for (const QString& path : outputPaths) {
        const QFileInfo info(path);
        BuildRecord::Output o;
        o.path = info.absoluteFilePath();
        o.size = info.exists() ? static_cast<quint64>(info.size()) : 0;
        o.modifiedAt = info.exists() ? info.lastModified().toUTC() : r.builtAt;
        r.outputs.push_back(o);
    }
    double start = 0;
    for (const Bookmark& b : bookmarks) {
        r.chapters.push_back(ChapterSnapshot{b.title, start, b.duration,
                                             b.tracks.empty() ? std::nullopt : std::optional(b.tracks.front().url),
                                             ChapterSnapshot::fingerprint(b.artworkData)});
        start += b.duration;
    }
    return r;
}

} // namespace folivox
