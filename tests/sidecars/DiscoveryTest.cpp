#include "SidecarTestHelpers.h"

#include "core/json/DecodingError.h"
#include "sidecars/apply/SidecarApplyPolicy.h"
#include "sidecars/discovery/SidecarDiscoveryService.h"
#include "sidecars/SidecarError.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>

using namespace folivox;
using namespace folivox::test;

namespace {

class DiscoveryTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    SidecarDiscoveryService service;

    QString path(const QString& name) const { return dir.filePath(name); }
    void write(const QString& name, const QByteArray& bytes) { ASSERT_TRUE(Fixtures::writeFile(path(name), bytes)); }
    void writeText(const QString& name, const QString& text) { write(name, text.toUtf8()); }
    QUrl url(const QString& name) const { return QUrl::fromLocalFile(path(name)); }
    QStringList names(const QList<QUrl>& urls) const
    {
        QStringList out;
        for (const QUrl& u : urls)
            out << QDir(dir.path()).relativeFilePath(u.toLocalFile());
        return out;
    }
};

const QString kThreeChapters = QStringLiteral("00:00:00.000 One\n00:01:00.000 Two\n00:02:00.000 Three\n");

} // namespace

TEST_F(DiscoveryTest, CandidatesBySuffixThenFolderScanEachOnce)
{
    write("book.mp3", {});
    write("other.m4a", {});
    writeText("BOOK.CUE", "FILE \"book.mp3\" MP3\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n");
    writeText("book-chapters.txt", kThreeChapters);
    writeText("book.ffmetadata", ";FFMETADATA1\n");
    writeText("other.chapters.txt", kThreeChapters);
    writeText("aaa.xml", "<Chapters/>");
    writeText("notes.txt", "prose");
    write("cover.jpg", "x");
    ASSERT_TRUE(QDir(dir.path()).mkdir("sub.cue")); // a folder, not a file

    const auto c = service.candidates({url("book.mp3"), url("other.m4a")});
    EXPECT_EQ(names(c), (QStringList{"BOOK.CUE", "book-chapters.txt", "book.ffmetadata", "other.chapters.txt",
                                     "aaa.xml", "notes.txt"}));
    EXPECT_EQ(service.listingCache().listedCount(), 1);
}

TEST_F(DiscoveryTest, ExactNameChapterListWinsAndIsHigh)
{
    write("Book.m4a", {});
    writeText("Book.chapters.txt", kThreeChapters);
    writeText("album.cue", "FILE \"Book.m4a\" WAVE\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nTRACK 02 AUDIO\nINDEX 01 01:00:00\n");
    writeText("readme.txt", "This folder holds a book.\n");

    const auto r = service.discover({url("Book.m4a")}, 180'000);
    ASSERT_TRUE(r.match.has_value());
    EXPECT_EQ(r.match->sidecarURL, url("Book.chapters.txt"));
    EXPECT_EQ(r.match->parseResult.format, SidecarFormat::mp4chaps);
    EXPECT_EQ(r.match->confidence, SidecarMatchConfidence::high);
    EXPECT_EQ(r.match->matchLayers.names(), (QStringList{"exactName", "duration", "sameFolder"}));
    EXPECT_EQ(titles(r.match->chapters), (QStringList{"One", "Two", "Three"}));
    EXPECT_EQ(r.discoveredFiles.size(), 3);
    EXPECT_TRUE(r.errors.isEmpty());

    const auto d = SidecarApplyPolicy::decide(r, false);
    EXPECT_EQ(d.action, SidecarApplyPolicy::Action::apply);
    EXPECT_EQ(d.reason, QStringLiteral("Using chapters from Book.chapters.txt (MP4 Chapters, 3 chapters): high "
                                       "confidence, score 80 (same name as the audio, length fits the audio, same folder)"));
    EXPECT_EQ(SidecarApplyPolicy::decide(r, true).action, SidecarApplyPolicy::Action::ignore);
}

TEST_F(DiscoveryTest, CueReferenceInTheSameFolderIsReportedNotApplied)
{
    write("book.mp3", {});
    writeText("album.cue", "FILE \"book.mp3\" MP3\nTRACK 01 AUDIO\n TITLE \"A\"\n INDEX 01 00:00:00\n"
                           "TRACK 02 AUDIO\n TITLE \"B\"\n INDEX 01 10:00:00\n");
    auto r = service.discover({url("book.mp3")}, 0);
    ASSERT_TRUE(r.match.has_value());
    EXPECT_EQ(r.match->score, 50);
    EXPECT_EQ(r.match->confidence, SidecarMatchConfidence::medium);
    const auto d = SidecarApplyPolicy::decide(r, false);
    EXPECT_EQ(d.action, SidecarApplyPolicy::Action::report);
    EXPECT_TRUE(d.reason.startsWith(QStringLiteral("Found album.cue (CUE Sheet, 2 chapters) but did not use it")));

    // With the audio's length known the span fits: 75 points, high.
    r = service.discover({url("book.mp3")}, 1'200'000);
    EXPECT_EQ(r.match->score, 75);
    EXPECT_EQ(SidecarApplyPolicy::decide(r, false).action, SidecarApplyPolicy::Action::apply);
}

TEST_F(DiscoveryTest, SizeLimitIsOneThousandKibibytes)
{
    write("a.mp3", {});
    QByteArray fits = kThreeChapters.toUtf8();
    fits.append(QByteArray(1'024'000 - fits.size(), ' '));
    write("fits.txt", fits);
    write("big.cue", QByteArray(1'024'001, ' '));

    EXPECT_EQ(service.readText(path("fits.txt")).size(), 1'024'000);
    try {
        service.readText(path("big.cue"));
        ADD_FAILURE() << "no error for 1,024,001 bytes";
    } catch (const SidecarError& e) {
        EXPECT_EQ(e.kind(), SidecarError::Kind::fileTooLarge);
        EXPECT_EQ(e.description(), QStringLiteral("Sidecar file too large: big.cue (1000 KB > 1 MB limit)"));
    }
    const auto r = service.discover({url("a.mp3")}, 0);
    EXPECT_EQ(r.errors, (QStringList{"Failed to read big.cue: Sidecar file too large: big.cue (1000 KB > 1 MB limit)"}));
    ASSERT_TRUE(r.match.has_value());
    EXPECT_EQ(r.match->sidecarURL, url("fits.txt"));
    EXPECT_EQ(r.discoveredFiles.size(), 2);
}

TEST_F(DiscoveryTest, LegacyEncodingsAndByteOrderMark)
{
    // Windows-1252: "Kapitel – Größe" with an en dash (0x96).
    write("w.txt", QByteArray("00:00:00.000 Kapitel \x96 Gr\xF6\xDF" "e\n"));
    EXPECT_EQ(service.readText(path("w.txt")), QStringLiteral("00:00:00.000 Kapitel – Größe\n"));
    // Mac OS Roman: 0x8D is "ç" there and undefined in Windows-1252.
    write("m.txt", QByteArray("00:00:00.000 Le gar\x8Don \xD0 fin\n"));
    EXPECT_EQ(service.readText(path("m.txt")), QStringLiteral("00:00:00.000 Le garçon – fin\n"));
    // UTF-8 with a byte order mark: the mark goes.
    write("u.txt", QByteArray("\xEF\xBB\xBF") + QStringLiteral("00:00:00.000 Ünïcode\n").toUtf8());
    EXPECT_EQ(service.readText(path("u.txt")), QStringLiteral("00:00:00.000 Ünïcode\n"));
}

TEST_F(DiscoveryTest, FileCacheAvoidsRereadingUntilTheFileChanges)
{
    write("book.mp3", {});
    writeText("book.chapters.txt", kThreeChapters);
    service.discover({url("book.mp3")}, 0);
    EXPECT_EQ(service.stats().filesRead(), 1);
    service.discover({url("book.mp3")}, 0);
    EXPECT_EQ(service.stats().filesRead(), 1);
    EXPECT_EQ(service.listingCache().listedCount(), 1);

    writeText("book.chapters.txt", kThreeChapters + QStringLiteral("00:03:00.000 Four\n"));
    const auto r = service.discover({url("book.mp3")}, 0);
    EXPECT_EQ(service.stats().filesRead(), 2);
    EXPECT_EQ(r.match->chapters.size(), 4);

    service.clearSidecarCache();
    EXPECT_EQ(service.fileCache().count(), 0);
    EXPECT_EQ(service.listingCache().listedCount(), 0);
    service.discover({url("book.mp3")}, 0);
    EXPECT_EQ(service.stats().filesRead(), 3);
    EXPECT_EQ(service.listingCache().listedCount(), 1);
}

TEST_F(DiscoveryTest, ManyAudioFilesListTheFolderOnce)
{
    QList<SidecarAudioInput> audio;
    for (int i = 0; i < 200; ++i) {
        const QString name = QStringLiteral("track%1.mp3").arg(i, 3, 10, QChar(u'0'));
        write(name, {});
        audio << SidecarAudioInput{url(name), 60'000};
    }
    writeText("track007.cue", "FILE \"track007.mp3\" MP3\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nTRACK 02 AUDIO\nINDEX 01 01:00:00\n");
    const auto r = service.discover(audio);
    EXPECT_EQ(service.listingCache().listedCount(), 1);
    ASSERT_TRUE(r.match.has_value());
    EXPECT_EQ(r.match->audioURL, url("track007.mp3"));
    EXPECT_EQ(r.match->confidence, SidecarMatchConfidence::high);
    EXPECT_EQ(SidecarDiscoveryService::totalDuration(audio), 12'000'000);
    audio[3].durationMs.reset();
    EXPECT_EQ(SidecarDiscoveryService::totalDuration(audio), 0);
}

TEST_F(DiscoveryTest, RejectedFilesStayListedAndNothingFoundIsQuiet)
{
    write("book.mp3", {});
    // Simple text (no mp4chaps line forms) with chapters 3 s apart: the strict
    // validation rejects it.
    writeText("list.txt", "[00:00] A\n[00:03] B\n");
    writeText("unknown.xml", "<html></html>");
    const auto r = service.discover({url("book.mp3")}, 0);
    EXPECT_FALSE(r.match.has_value());
    EXPECT_EQ(r.discoveredFiles.size(), 2);
    EXPECT_TRUE(r.errors.isEmpty());
    EXPECT_EQ(SidecarApplyPolicy::decide(r, false).reason,
              QStringLiteral("2 chapter file(s) found beside the audio, none usable"));

    QTemporaryDir empty;
    const auto none = service.discover({QUrl::fromLocalFile(empty.filePath("x.mp3"))}, 0);
    EXPECT_FALSE(none.match.has_value());
    EXPECT_TRUE(none.discoveredFiles.isEmpty());
    EXPECT_EQ(SidecarApplyPolicy::decide(none, false).reason, QStringLiteral("No chapter file found beside the audio"));
}

TEST_F(DiscoveryTest, DiscoverInFolderScansOnlyThatFolder)
{
    ASSERT_TRUE(QDir(dir.path()).mkdir("chapters"));
    write("book.mp3", {});
    writeText("chapters/book.cue", "FILE \"book.mp3\" MP3\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n");
    const auto r = service.discoverInFolder(path("chapters"), {url("book.mp3")}, 0);
    ASSERT_TRUE(r.match.has_value());
    // Exact name plus the referenced file, different folders.
    EXPECT_EQ(r.match->score, 75);
    EXPECT_EQ(r.discoveredFiles, (QList<QUrl>{url("chapters/book.cue")}));
}

TEST(SidecarFileCacheTest, LimitsByCountAndCost)
{
    SidecarFileCache cache;
    for (int i = 0; i < 60; ++i)
        cache.insert(QStringLiteral("k%1").arg(i), QStringLiteral("t"), 10);
    EXPECT_EQ(cache.count(), 50);
    EXPECT_FALSE(cache.text(QStringLiteral("k0")).has_value());
    EXPECT_TRUE(cache.text(QStringLiteral("k59")).has_value());

    cache.clear();
    for (int i = 0; i < 6; ++i)
        cache.insert(QStringLiteral("big%1").arg(i), QStringLiteral("t"), 1'000'000);
    EXPECT_EQ(cache.count(), 5);
    EXPECT_LE(cache.totalCost(), SidecarFileCache::kMaxTotalCost);
    // Recently used entries survive.
    ASSERT_TRUE(cache.text(QStringLiteral("big1")).has_value());
    cache.insert(QStringLiteral("big6"), QStringLiteral("t"), 1'000'000);
    EXPECT_TRUE(cache.text(QStringLiteral("big1")).has_value());
    EXPECT_FALSE(cache.text(QStringLiteral("big2")).has_value());
    cache.insert(QStringLiteral("huge"), QStringLiteral("t"), SidecarFileCache::kMaxTotalCost + 1);
    EXPECT_FALSE(cache.text(QStringLiteral("huge")).has_value());
}

TEST_F(DiscoveryTest, MatchRecordsRoundTripThroughJson)
{
    write("book.mp3", {});
    writeText("book.cue", "FILE \"book.mp3\" MP3\nTRACK 01 AUDIO\nINDEX 01 00:00:00\nTRACK 02 AUDIO\nINDEX 01 00:30:00\n"
                          "FILE \"other.mp3\" MP3\n");
    const auto r = service.discover({url("book.mp3")}, 60'000);
    ASSERT_TRUE(r.match.has_value());
    const QJsonObject json = r.match->toJson();
    EXPECT_EQ(json.value("confidence").toString(), QStringLiteral("high"));
    EXPECT_EQ(json.value("matchLayers").toInt(), 1 | 2 | 4 | 8);
    const auto back = SidecarMatchResult::fromJson(json);
    EXPECT_EQ(back.sidecarURL, r.match->sidecarURL);
    EXPECT_EQ(back.audioURL, r.match->audioURL);
    EXPECT_EQ(back.score, r.match->score);
    EXPECT_EQ(back.matchLayers, r.match->matchLayers);
    EXPECT_EQ(back.chapters, r.match->chapters);
    EXPECT_EQ(back.parseResult.warnings, r.match->parseResult.warnings);
    EXPECT_EQ(back.parseResult.referencedAudioFile, QStringLiteral("book.mp3"));
    EXPECT_EQ(back.parseResult.format, SidecarFormat::cue);
    EXPECT_EQ(r.match->parseResult.warnings.front().lineNumber, 6);
    EXPECT_EQ(SidecarDiscoveryResult{r}.toJson().value("discoveredFiles").toArray().size(), 1);

    QJsonObject broken = json;
    broken.insert("confidence", "certain");
    EXPECT_THROW(SidecarMatchResult::fromJson(broken), DecodingError);
}
