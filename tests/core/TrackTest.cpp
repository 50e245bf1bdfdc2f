#include "core/json/DecodingError.h"
#include "core/json/JsonReader.h"
#include "core/book/Track.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace folivox;

namespace {

QByteArray toText(const QJsonObject& o)
{
    return QJsonDocument(o).toJson(QJsonDocument::Indented);
}

Track decode(const QByteArray& text)
{
    return Track::fromJson(JsonReader::parseObject(text));
}

DecodingError decodeFailure(const QByteArray& text)
{
    try {
        decode(text);
    } catch (const DecodingError& e) {
        return e;
    }
    ADD_FAILURE() << "decoded: " << text.constData();
    return DecodingError(DecodingError::Kind::dataCorrupted, {});
}

// A track as stored before the video flag and the format cache existed.
const QByteArray kOldTrack = R"({
    "id": "6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d11",
    "url": "file:///Books/Dune/01%20Intro.mp3",
    "title": "Intro",
    "duration": 754.25,
    "chapters": []
})";

Track fullTrack()
{
    Track t;
    t.url = QUrl::fromLocalFile(QString::fromUtf8("/Books/Ça va/01 intro #1 100%.m4b"));
    t.title = QString::fromUtf8("Chapitre 1 — «Début»");
    t.duration = 3601.123456789;
    t.trackNumber = 1;
    t.discNumber = 2;
    ChapterMarker a;
    a.title = QStringLiteral("Opening");
    a.time = 0;
    a.artworkData = QByteArray("\x89PNG\r\n\x1a\n\x00\x01", 10);
    ChapterMarker b;
    b.title = QStringLiteral("Second");
    b.time = 1234.5;
    t.chapters = {a, b};
    t.album = QStringLiteral("Dune");
    t.albumArtist = QStringLiteral("Frank Herbert");
    t.artist = QStringLiteral("Frank Herbert");
    t.narrator = QStringLiteral("Scott Brick");
    t.year = QStringLiteral("1965");
    t.genre = QStringLiteral("Science Fiction");
    t.language = QStringLiteral("en");
    t.comment = QStringLiteral("line one\nline two");
    t.trackDescription = QStringLiteral("short");
    t.longDescription = QStringLiteral("long");
    t.publisher = QStringLiteral("Macmillan");
    t.copyright = QString::fromUtf8("© 1965");
    t.encodedBy = QStringLiteral("someone");
    t.encodedWith = QStringLiteral("something");
    t.seriesName = QStringLiteral("Dune Chronicles");
    t.seriesIndex = SeriesIndex::parse(QStringLiteral("1.5"));
    t.sortTitleOverride = QStringLiteral("Dune 01");
    t.sortAuthorOverride = QStringLiteral("Herbert, Frank");
    t.sortAlbumOverride = QStringLiteral("Dune");
    t.cachedCodec = QStringLiteral("aac-lc");
    t.cachedBitrate = 64000;
    t.cachedSampleRate = 44100;
    t.cachedChannels = 2;
    t.cachedFileModificationDate = QDateTime::fromString(QStringLiteral("2024-03-05T06:07:08.901Z"), Qt::ISODateWithMs);
    t.cachedFileSize = 5'000'000'000ULL;
    t.fromVideo = true;
    return t;
}

} // namespace

TEST(TrackJson, OldTrackDecodesWithDefaultsAndReencodesWithoutNulls)
{
    const Track t = decode(kOldTrack);
    EXPECT_EQ(t.id, QUuid::fromString(QStringLiteral("6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d11")));
    EXPECT_EQ(t.url.toLocalFile(), QStringLiteral("/Books/Dune/01 Intro.mp3"));
    EXPECT_FALSE(t.fromVideo);
    EXPECT_EQ(t.cachedFormat(), Track::CachedFormat{});
    EXPECT_FALSE(t.hasCachedFormat());
    EXPECT_TRUE(t.chapters.empty());

    const QJsonObject out = t.toJson();
    // Always-written keys, including an empty chapter list and the false flag.
    EXPECT_TRUE(out.value(QStringLiteral("chapters")).isArray());
    EXPECT_EQ(out.value(QStringLiteral("chapters")).toArray().size(), 0);
    EXPECT_EQ(out.value(QStringLiteral("fromVideo")), QJsonValue(false));
    EXPECT_EQ(out.value(QStringLiteral("id")).toString(), QStringLiteral("6F1C2B1E-8A0D-4C55-9B43-2A7B1F0E9D11"));
    EXPECT_EQ(out.value(QStringLiteral("url")).toString(), QStringLiteral("file:///Books/Dune/01%20Intro.mp3"));
    EXPECT_EQ(QStringList(out.keys()),
              (QStringList{"chapters", "duration", "fromVideo", "id", "title", "url"}));
    EXPECT_FALSE(toText(out).contains("null"));
}

TEST(TrackJson, EveryFieldSurvivesATextRoundTrip)
{
    const Track original = fullTrack();
    const QByteArray text = toText(original.toJson());
    EXPECT_FALSE(text.contains("null"));
    EXPECT_TRUE(text.contains(R"("cachedFileModificationDate": "2024-03-05T06:07:08.901Z")")) << text.constData();
    EXPECT_TRUE(text.contains(R"("seriesIndex": "1.5")"));
    EXPECT_TRUE(text.contains(R"("cachedFileSize": 5000000000)"));
    EXPECT_TRUE(text.contains(R"("url": "file:///Books/%C3%87a%20va/01%20intro%20%231%20100%25.m4b")")) << text.constData();

    const Track back = decode(text);
    EXPECT_EQ(back, original);
    EXPECT_EQ(back.url.toLocalFile(), original.url.toLocalFile());
    ASSERT_EQ(back.chapters.size(), 2u);
    EXPECT_EQ(back.chapters[0].artworkData, original.chapters[0].artworkData);
    EXPECT_FALSE(back.chapters[1].artworkData.has_value());
    EXPECT_EQ(back.duration, original.duration); // exact, not approximately
}

TEST(TrackJson, EachMissingRequiredKeyFailsTheWholeTrack)
{
    const QJsonObject complete = JsonReader::parseObject(kOldTrack);
    for (const char* key : {"id", "url", "title", "duration", "chapters"}) {
        QJsonObject o = complete;
        o.remove(QString::fromLatin1(key));
        const DecodingError e = decodeFailure(toText(o));
        EXPECT_EQ(e.kind(), DecodingError::Kind::keyNotFound) << key;
        EXPECT_EQ(e.codingPath(), QString::fromLatin1(key));
        EXPECT_TRUE(e.description().contains(QString::fromLatin1(key))) << e.description().toStdString();
    }
}

TEST(TrackJson, NullsAndUnknownKeysAndWrongTypes)
{
    // A null optional reads as absent; unknown keys are ignored.
    const Track t = decode(R"({"id":"6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d11","url":"file:///a.mp3","title":"A",
        "duration":1,"chapters":[],"album":null,"futureField":{"x":1},"fromVideo":null})");
    EXPECT_FALSE(t.album.has_value());
    EXPECT_FALSE(t.fromVideo);

    EXPECT_EQ(decodeFailure(R"({"id":"6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d11","url":"file:///a.mp3","title":null,
        "duration":1,"chapters":[]})").kind(),
              DecodingError::Kind::valueNotFound);
    EXPECT_EQ(decodeFailure(R"({"id":"6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d11","url":"file:///a.mp3","title":"A",
        "duration":"12","chapters":[]})").kind(),
              DecodingError::Kind::typeMismatch);
    EXPECT_EQ(decodeFailure(R"({"id":"6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d11","url":"file:///a.mp3","title":"A",
        "duration":1,"chapters":[],"trackNumber":1.5})").codingPath(),
              QStringLiteral("trackNumber"));
    EXPECT_EQ(decodeFailure(R"({"id":"not-a-uuid","url":"file:///a.mp3","title":"A","duration":1,"chapters":[]})").kind(),
              DecodingError::Kind::dataCorrupted);
    EXPECT_EQ(decodeFailure(R"({"id":"6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d11","url":"file:///a.mp3","title":"A",
        "duration":1,"chapters":[],"cachedFileSize":-5})").codingPath(),
              QStringLiteral("cachedFileSize"));
    EXPECT_EQ(decodeFailure(R"({"id":"6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d11","url":"file:///a.mp3","title":"A",
        "duration":1,"chapters":[],"cachedFileModificationDate":"yesterday"})").kind(),
              DecodingError::Kind::dataCorrupted);

    // A fault inside a chapter mark names its place.
    const DecodingError nested = decodeFailure(R"({"id":"6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d11","url":"file:///a.mp3",
        "title":"A","duration":1,"chapters":[
            {"id":"6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d12","title":"One","time":0},
            {"id":"6f1c2b1e-8a0d-4c55-9b43-2a7b1f0e9d13","time":5,"artworkData":"AAAA"}]})");
    EXPECT_EQ(nested.kind(), DecodingError::Kind::keyNotFound);
    EXPECT_EQ(nested.codingPath(), QStringLiteral("chapters[1].title"));
}

TEST(TrackJson, NonFiniteTimesAreNeverWrittenAsNull)
{
    Track t = decode(kOldTrack).withDuration(std::numeric_limits<double>::quiet_NaN());
    const QByteArray text = toText(t.toJson());
    EXPECT_FALSE(text.contains("null"));
    EXPECT_EQ(decode(text).duration, 0.0);
}

TEST(TrackCopies, EachReplacesOnlyItsFieldsAndKeepsTheId)
{
    const Track base = fullTrack();

    Track expected = base;
    expected.duration = 10.5;
    EXPECT_EQ(base.withDuration(10.5), expected);

    expected = base;
    expected.title = QStringLiteral("New");
    expected.duration = 11;
    EXPECT_EQ(base.withTitleAndDuration(QStringLiteral("New"), 11), expected);

    expected = base;
    expected.comment = std::nullopt;
    EXPECT_EQ(base.withComment(std::nullopt), expected);

    expected = base;
    expected.url = QUrl::fromLocalFile(QStringLiteral("/moved/01.m4b"));
    EXPECT_EQ(base.withUrl(expected.url), expected);

    expected = base;
    expected.fromVideo = false;
    EXPECT_EQ(base.withFromVideo(false), expected);

    // The six cached fields go together: stripping clears every one.
    const Track stripped = base.withCachedFormat({});
    EXPECT_EQ(stripped.cachedFormat(), Track::CachedFormat{});
    EXPECT_EQ(stripped.id, base.id);
    EXPECT_EQ(stripped.title, base.title);
    const Track::CachedFormat fresh{QStringLiteral("he-aac"), 32000, 48000, 1, std::nullopt, 42u};
    const Track refreshed = stripped.withCachedFormat(fresh);
    EXPECT_EQ(refreshed.cachedFormat(), fresh);
    EXPECT_FALSE(refreshed.cachedFileModificationDate.has_value());
    EXPECT_EQ(refreshed.withCachedFormat(base.cachedFormat()), base);
}

TEST(TrackChapterStart, LineAppendedToTheCommentReadsBack)
{
    Track t = decode(kOldTrack);
    EXPECT_FALSE(t.chapterStart().has_value()); // no comment

    t = t.withComment(QStringLiteral("Narrated by Scott Brick"));
    EXPECT_FALSE(t.chapterStart().has_value()); // comment without the line

    const QString withLine = Track::appendingChapterStart(t.comment, 754.25);
    EXPECT_EQ(withLine, QStringLiteral("Narrated by Scott Brick\n__CHAPTER_META__:{\"chapterStart\":754.25}"));
    EXPECT_EQ(t.withComment(withLine).chapterStart(), 754.25);

    // Whole seconds keep a decimal point; a new comment is just the line.
    const QString alone = Track::appendingChapterStart(std::nullopt, 3);
    EXPECT_EQ(alone, QStringLiteral("__CHAPTER_META__:{\"chapterStart\":3.0}"));
    EXPECT_EQ(t.withComment(alone).chapterStart(), 3.0);

    // Large and tiny values stay in fixed notation and read back exactly.
    for (double seconds : {0.0, 0.001, 86399.999, 1.0e7 + 0.5}) {
        const Track c = t.withComment(Track::appendingChapterStart(QStringLiteral("x"), seconds));
        EXPECT_EQ(c.chapterStart(), seconds) << seconds;
    }
    EXPECT_EQ(t.withComment(Track::appendingChapterStart(std::nullopt, -5)).chapterStart(), 0.0);

    // Lines that do not carry a number give no value.
    EXPECT_FALSE(t.withComment(QStringLiteral("__CHAPTER_META__:{\"chapterStart\":\"abc\"}")).chapterStart());
    EXPECT_FALSE(t.withComment(QStringLiteral("__CHAPTER_META__:{\"chapterStart\":-4}")).chapterStart());
    // The line survives storage in the record.
    const Track stored = decode(toText(t.withComment(withLine).toJson()));
    EXPECT_EQ(stored.chapterStart(), 754.25);
}
