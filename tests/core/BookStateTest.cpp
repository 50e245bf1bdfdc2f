// The book's working state as one record, its settings fingerprint, and the
// tear-down of the open book.
#include "core/book/BookMetadataStore.h"
#include "core/book/BookSession.h"
#include "core/book/BookStateDTO.h"
#include "core/book/BookmarksStore.h"
#include "core/book/BookmarksUndoManager.h"
#include "core/chapters/ChapterViewModel.h"
#include "core/json/DecodingError.h"
#include "core/json/JsonReader.h"
#include "core/settings/SettingsFingerprint.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QSet>
#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

QDateTime at(const char* iso)
{
    return QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs);
}

Track richTrack(const QString& path, double duration)
{
    Track t;
    t.url = QUrl::fromLocalFile(path);
    t.title = QFileInfo(path).completeBaseName();
    t.duration = duration;
    t.trackNumber = 3;
    t.discNumber = 1;
    ChapterMarker m;
    m.title = QStringLiteral("Mark");
    m.time = 12.25;
    m.artworkData = QByteArray("\x89PNG mark", 9);
    t.chapters = {m};
    t.album = QStringLiteral("Album");
    t.albumArtist = QStringLiteral("Author");
    t.narrator = QStringLiteral("Reader");
    t.year = QStringLiteral("1999");
    t.comment = Track::appendingChapterStart(QStringLiteral("note"), 4.5);
    t.seriesName = QStringLiteral("Series");
    t.seriesIndex = SeriesIndex::parse(QStringLiteral("2.5"));
    t.cachedCodec = QStringLiteral("mp3");
    t.cachedBitrate = 128000;
    t.cachedSampleRate = 44100;
    t.cachedChannels = 2;
    t.cachedFileModificationDate = at("2024-05-01T10:11:12.345Z");
    t.cachedFileSize = 5'000'000'000ULL;
    t.fromVideo = true;
    return t;
}

BookStateDTO richState()
{
    BookStateDTO s = BookStateDTO::makeNew();
    s.revision = 7;
    s.createdAt = at("2024-01-02T03:04:05.678Z");
    s.editedAt = at("2024-02-03T04:05:06.789Z");
    s.sources = {QUrl::fromLocalFile(QStringLiteral("/books/Dune"))};
    s.tracks = {richTrack(QStringLiteral("/books/Dune/01.mp3"), 100.5), richTrack(QStringLiteral("/books/Dune/02.mp3"), 50)};
    Bookmark a;
    a.title = QStringLiteral("Opening");
    a.tracks = {s.tracks[0], s.tracks[1]};
    a.startOffset = 1.5;
    a.duration = 140;
    a.artworkData = QByteArray("\xFF\xD8jpeg", 6);
    a.artworkSourceURL = QUrl::fromLocalFile(QStringLiteral("/books/Dune/art.jpg"));
    Bookmark b;
    b.title = QStringLiteral("A track edited only in this chapter");
    b.tracks = {s.tracks[1].withTitleAndDuration(QStringLiteral("renamed"), 49)};
    b.duration = 9;
    b.isSidecarChapter = true;
    s.bookmarks = {a, b};
    s.metadata.title = QStringLiteral("Dune");
    s.metadata.author = QStringLiteral("Frank Herbert");
    s.metadata.seriesIndex = SeriesIndex::fromInteger(1);
    s.metadata.coverImageData = QByteArray(1000, '\x42');
    s.metadata.coverSourceURL = QUrl::fromLocalFile(QStringLiteral("/books/Dune/cover.jpg"));
    s.metadata.albumUsesSeriesPrefix = true;
    s.settings.outputFormat = OutputFormat::mp3;
    s.settings.cbrBitrateKbps.reset();
    s.settings.keepSourceBitrate = true;
    s.settings.splitMode = SplitMode::bySize;
    s.coverRef = QStringLiteral("cover");
    s.artworkRefs.insert(a.id, QStringLiteral("artwork/x"));
    BuildRecord r;
    r.builtAt = at("2024-03-04T05:06:07.890Z");
    r.revision = 6;
    r.settingsFingerprint = SettingsFingerprint::of(s.settings);
    r.format = OutputFormat::mp3;
    r.outputs = {{QStringLiteral("/out/Dune/01.mp3"), 123456789012ULL, at("2024-03-04T05:06:07.000Z")},
                 {QStringLiteral("/out/Dune/02.mp3"), 1, at("2024-03-04T05:06:08.001Z")}};
    r.chapters = {ChapterSnapshot{QStringLiteral("One"), 0, 61.5, QUrl::fromLocalFile(QStringLiteral("/books/Dune/01.mp3")), std::nullopt},
                  ChapterSnapshot{QStringLiteral("Two"), 61.5, 30.25, std::nullopt, 42}};
    s.lastBuild = r;
    return s;
}

BookStateDTO throughText(const BookStateDTO& s)
{
    const QByteArray text = QJsonDocument(s.toJson()).toJson(QJsonDocument::Compact);
    EXPECT_FALSE(text.contains("null"));
    return BookStateDTO::fromJson(JsonReader::parseObject(text));
}

} // namespace

TEST(BookStateDTOJson, EveryRecordRoundTripsExactlyAndChaptersReferToBookTracks)
{
    const BookStateDTO s = richState();
    const BookStateDTO back = throughText(s);
    EXPECT_EQ(back, s);
    EXPECT_EQ(back.bookmarks[0].tracks, s.tracks);
    EXPECT_EQ(back.bookmarks[1].tracks[0].title, QStringLiteral("renamed"));
    EXPECT_EQ(back.lastBuild->outputs[0].size, 123456789012ULL);
    EXPECT_EQ(back.tracks[0].chapterStart(), 4.5);

    // The first chapter's tracks are the book's own: written by id. The
    // second holds a track that differs from the book's: written in full.
    const QJsonArray marks = s.toJson().value(QStringLiteral("bookmarks")).toArray();
    EXPECT_FALSE(marks[0].toObject().contains(QStringLiteral("tracks")));
    EXPECT_EQ(marks[0].toObject().value(QStringLiteral("trackIDs")).toArray().size(), 2);
    EXPECT_TRUE(marks[1].toObject().contains(QStringLiteral("tracks")));
    EXPECT_FALSE(marks[1].toObject().contains(QStringLiteral("trackIDs")));

    // A minimal state keeps its optional keys out.
    BookStateDTO minimal = BookStateDTO::makeNew();
    minimal.metadata.title = QStringLiteral("T");
    EXPECT_EQ(throughText(minimal), minimal);
    const QJsonObject o = minimal.toJson();
    for (const char* key : {"coverRef", "artworkRefs", "lastBuild"})
        EXPECT_FALSE(o.contains(QLatin1String(key))) << key;
}

TEST(BookStateDTOJson, FaultsNameTheirPlace)
{
    const BookStateDTO s = richState();
    QJsonObject o = s.toJson();
    QJsonArray marks = o.value(QStringLiteral("bookmarks")).toArray();
    QJsonObject first = marks[0].toObject();
    first.insert(QStringLiteral("trackIDs"), QJsonArray{QStringLiteral("00000000-0000-0000-0000-000000000001")});
    marks[0] = first;
    o.insert(QStringLiteral("bookmarks"), marks);
    try {
        BookStateDTO::fromJson(o);
        FAIL() << "decoded a chapter whose track is not in the book";
    } catch (const DecodingError& e) {
        EXPECT_EQ(e.codingPath(), QStringLiteral("bookmarks[0].trackIDs[0]"));
    }

    for (const char* key : {"id", "revision", "tracks", "bookmarks", "metadata", "settings", "sources"}) {
        QJsonObject missing = s.toJson();
        missing.remove(QLatin1String(key));
        try {
            BookStateDTO::fromJson(missing);
            ADD_FAILURE() << "decoded without " << key;
        } catch (const DecodingError& e) {
            EXPECT_EQ(e.codingPath(), QLatin1String(key));
        }
    }
}

TEST(BookStateDTOFingerprints, SettingsFingerprintIsFixedAndFollowsEveryField)
{
    // The fingerprint of the default settings is part of every stored book and
    // must not change between runs, builds or machines.
    EXPECT_EQ(SettingsFingerprint::of(ExportSettings()), QStringLiteral("12db5dae0b63d5c0"));
    const QString base = SettingsFingerprint::of(ExportSettings());
    QSet<QString> seen{base};
    const auto differs = [&](const std::function<void(ExportSettings&)>& change) {
        ExportSettings s;
        change(s);
        const QString f = SettingsFingerprint::of(s);
        EXPECT_EQ(f.size(), 16);
        EXPECT_FALSE(seen.contains(f));
        seen.insert(f);
    };
    differs([](ExportSettings& s) { s.outputFormat = OutputFormat::m4a; });
    differs([](ExportSettings& s) { s.codec = AudioCodec::heAAC; });
    differs([](ExportSettings& s) { s.channels = ChannelSetting::mono; });
    differs([](ExportSettings& s) { s.sampleRate = SampleRateOption::hz22050; });
    differs([](ExportSettings& s) { s.passthroughPolicy = PassthroughPolicy::disabled; });
    differs([](ExportSettings& s) { s.cbrBitrateKbps = 64; });
    differs([](ExportSettings& s) { s.cbrBitrateKbps.reset(); });
    differs([](ExportSettings& s) { s.keepSourceBitrate = true; });
    differs([](ExportSettings& s) { s.splitMode = SplitMode::byDuration; });
    differs([](ExportSettings& s) { s.splitHours = 9; });
    differs([](ExportSettings& s) { s.splitSizeMB = 501; });
    differs([](ExportSettings& s) { s.snapToChapters = false; });
    differs([](ExportSettings& s) { s.coverSize = CoverSize::px600; });
    differs([](ExportSettings& s) { s.coverQuality = CoverQuality::q60; });

    // The content fingerprint follows edits, not bookkeeping.
    BookStateDTO s = richState();
    const quint64 content = s.contentFingerprint();
    s.revision += 5;
    s.editedAt = s.editedAt.addDays(1);
    s.lastBuild.reset();
    EXPECT_EQ(s.contentFingerprint(), content);
    s.bookmarks[0].title += u'!';
    EXPECT_NE(s.contentFingerprint(), content);
}

TEST(BookSessionTearDown, RunsEveryStepInOrderAndLeavesNothingToUndo)
{
    BookmarksStore bookmarks;
    ChapterViewModel chapters;
    BookMetadataStore book;
    BookmarksUndoManager undo;
    QStringList calls;
    const auto hook = [&calls](const char* name) { return [&calls, name] { calls << QString::fromLatin1(name); }; };
    BookSession::Hooks hooks{hook("cancelImport"),       hook("resetImportState"), hook("stopPlayer"),
                             hook("closeEditorWindows"), hook("clearSnapshots"),   hook("clearSidecarCache"),
                             hook("clearSelection")};
    bookmarks.onChange = [&] { calls << (bookmarks.isEmpty() ? QStringLiteral("chapters emptied") : QStringLiteral("chapters set")); };
    book.onChange = [&] { calls << QStringLiteral("tags reset"); };
    Bookmark b;
    b.title = QStringLiteral("One");
    bookmarks.setBookmarks({b});
    BookMetadata m;
    m.title = QStringLiteral("Dune");
    book.setMetadata(m);
    undo.perform({QStringLiteral("Rename"), [] {}, [] {}});
    calls.clear();

    BookSession session(bookmarks, chapters, book, undo, hooks);
    LogCapture log;
    session.tearDown(BookSession::TearDownReason::switching(QUuid::createUuid()));
    EXPECT_EQ(calls, (QStringList{"cancelImport", "chapters emptied", "stopPlayer", "closeEditorWindows",
                                  "clearSidecarCache", "resetImportState", "clearSnapshots", "clearSelection",
                                  "tags reset"}));
    EXPECT_FALSE(undo.canUndo());
    EXPECT_FALSE(undo.canRedo());
    EXPECT_TRUE(bookmarks.isEmpty());
    EXPECT_EQ(book.metadata(), BookMetadata());

    QStringList steps;
    for (const QString& line : log.lines())
        if (line.startsWith(QStringLiteral("[BookSession] tearDown(switching to ")))
            steps << line.section(QStringLiteral("): "), 1);
    EXPECT_EQ(steps, (QStringList{"cancelImport", "clearChapters", "stopPlayer", "closeEditorWindows", "clearSidecarCache",
                                  "resetImportState", "clearUndo", "clearSnapshots", "clearSelection", "resetMetadata"}));

    // With no hooks and no import running, every step still runs and is logged;
    // the selection is cleared by the session itself.
    chapters.select(QUuid::createUuid());
    bookmarks.setBookmarks({b});
    BookSession bare(bookmarks, chapters, book, undo, {});
    LogCapture bareLog;
    bare.tearDown(BookSession::TearDownReason::newBook());
    EXPECT_EQ(bareLog.count(QStringLiteral("[BookSession] tearDown(newBook): ")), 10);
    EXPECT_TRUE(chapters.selection().isEmpty());
    EXPECT_TRUE(bookmarks.isEmpty());
    EXPECT_FALSE(undo.canUndo());
}
