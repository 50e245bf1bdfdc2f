#include "import/TrackBuilder.h"

#include "core/book/TagTextRepair.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace folivox {

namespace {

using Kind = TagTextRepair::Kind;

std::optional<QString> repaired(const std::optional<QString>& raw, Kind kind)
{
    if (!raw)
        return std::nullopt;
    QString text = TagTextRepair::repair(*raw, kind);
    if (text.isEmpty())
        return std::nullopt;
    return text;
}

} // namespace

std::optional<int> TrackBuilder::leadingNumber(const QString& text)
{
    static const QRegularExpression re(QStringLiteral("^\\s*(\\d{1,9})"));
    const auto m = re.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    bool ok = false;
    const int n = m.captured(1).toInt(&ok);
    return ok ? std::optional<int>(n) : std::nullopt;
}

QString TrackBuilder::yearFromDate(const QString& text)
{
    static const QRegularExpression re(QStringLiteral("^\\s*(\\d{4})(?:\\D|$)"));
    const auto m = re.match(text);
    return m.hasMatch() ? m.captured(1) : text.trimmed();
}

Track TrackBuilder::build(const MediaProbe& p, double duration, const std::optional<AudioSourceFormat>& format)
{
    const QFileInfo info(p.path);
    Track t;
    t.url = QUrl::fromLocalFile(info.absoluteFilePath());
    t.duration = duration;

    const auto title = repaired(p.tag({"title", "tit2"}), Kind::title);
    t.title = title ? *title : info.completeBaseName();

    if (const auto v = p.tag({"track", "tracknumber", "trck", "trkn"}))
        t.trackNumber = leadingNumber(*v);
    if (const auto v = p.tag({"disc", "discnumber", "disk", "tpos"}))
        t.discNumber = leadingNumber(*v);

    t.album = repaired(p.tag({"album", "talb"}), Kind::title);
    t.albumArtist = repaired(p.tag({"album_artist", "albumartist", "album artist", "tpe2", "aart"}), Kind::person);
    t.artist = repaired(p.tag({"artist", "tpe1", "author"}), Kind::person);
    // Audiobooks carry the reader under several names; the composer field is
    // the one most tools fall back to.
    t.narrator = repaired(p.tag({"narrator", "narratedby", "narrated_by", "\u00a9nrt", "composer", "tcom"}),
                          Kind::person);
    if (const auto v = p.tag({"date", "year", "tdrc", "tyer", "originaldate"})) {
        const QString y = yearFromDate(TagTextRepair::repair(*v, Kind::title));
        if (!y.isEmpty())
            t.year = y;
    }
    t.genre = repaired(p.tag({"genre", "tcon"}), Kind::title);
    t.language = repaired(p.tag({"language", "lang", "tlan"}), Kind::title);
    t.comment = repaired(p.tag({"comment", "comm"}), Kind::freeText);
    t.trackDescription = repaired(p.tag({"description", "desc", "subtitle", "tit3"}), Kind::freeText);
    t.longDescription = repaired(p.tag({"synopsis", "long_description", "longdescription", "ldes"}), Kind::freeText);
    t.publisher = repaired(p.tag({"publisher", "label", "organization", "tpub"}), Kind::person);
    t.copyright = repaired(p.tag({"copyright", "cprt", "tcop"}), Kind::title);
    t.encodedBy = repaired(p.tag({"encoded_by", "encodedby", "tenc"}), Kind::person);
    t.encodedWith = repaired(p.tag({"encoder", "encoding_tool", "encodedwith", "tsse"}), Kind::title);
    t.seriesName = repaired(p.tag({"series", "series_name", "seriesname", "mvnm", "movementname", "\u00a9mvn"}),
                            Kind::title);
    if (const auto v = p.tag({"series-part", "series_part", "seriesindex", "series_index", "series-index", "mvin",
                              "movement", "\u00a9mvi"}))
        t.seriesIndex = SeriesIndex::parse(TagTextRepair::repair(*v, Kind::title).section(u'/', 0, 0));
    t.sortTitleOverride = repaired(p.tag({"sort_name", "titlesort", "title-sort", "tsot", "sonm"}), Kind::title);
    t.sortAuthorOverride = repaired(p.tag({"sort_artist", "artistsort", "artist-sort", "tsop", "soar"}), Kind::person);
    t.sortAlbumOverride = repaired(p.tag({"sort_album", "albumsort", "album-sort", "tsoa", "soal"}), Kind::title);

    int index = 0;
    for (const MediaChapterMark& m : p.chapters) {
        ++index;
        ChapterMarker marker;
        marker.title = TagTextRepair::repair(m.title, Kind::chapterTitle);
        if (marker.title.isEmpty())
            marker.title = QStringLiteral("Chapter %1").arg(index);
        marker.time = m.start < 0 ? 0 : m.start;
        t.chapters.push_back(std::move(marker));
    }

    if (format) {
        Track::CachedFormat cached;
        cached.codec = format->codec;
        cached.bitrate = format->bitrate;
        cached.sampleRate = format->sampleRate;
        cached.channels = format->channels;
        cached.fileModificationDate = info.lastModified().toUTC();
        cached.fileSize = static_cast<quint64>(info.size());
        t = t.withCachedFormat(cached);
    }
    return t;
}

QList<TrackBuilder::DetectedTag> TrackBuilder::detectedTags(const Track& t)
{
    auto v = [](const std::optional<QString>& s) { return s.value_or(QString()); };
    auto n = [](const std::optional<int>& i) { return i ? QString::number(*i) : QString(); };
    return {
        {QStringLiteral("title"), QStringLiteral("\u00a9nam"), t.title},
        {QStringLiteral("artist"), QStringLiteral("\u00a9ART"), v(t.artist)},
        {QStringLiteral("albumArtist"), QStringLiteral("aART"), v(t.albumArtist)},
        {QStringLiteral("album"), QStringLiteral("\u00a9alb"), v(t.album)},
        {QStringLiteral("narrator"), QStringLiteral("\u00a9nrt"), v(t.narrator)},
        {QStringLiteral("year"), QStringLiteral("\u00a9day"), v(t.year)},
        {QStringLiteral("genre"), QStringLiteral("\u00a9gen"), v(t.genre)},
        {QStringLiteral("language"), QStringLiteral("----:LANGUAGE"), v(t.language)},
        {QStringLiteral("trackNumber"), QStringLiteral("trkn"), n(t.trackNumber)},
        {QStringLiteral("discNumber"), QStringLiteral("disk"), n(t.discNumber)},
        {QStringLiteral("seriesName"), QStringLiteral("\u00a9mvn"), v(t.seriesName)},
        {QStringLiteral("seriesIndex"), QStringLiteral("\u00a9mvi"), t.seriesIndex ? t.seriesIndex->text() : QString()},
        {QStringLiteral("comment"), QStringLiteral("\u00a9cmt"), v(t.comment)},
        {QStringLiteral("trackDescription"), QStringLiteral("desc"), v(t.trackDescription)},
        {QStringLiteral("longDescription"), QStringLiteral("ldes"), v(t.longDescription)},
        {QStringLiteral("publisher"), QStringLiteral("\u00a9pub"), v(t.publisher)},
        {QStringLiteral("copyright"), QStringLiteral("cprt"), v(t.copyright)},
        {QStringLiteral("encodedBy"), QStringLiteral("\u00a9enc"), v(t.encodedBy)},
        {QStringLiteral("encodedWith"), QStringLiteral("\u00a9too"), v(t.encodedWith)},
        {QStringLiteral("sortTitle"), QStringLiteral("sonm"), v(t.sortTitleOverride)},
        {QStringLiteral("sortAuthor"), QStringLiteral("soar"), v(t.sortAuthorOverride)},
        {QStringLiteral("sortAlbum"), QStringLiteral("soal"), v(t.sortAlbumOverride)},
    };
}

} // namespace folivox
