#include "core/book/BookMetadata.h"
#include "core/book/BookMetadataPatch.h"
#include "core/book/BookSnapshot.h"
#include "core/book/Bookmark.h"
#include "core/chapters/ChapterInfo.h"
#include "core/chapters/ChapterInput.h"
#include "core/chapters/ChapterSnapshot.h"
#include "core/json/DecodingError.h"
#include "core/json/JsonReader.h"
#include "core/book/TrackSortMode.h"

#include <QJsonDocument>
#include <QSet>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

QByteArray toText(const QJsonObject& o)
{
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

template<class T>
T roundTrip(const T& value)
{
    const QByteArray text = toText(value.toJson());
    EXPECT_FALSE(text.contains("null")) << text.constData();
    return T::fromJson(JsonReader::parseObject(text));
}

template<class T>
DecodingError failure(const QByteArray& text)
{
    try {
        T::fromJson(JsonReader::parseObject(text));
    } catch (const DecodingError& e) {
        return e;
    }
    ADD_FAILURE() << "decoded: " << text.constData();
    return DecodingError(DecodingError::Kind::dataCorrupted, {});
}

BookMetadata sampleMetadata()
{
    BookMetadata m;
    m.title = QStringLiteral("Children of Dune");
    m.seriesName = QStringLiteral("Dune");
    m.seriesIndex = SeriesIndex::fromInteger(3);
    m.author = QStringLiteral("Frank Herbert");
    m.summary = QStringLiteral("Short summary");
    m.description = QStringLiteral("Long description");
    m.coverImageData = QByteArray(300, '\xff');
    m.coverSourceURL = QUrl(QStringLiteral("https://covers.example.org/x.jpg"));
    m.sortAlbum = QStringLiteral("Dune 3");
    m.sortAlbumArtist = QStringLiteral("Herbert");
    m.albumUsesSeriesPrefix = true;
    return m;
}

} // namespace

TEST(BookmarkJson, RoundTripAndAFaultyTrackFailsTheChapterAndItsList)
{
    Bookmark b;
    b.title = QStringLiteral("Part One");
    Track t;
    t.url = QUrl::fromLocalFile(QStringLiteral("/b/1.mp3"));
    t.title = QStringLiteral("1");
    t.duration = 60;
    b.tracks = {t, t.withUrl(QUrl::fromLocalFile(QStringLiteral("/b/2.mp3")))};
    b.startOffset = 12.5;
    b.duration = 107.5;
    b.isSidecarChapter = true;
    b.artworkSourceURL = QUrl::fromLocalFile(QStringLiteral("/b/cover.png"));
    EXPECT_EQ(roundTrip(b), b);
    EXPECT_NE(Bookmark().id, Bookmark().id); // each fresh record has its own id

    QJsonObject o = b.toJson();
    o.remove(QStringLiteral("isSidecarChapter"));
    EXPECT_EQ(failure<Bookmark>(toText(o)).codingPath(), QStringLiteral("isSidecarChapter"));

    QJsonObject broken = b.toJson();
    QJsonArray tracks = broken.value(QStringLiteral("tracks")).toArray();
    QJsonObject second = tracks[1].toObject();
    second.remove(QStringLiteral("url"));
    tracks[1] = second;
    broken.insert(QStringLiteral("tracks"), tracks);
    const DecodingError e = failure<Bookmark>(toText(broken));
    EXPECT_EQ(e.kind(), DecodingError::Kind::keyNotFound);
    EXPECT_EQ(e.codingPath(), QStringLiteral("tracks[1].url"));

    // The list of chapters that holds it fails as a whole, naming the place.
    const QJsonArray list{b.toJson(), broken};
    try {
        JsonReader::decodeList<Bookmark>(list, QStringLiteral("bookmarks"));
        ADD_FAILURE() << "list decoded";
    } catch (const DecodingError& err) {
        EXPECT_EQ(err.codingPath(), QStringLiteral("bookmarks[1].tracks[1].url"));
    }
}

TEST(BookMetadataJson, RequiresTitleAndSeriesPrefixFlagWithoutMigration)
{
    const BookMetadata m = sampleMetadata();
    const BookMetadata back = roundTrip(m);
    EXPECT_EQ(back, m);
    EXPECT_EQ(back.summary, QStringLiteral("Short summary"));
    EXPECT_EQ(back.description, QStringLiteral("Long description"));

    EXPECT_EQ(failure<BookMetadata>(R"({"albumUsesSeriesPrefix":false,"author":"X"})").codingPath(),
              QStringLiteral("title"));
    const DecodingError noFlag = failure<BookMetadata>(R"({"title":"Dune","author":"X"})");
    EXPECT_EQ(noFlag.kind(), DecodingError::Kind::keyNotFound);
    EXPECT_EQ(noFlag.codingPath(), QStringLiteral("albumUsesSeriesPrefix"));
    EXPECT_EQ(noFlag.description(), QStringLiteral("No value associated with key \"albumUsesSeriesPrefix\""));

    const BookMetadata minimal = BookMetadata::fromJson(
        JsonReader::parseObject(R"({"title":"Dune","albumUsesSeriesPrefix":false,"unknown":[1,2]})"));
    EXPECT_EQ(minimal.title, QStringLiteral("Dune"));
    EXPECT_EQ(QStringList(minimal.toJson().keys()), (QStringList{"albumUsesSeriesPrefix", "title"}));
}

TEST(BookMetadataPatchJson, EveryKeyOptionalAndOnlyValuesAreApplied)
{
    const BookMetadataPatch empty = BookMetadataPatch::fromJson(JsonReader::parseObject("{}"));
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_EQ(empty.applied(sampleMetadata()), sampleMetadata());
    EXPECT_EQ(toText(empty.toJson()), QByteArray("{}"));

    const BookMetadataPatch patch = BookMetadataPatch::fromJson(JsonReader::parseObject(
        R"({"narrator":"Scott Brick","seriesIndex":"3.5","albumUsesSeriesPrefix":false,"sortAlbumArtist":"H"})"));
    EXPECT_FALSE(patch.isEmpty());
    const BookMetadata result = patch.applied(sampleMetadata());
    BookMetadata expected = sampleMetadata();
    expected.narrator = QStringLiteral("Scott Brick");
    expected.seriesIndex = SeriesIndex::parse(QStringLiteral("3.5"));
    expected.albumUsesSeriesPrefix = false; // a false value still applies
    expected.sortAlbumArtist = QStringLiteral("H");
    EXPECT_EQ(result, expected);
    EXPECT_EQ(roundTrip(patch), patch);
}

TEST(BookSnapshotJson, KeepsItsOwnNamesAndComparesEveryField)
{
    const BookSnapshot s = BookSnapshot::fromMetadata(sampleMetadata());
    EXPECT_EQ(s.artworkData, sampleMetadata().coverImageData);
    const QJsonObject json = s.toJson();
    EXPECT_TRUE(json.contains(QStringLiteral("artworkData")));
    EXPECT_FALSE(json.contains(QStringLiteral("coverImageData")));
    EXPECT_FALSE(json.contains(QStringLiteral("sortAlbum")));
    EXPECT_FALSE(json.contains(QStringLiteral("sortAlbumArtist")));
    EXPECT_EQ(json.value(QStringLiteral("seriesIndex")), QJsonValue(3));
    EXPECT_EQ(roundTrip(s), s);
    EXPECT_EQ(BookSnapshot::fromJson(JsonReader::parseObject("{}")), BookSnapshot{});

    // Equal snapshots hash alike; a change to any one field, the image bytes
    // included, makes them unequal.
    BookSnapshot copy = roundTrip(s);
    EXPECT_EQ(qHash(copy), qHash(s));
    EXPECT_EQ(std::hash<BookSnapshot>()(copy), std::hash<BookSnapshot>()(s));

    QSet<BookSnapshot> set{s, copy};
    std::vector<BookSnapshot> variants;
    BookSnapshot v = s;
    v.artworkData->data()[150] = '\x00';
    variants.push_back(v);
    v = s;
    v.description.swap(v.summary);
    variants.push_back(v);
    v = s;
    v.albumUsesSeriesPrefix = false;
    variants.push_back(v);
    v = s;
    v.coverSourceURL.reset();
    variants.push_back(v);
    v = s;
    v.title = QStringLiteral("");
    variants.push_back(v);
    v = s;
    v.title.reset();
    variants.push_back(v);
    for (const BookSnapshot& variant : variants) {
        EXPECT_NE(variant, s);
        set.insert(variant);
    }
    EXPECT_EQ(set.size(), static_cast<qsizetype>(1 + variants.size()));
}

TEST(ChapterSnapshotJson, FingerprintIsStableAndSurvivesStorage)
{
    const QByteArray image(4096, 'a');
    QByteArray other = image;
    other[4095] = 'b';
    const auto fp = ChapterSnapshot::fingerprint(image);
    ASSERT_TRUE(fp.has_value());
    EXPECT_EQ(ChapterSnapshot::fingerprint(QByteArray(4096, 'a')), fp);
    EXPECT_NE(ChapterSnapshot::fingerprint(other), fp);
    EXPECT_FALSE(ChapterSnapshot::fingerprint(std::nullopt).has_value());
    EXPECT_GE(*fp, 0);
    EXPECT_LT(*fp, qint64(1) << 53);
    // The same bytes give the same value in every run and every build: the
    // top 53 bits of SHA-256("cover"), computed independently.
    EXPECT_EQ(ChapterSnapshot::fingerprint(QByteArray("cover")), qint64(2239158467035993));

    ChapterSnapshot s{QStringLiteral("Ch 1"), 0.0, 61.25, QUrl::fromLocalFile(QStringLiteral("/a/1.mp3")), fp};
    EXPECT_EQ(roundTrip(s), s);
    EXPECT_EQ(failure<ChapterSnapshot>(R"({"title":"x","startTime":0})").codingPath(), QStringLiteral("duration"));
}

TEST(ChapterRecordsJson, ChapterInputAndChapterInfoRoundTrip)
{
    ChapterInput in;
    in.title = QStringLiteral("Across files");
    in.files = {QUrl::fromLocalFile(QStringLiteral("/a/1.mp3")), QUrl::fromLocalFile(QStringLiteral("/a/2 b.mp3"))};
    in.segmentRanges = std::vector<MediaTimeRange>{{30.0, 30.0}, {0.0, 12.5}};
    in.segmentFullTrack = std::vector<bool>{false, true};
    EXPECT_EQ(roundTrip(in), in);

    ChapterInput single;
    single.title = QStringLiteral("One file");
    single.files = {QUrl::fromLocalFile(QStringLiteral("/a/1.m4b"))};
    single.timeRange = MediaTimeRange{100.0, 50.0};
    single.wholeFileCandidate = true;
    EXPECT_EQ(roundTrip(single), single);
    EXPECT_DOUBLE_EQ(single.timeRange->end(), 150.0);
    EXPECT_FALSE(single.toJson().contains(QStringLiteral("segmentRanges")));

    EXPECT_EQ(failure<ChapterInput>(R"({"title":"x","files":["file:///a.mp3"],"wholeFileCandidate":false,
        "segmentRanges":[{"start":0}]})").codingPath(),
              QStringLiteral("segmentRanges[0].duration"));
    EXPECT_EQ(failure<ChapterInput>(R"({"title":"x","files":["file:///a.mp3", 7],"wholeFileCandidate":false})")
                  .codingPath(),
              QStringLiteral("files[1]"));

    const ChapterInfo info{QStringLiteral("Intro"), 0.5, QByteArray("jpeg")};
    EXPECT_EQ(roundTrip(info), info);
}

TEST(RecordValueForms, UuidsDatesAndBytes)
{
    ChapterMarker m;
    m.id = QUuid::fromString(QStringLiteral("{0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9}"));
    m.title = QStringLiteral("x");
    m.artworkData = QByteArray::fromHex("00ff10");
    const QJsonObject json = m.toJson();
    EXPECT_EQ(json.value(QStringLiteral("id")).toString(), QStringLiteral("0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9"));
    EXPECT_EQ(json.value(QStringLiteral("artworkData")).toString(), QStringLiteral("AP8Q"));
    // Lower case and braces are read too.
    EXPECT_EQ(ChapterMarker::fromJson(JsonReader::parseObject(
                  R"({"id":"{0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9}","title":"x","time":0})"))
                  .id,
              m.id);
    EXPECT_EQ(failure<ChapterMarker>(R"({"id":"0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9","title":"x","time":0,
        "artworkData":"not base64!"})").codingPath(),
              QStringLiteral("artworkData"));

    // A date without milliseconds or offset is read as UTC and written back
    // with milliseconds.
    Track t = Track::fromJson(JsonReader::parseObject(R"({"id":"0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9",
        "url":"file:///a.mp3","title":"a","duration":1,"chapters":[],"cachedFileModificationDate":"2023-01-02T03:04:05"})"));
    EXPECT_EQ(t.toJson().value(QStringLiteral("cachedFileModificationDate")).toString(),
              QStringLiteral("2023-01-02T03:04:05.000Z"));
}

TEST(TrackSortModeText, NamesRoundTrip)
{
    for (TrackSortMode mode : enumCases<TrackSortMode>())
        EXPECT_EQ(trackSortModeFromString(toString(mode)), mode);
    EXPECT_EQ(toString(TrackSortMode::auto_), QStringLiteral("auto"));
    EXPECT_EQ(trackSortModeFromString(QStringLiteral("trackNumber")), TrackSortMode::trackNumber);
    EXPECT_FALSE(trackSortModeFromString(QStringLiteral("Auto")).has_value());
    EXPECT_FALSE(trackSortModeFromString(QStringLiteral("")).has_value());
}
