#include "import/BookTagMerger.h"

namespace folivox {

namespace {

// The first non-empty value of a track field, if every track that has one agrees on it.
std::optional<QString> agreed(const std::vector<Track>& tracks, std::optional<QString> Track::*field)
{
    std::optional<QString> value;
    for (const Track& t : tracks) {
        const auto& v = t.*field;
        if (!v || v->trimmed().isEmpty())
            continue;
        if (!value)
            value = v->trimmed();
        else if (*value != v->trimmed())
            return std::nullopt;
    }
    return value;
}

std::optional<QString> first(const std::vector<Track>& tracks, std::optional<QString> Track::*field)
{
    for (const Track& t : tracks) {
        const auto& v = t.*field;
        if (v && !v->trimmed().isEmpty())
            return v->trimmed();
    }
    return std::nullopt;
}

} // namespace

BookMetadata BookTagMerger::merge(const BookMetadataPatch& given, const std::vector<Track>& tracks, const QString& fallbackTitle)
{
    BookMetadata m;
    m.title = first(tracks, &Track::album).value_or(QString());
    m.author = agreed(tracks, &Track::albumArtist);
    if (!m.author)
        m.author = agreed(tracks, &Track::artist);
    m.narrator = agreed(tracks, &Track::narrator);
    m.year = agreed(tracks, &Track::year);
    m.genre = agreed(tracks, &Track::genre);
    m.language = agreed(tracks, &Track::language);
    m.publisher = agreed(tracks, &Track::publisher);
    m.copyright = agreed(tracks, &Track::copyright);
    m.description = first(tracks, &Track::longDescription);
    if (!m.description)
        m.description = first(tracks, &Track::trackDescription);
    m.seriesName = agreed(tracks, &Track::seriesName);
    for (const Track& t : tracks) {
        if (t.seriesIndex) {
            m.seriesIndex = t.seriesIndex;
            break;
        }
    }
    m.sortTitle = agreed(tracks, &Track::sortTitleOverride);
    m.sortAuthor = agreed(tracks, &Track::sortAuthorOverride);
    m.sortAlbum = agreed(tracks, &Track::sortAlbumOverride);
    m.encodedWith = QStringLiteral("Folivox");

    m = given.applied(m);
    if (m.title.trimmed().isEmpty())
        m.title = fallbackTitle;
    return m;
}

} // namespace folivox
