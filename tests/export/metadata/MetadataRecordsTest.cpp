// The map from a book's tags to iTunes items and mp4tags options, the error
// texts, and cover preparation.
#include "core/book/BookMetadata.h"
#include "export/metadata/CoverImageProcessor.h"
#include "export/metadata/DefaultMetadataWritingService.h"
#include "export/metadata/MP4ArtService.h"
#include "export/metadata/MP4TagsService.h"
#include "export/metadata/MetadataItemBuilder.h"
#include "export/metadata/MetadataWritingError.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>
#include <QPainter>

#include <gtest/gtest.h>

using namespace folivox;

namespace {
BookMetadata fullBook()
{
    BookMetadata m;
    m.title = QStringLiteral("Equal Rites");
    m.seriesName = QStringLiteral("Discworld");
    m.seriesIndex = SeriesIndex::parse(QStringLiteral("3"));
    m.author = QStringLiteral("An Author");
    m.narrator = QStringLiteral("A Narrator");
    m.language = QStringLiteral("English");
    m.year = QStringLiteral("1987");
    m.genre = QStringLiteral("Fantasy");
    m.summary = QStringLiteral("The long summary.");
    m.description = QStringLiteral("Short description.");
    m.comment = QStringLiteral("A comment");
    m.copyright = QStringLiteral("(c) 1987");
    m.publisher = QStringLiteral("Some House");
    m.encodedBy = QStringLiteral("Someone");
    m.encodedWith = QStringLiteral("Folivox");
    m.sortTitle = QStringLiteral("Equal Rites, The");
    m.sortAuthor = QStringLiteral("Author, An");
    m.sortAlbum = QStringLiteral("Discworld 03");
    m.sortAlbumArtist = QStringLiteral("Author, An");
    m.albumUsesSeriesPrefix = true;
    return m;
}

QString valueOf(const QList<MetadataItem>& items, const QString& atom)
{
    for (const auto& i : items)
        if (i.atom == atom)
            return i.value;
    return QStringLiteral("<missing>");
}

QByteArray encode(const QImage& image, const char* format, int quality = -1)
{
    QByteArray out;
    QBuffer b(&out);
    b.open(QIODevice::WriteOnly);
    image.save(&b, format, quality);
    return out;
}

QImage gradient(int w, int h)
{
    QImage img(w, h, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            img.setPixel(x, y, qRgb(x * 255 / w, y * 255 / h, (x * y) % 256));
    return img;
}
} // namespace

TEST(MetadataItemBuilderTest, EveryBookFieldBecomesItsAtom)
{
    const QList<MetadataItem> items = MetadataItemBuilder::items(fullBook(), FilePlacement::track(QStringLiteral("Chapter Four"), 4, 12));
    // A per-chapter file: its chapter's title, the book's album.
    EXPECT_EQ(valueOf(items, QStringLiteral("\u00A9nam")), QStringLiteral("Chapter Four"));
    EXPECT_EQ(valueOf(items, QStringLiteral("\u00A9alb")), QStringLiteral("Discworld 3: Equal Rites"));
    EXPECT_EQ(valueOf(items, QStringLiteral("\u00A9ART")), QStringLiteral("An Author"));
    EXPECT_EQ(valueOf(items, QStringLiteral("aART")), QStringLiteral("An Author"));
    EXPECT_EQ(valueOf(items, QStringLiteral("\u00A9wrt")), QStringLiteral("A Narrator"));
    EXPECT_EQ(valueOf(items, QStringLiteral("\u00A9grp")), QStringLiteral("Discworld"));
    EXPECT_EQ(valueOf(items, QStringLiteral("desc")), QStringLiteral("Short description."));
    EXPECT_EQ(valueOf(items, QStringLiteral("ldes")), QStringLiteral("The long summary."));
    EXPECT_EQ(valueOf(items, QStringLiteral("stik")), QStringLiteral("audiobook"));
    EXPECT_EQ(valueOf(items, QStringLiteral("trkn")), QStringLiteral("4"));

    const auto tags = MetadataItemBuilder::freeformTags(items);
    QStringList names;
    for (const auto& t : tags)
        names << t.name + u'=' + t.value;
    EXPECT_EQ(names, (QStringList{QStringLiteral("NARRATOR=A Narrator"), QStringLiteral("SERIES=Discworld"),
                                  QStringLiteral("SERIES-PART=3"), QStringLiteral("PUBLISHER=Some House")}));

    BookMetadata plain;
    plain.title = QStringLiteral("Only a title");
    plain.author = QStringLiteral("   ");
    plain.seriesName = QStringLiteral("Series");
    const QList<MetadataItem> few = MetadataItemBuilder::items(plain);
    EXPECT_EQ(valueOf(few, QStringLiteral("\u00A9nam")), QStringLiteral("Only a title"));
    // A split part: its own title and disc number, the book's album.
    const QList<MetadataItem> part = MetadataItemBuilder::items(plain, FilePlacement::disc(QStringLiteral("Only a title (Part 2)"), 2, 3));
    EXPECT_EQ(valueOf(part, QStringLiteral("\u00A9nam")), QStringLiteral("Only a title (Part 2)"));
    EXPECT_EQ(valueOf(part, QStringLiteral("\u00A9alb")), QStringLiteral("Only a title"));
    EXPECT_EQ(valueOf(part, QStringLiteral("disk")), QStringLiteral("2"));
    EXPECT_EQ(valueOf(few, QStringLiteral("\u00A9alb")), QStringLiteral("Only a title"));
    EXPECT_EQ(valueOf(few, QStringLiteral("\u00A9ART")), QStringLiteral("<missing>"));
    EXPECT_EQ(valueOf(few, QStringLiteral("trkn")), QStringLiteral("<missing>"));
    plain.albumUsesSeriesPrefix = true;
    EXPECT_EQ(MetadataItemBuilder::albumTitle(plain), QStringLiteral("Series: Only a title"));
}

TEST(MetadataItemBuilderTest, AtomsMapToTheirMp4tagsOptions)
{
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("aART")), QStringList{QStringLiteral("-albumartist")});
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("desc")), QStringList{QStringLiteral("-description")});
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("cprt")), QStringList{QStringLiteral("-copyright")});
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("ldes")), QStringList{QStringLiteral("-longdesc")});
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("stik")), QStringList{QStringLiteral("-type")});
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("trkn")),
              (QStringList{QStringLiteral("-track"), QStringLiteral("-tracks")}));
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("disk")), (QStringList{QStringLiteral("-disk"), QStringLiteral("-disks")}));
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("sonm")), QStringList{QStringLiteral("-sortname")});
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("soar")), QStringList{QStringLiteral("-sortartist")});
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("soal")), QStringList{QStringLiteral("-sortalbum")});
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("soaa")), QStringList{QStringLiteral("-sortalbumartist")});
    EXPECT_EQ(MetadataItemBuilder::optionsFor(QStringLiteral("\u00A9too")), QStringList{QStringLiteral("-tool")});
    EXPECT_TRUE(MetadataItemBuilder::optionsFor(QStringLiteral("----")).isEmpty());

    MetadataItem track = MetadataItem::text(QStringLiteral("trkn"), QStringLiteral("2"));
    track.total = 7;
    const QList<MetadataItem> items{MetadataItem::text(QStringLiteral("\u00A9nam"), QStringLiteral("-dash title")),
                                    MetadataItem::text(QStringLiteral("stik"), QStringLiteral("audiobook")), track,
                                    MetadataItem::freeform(QStringLiteral("NARRATOR"), QStringLiteral("x"))};
    EXPECT_EQ(MetadataItemBuilder::mp4tagsArguments(items),
              (QStringList{QStringLiteral("-song"), QStringLiteral("-dash title"), QStringLiteral("-type"),
                           QStringLiteral("audiobook"), QStringLiteral("-track"), QStringLiteral("2"), QStringLiteral("-tracks"),
                           QStringLiteral("7")}));
    EXPECT_EQ(MetadataItem::fromJson(track.toJson()), track);
    EXPECT_FALSE(track.toJson().contains(QStringLiteral("name")));
}

TEST(MetadataItemBuilderTest, ExtendedMetadataOptionsInFieldOrder)
{
    MP4TagsService::ExtendedMetadata e;
    e.sortAlbum = QStringLiteral("SA");
    e.encodedBy = QStringLiteral("E");
    e.mediaType = MP4TagsService::MediaType::podcast;
    EXPECT_EQ(e.arguments(), (QStringList{QStringLiteral("-encodedby"), QStringLiteral("E"), QStringLiteral("-sortalbum"),
                                          QStringLiteral("SA"), QStringLiteral("-type"), QStringLiteral("podcast")}));
    EXPECT_EQ(MP4TagsService::ExtendedMetadata::fromJson(e.toJson()), e);
    EXPECT_EQ(e.toJson().value(QStringLiteral("mediaType")).toString(), QStringLiteral("podcast"));
    EXPECT_FALSE(e.toJson().contains(QStringLiteral("sortTitle")));
}

TEST(MetadataWritingErrorTest, Texts)
{
    EXPECT_EQ(MetadataWritingError::mp4chapsFailed(QStringLiteral("Nero: x")).description(), QStringLiteral("mp4chaps failed: Nero: x"));
    EXPECT_EQ(MetadataWritingError::mp4tagsFailed(QStringLiteral("d")).description(), QStringLiteral("mp4tags failed: d"));
    EXPECT_EQ(MetadataWritingError::mp4artFailed(QStringLiteral("d")).description(), QStringLiteral("mp4art failed: d"));
    EXPECT_EQ(MP4TagsService::Error::operationFailed(3).description(), QStringLiteral("mp4tags failed with status 3"));
    EXPECT_EQ(MP4TagsService::Error::binaryNotFound().description(), QStringLiteral("mp4tags binary not found in app bundle"));
    EXPECT_EQ(MP4ArtService::Error::binaryNotFound().description(), QStringLiteral("mp4art binary not found in app bundle"));
    const QList<ChapterInfo> chapters{{QStringLiteral("Intro"), 0.0, {}}, {QStringLiteral("Two\nlines"), 3723.5004, {}}};
    EXPECT_EQ(DefaultMetadataWritingService::chapterListText(chapters),
              QByteArray("00:00:00.000 Intro\n01:02:03.500 Two lines\n"));
}

TEST(CoverImageProcessorTest, ScalesToTheLongestSideAsJpeg)
{
    const QByteArray png = encode(gradient(2000, 1000), "PNG");
    const auto r = CoverImageProcessor::process(png, CoverSize::px1000, CoverQuality::q80);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->type, QStringLiteral("jpg"));
    EXPECT_FALSE(r->keptOriginal);
    EXPECT_EQ(CoverImageProcessor::imageType(r->bytes), QStringLiteral("jpg"));
    EXPECT_EQ(QImage::fromData(r->bytes).size(), QSize(1000, 500));

    const auto small = CoverImageProcessor::process(png, CoverSize::px600, CoverQuality::q60);
    ASSERT_TRUE(small);
    EXPECT_EQ(QImage::fromData(small->bytes).size(), QSize(600, 300));
    const auto better = CoverImageProcessor::process(png, CoverSize::px600, CoverQuality::q90);
    ASSERT_TRUE(better);
    EXPECT_LT(small->bytes.size(), better->bytes.size());

    // A picture smaller than the choice is never enlarged.
    const auto tiny = CoverImageProcessor::process(encode(gradient(300, 200), "PNG"), CoverSize::px1000, CoverQuality::q90);
    ASSERT_TRUE(tiny);
    EXPECT_EQ(QImage::fromData(tiny->bytes).size(), QSize(300, 200));
}

TEST(CoverImageProcessorTest, OriginalAtFullQualityKeepsTheBytes)
{
    const QByteArray jpeg = encode(gradient(640, 480), "JPEG", 75);
    const auto kept = CoverImageProcessor::process(jpeg, CoverSize::original, CoverQuality::original);
    ASSERT_TRUE(kept);
    EXPECT_TRUE(kept->keptOriginal);
    EXPECT_EQ(kept->bytes, jpeg);
    const QByteArray png = encode(gradient(640, 480), "PNG");
    const auto keptPng = CoverImageProcessor::process(png, CoverSize::original, CoverQuality::original);
    ASSERT_TRUE(keptPng);
    EXPECT_EQ(keptPng->bytes, png);
    EXPECT_EQ(keptPng->type, QStringLiteral("png"));

    // Other formats become JPEG; original size at a lower quality re-encodes.
    const auto bmp = CoverImageProcessor::process(encode(gradient(64, 64), "BMP"), CoverSize::original, CoverQuality::original);
    ASSERT_TRUE(bmp);
    EXPECT_EQ(bmp->type, QStringLiteral("jpg"));
    const auto reencoded = CoverImageProcessor::process(jpeg, CoverSize::original, CoverQuality::q70);
    ASSERT_TRUE(reencoded);
    EXPECT_NE(reencoded->bytes, jpeg);
    EXPECT_EQ(QImage::fromData(reencoded->bytes).size(), QSize(640, 480));

    EXPECT_FALSE(CoverImageProcessor::process(QByteArray("not an image at all"), CoverSize::original, CoverQuality::original));
    EXPECT_FALSE(CoverImageProcessor::process(jpeg.left(200), CoverSize::original, CoverQuality::original));
}
