#include "export/metadata/MetadataItemBuilder.h"

#include <array>

namespace folivox {

namespace {
struct AtomOption {
    const char16_t* atom;
    const char* option;
    const char* ffmpeg;
};

// The atoms mp4tags carries, with their option and FFmpeg's metadata key.
constexpr std::array kTable{
    AtomOption{u"\u00A9nam", "-song", "title"},
    AtomOption{u"\u00A9ART", "-artist", "artist"},
    AtomOption{u"\u00A9alb", "-album", "album"},
    AtomOption{u"aART", "-albumartist", "album_artist"},
    AtomOption{u"\u00A9day", "-year", "date"},
    AtomOption{u"\u00A9gen", "-genre", "genre"},
    AtomOption{u"\u00A9cmt", "-comment", "comment"},
    AtomOption{u"\u00A9wrt", "-writer", "composer"},
    AtomOption{u"\u00A9lyr", "-lyrics", "lyrics"},
    AtomOption{u"\u00A9grp", "-grouping", "grouping"},
    AtomOption{u"\u00A9enc", "-encodedby", "encoded_by"},
    AtomOption{u"\u00A9too", "-tool", ""},
    AtomOption{u"desc", "-description", "description"},
    AtomOption{u"ldes", "-longdesc", "synopsis"},
    AtomOption{u"cprt", "-copyright", "copyright"},
    AtomOption{u"stik", "-type", "media_type"},
    AtomOption{u"trkn", "-track", "track"},
    AtomOption{u"disk", "-disk", "disc"},
    AtomOption{u"sonm", "-sortname", "sort_name"},
    AtomOption{u"soar", "-sortartist", "sort_artist"},
    AtomOption{u"soal", "-sortalbum", "sort_album"},
    AtomOption{u"soaa", "-sortalbumartist", "sort_album_artist"},
};

const AtomOption* lookup(const QString& atom)
{
    for (const AtomOption& a : kTable)
        if (atom == QStringView(a.atom))
            return &a;
    return nullptr;
}

std::optional<QString> nonBlank(const std::optional<QString>& value)
{
    if (!value)
        return std::nullopt;
    const QString v = value->trimmed();
    return v.isEmpty() ? std::nullopt : std::optional<QString>(v);
}
} // namespace

QString MetadataItemBuilder::albumTitle(const BookMetadata& m)
{
    const QString title = m.title.trimmed();
    const auto series = nonBlank(m.seriesName);
    if (!m.albumUsesSeriesPrefix || !series)
        return title;
    QString prefix = *series;
    if (m.seriesIndex)
        prefix += u' ' + m.seriesIndex->text();
    return title.isEmpty() ? prefix : prefix + QStringLiteral(": ") + title;
}

std::optional<QString> MetadataItemBuilder::sortAlbum(const BookMetadata& m)
{
    if (const auto own = nonBlank(m.sortAlbum))
        return own;
    if (albumTitle(m) == m.title)
        return nonBlank(m.sortTitle);
    return std::nullopt;
}

std::optional<QString> MetadataItemBuilder::sortAlbumArtist(const BookMetadata& m)
{
    if (const auto own = nonBlank(m.sortAlbumArtist))
        return own;
    return nonBlank(m.sortAuthor);
}

QList<MetadataItem> MetadataItemBuilder::items(const BookMetadata& m, const FilePlacement& placement,
                                               MP4TagsService::MediaType mediaType)
{
    QList<MetadataItem> out;
    const auto text = [&](const char16_t* atom, const std::optional<QString>& value) {
        if (const auto v = nonBlank(value))
            out.append(MetadataItem::text(QString::fromUtf16(atom), *v));
    };
    const auto freeform = [&](const char* name, const std::optional<QString>& value) {
        if (const auto v = nonBlank(value))
            out.append(MetadataItem::freeform(QString::fromLatin1(name), *v));
    };

    text(u"\u00A9nam", placement.title ? placement.title : std::optional<QString>(m.title));
    const QString album = albumTitle(m);
    text(u"\u00A9alb", album);
    text(u"\u00A9ART", m.author);
    text(u"aART", m.author);
    text(u"\u00A9wrt", m.narrator);
    text(u"\u00A9grp", m.seriesName);
    text(u"\u00A9day", m.year);
    text(u"\u00A9gen", m.genre);
    text(u"\u00A9cmt", m.comment);
    text(u"desc", m.description);
    text(u"ldes", m.summary);
    text(u"cprt", m.copyright);
    text(u"\u00A9enc", m.encodedBy);
    text(u"\u00A9too", m.encodedWith);
    text(u"sonm", m.sortTitle);
    text(u"soar", m.sortAuthor);
    text(u"soal", sortAlbum(m));
    text(u"soaa", sortAlbumArtist(m));
    out.append(MetadataItem::text(QStringLiteral("stik"), MP4TagsService::mediaTypeName(mediaType)));
    if (placement.trackNumber > 0) {
        MetadataItem track = MetadataItem::text(QStringLiteral("trkn"), QString::number(placement.trackNumber));
        if (placement.trackCount > 0)
            track.total = placement.trackCount;
        out.append(track);
    }
    if (placement.discNumber > 0) {
        MetadataItem disc = MetadataItem::text(QStringLiteral("disk"), QString::number(placement.discNumber));
        if (placement.discCount > 0)
            disc.total = placement.discCount;
        out.append(disc);
    }
    freeform("NARRATOR", m.narrator);
    freeform("SERIES", m.seriesName);
    if (m.seriesName && m.seriesIndex)
        freeform("SERIES-PART", m.seriesIndex->text());
    freeform("PUBLISHER", m.publisher);
    return out;
}

QStringList MetadataItemBuilder::optionsFor(const QString& atom)
{
    if (atom == QStringLiteral("trkn"))
        return {QStringLiteral("-track"), QStringLiteral("-tracks")};
    if (atom == QStringLiteral("disk"))
        return {QStringLiteral("-disk"), QStringLiteral("-disks")};
    const AtomOption* a = lookup(atom);
    return a ? QStringList{QString::fromLatin1(a->option)} : QStringList{};
}

QStringList MetadataItemBuilder::mp4tagsArguments(const QList<MetadataItem>& items)
{
    QStringList args;
    for (const MetadataItem& item : items) {
        const QStringList options = optionsFor(item.atom);
        if (options.isEmpty())
            continue;
        args << options.first() << item.value;
        if (options.size() > 1 && item.total)
            args << options.at(1) << QString::number(*item.total);
    }
    return args;
}

QList<MP4LanguageAtomWriter::FreeformTag> MetadataItemBuilder::freeformTags(const QList<MetadataItem>& items)
{
    QList<MP4LanguageAtomWriter::FreeformTag> tags;
    for (const MetadataItem& item : items)
        if (item.isFreeform() && item.name)
            tags.append(MP4LanguageAtomWriter::FreeformTag{*item.name, item.value, 1024});
    return tags;
}

QString MetadataItemBuilder::ffmpegKey(const QString& atom)
{
    const AtomOption* a = lookup(atom);
    return a ? QString::fromLatin1(a->ffmpeg) : QString();
}

} // namespace folivox
