// Metadata writing on real books made by ffmpeg: the finished file read back
// by ffprobe, exiftool and mutagen, and every failure path with stand-in
// tools.
#include "support/Fixtures.h"
#include "support/MediaReaders.h"
#include "support/ScriptedTool.h"

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4File.h"
#include "process/BinaryResolver.h"
#include "export/metadata/CoverImageProcessor.h"
#include "export/metadata/DefaultMetadataWritingService.h"
#include "export/engine/ExportError.h"
#include "export/metadata/MP4ArtService.h"
#include "export/metadata/MP4TagsService.h"
#include "process/ManualCancellationToken.h"
#include "export/metadata/MetadataItemBuilder.h"
#include "export/metadata/MetadataWritingError.h"
#include "process/ToolLaunchError.h"
#include "platform/AppPaths.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

using namespace folivox;
using namespace folivox::test;

namespace {
QString realToolsDir()
{
    const auto path = BinaryResolver().find(QStringLiteral("mp4tags"));
    return path ? QFileInfo(*path).absolutePath() : QString();
}

QByteArray coverJpeg(int side = 800)
{
    QImage img(side, side, QImage::Format_RGB32);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
            img.setPixel(x, y, qRgb(x % 256, y % 256, 128));
    QByteArray png;
    QBuffer b(&png);
    b.open(QIODevice::WriteOnly);
    img.save(&b, "PNG");
    const auto processed = CoverImageProcessor::process(png, CoverSize::px600, CoverQuality::q80);
    return processed ? processed->bytes : QByteArray();
}

BookMetadata bookTags()
{
    BookMetadata m;
    m.title = QStringLiteral("The Test Book");
    m.author = QStringLiteral("Ada Author");
    m.narrator = QStringLiteral("Ned Narrator");
    m.seriesName = QStringLiteral("Tests");
    m.seriesIndex = SeriesIndex::parse(QStringLiteral("2.5"));
    m.albumUsesSeriesPrefix = true;
    m.language = QStringLiteral("de");
    m.year = QStringLiteral("2024");
    m.genre = QStringLiteral("Audiobook");
    m.comment = QStringLiteral("A comment");
    m.description = QStringLiteral("Short description");
    m.summary = QStringLiteral("A much longer summary of the book.");
    m.copyright = QStringLiteral("(c) 2024 Ada");
    m.publisher = QStringLiteral("Folio House");
    m.encodedBy = QStringLiteral("Tester");
    m.sortTitle = QStringLiteral("Test Book, The");
    m.sortAuthor = QStringLiteral("Author, Ada");
    return m;
}

QList<ChapterInfo> threeChapters()
{
    return {{QStringLiteral("Opening"), 0.0, {}}, {QStringLiteral("Middle — ü"), 4.0, {}}, {QStringLiteral("Ending"), 8.25, {}}};
}

QStringList topLevel(const QString& path)
{
    const MP4File f(path, MP4File::Access::read);
    QStringList types;
    for (const MP4BoxHeader& h : MP4BoxHeader::listTopLevel(f, f.size()))
        types << h.type;
    return types;
}

QString tag(const QJsonObject& probe, const char* key)
{
    return probe.value(QStringLiteral("format")).toObject().value(QStringLiteral("tags")).toObject().value(QLatin1String(key)).toString();
}

QStringList workFolders()
{
    return QDir(AppPaths::workRoot()).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

class MetadataWritingTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        tools = realToolsDir();
        ASSERT_FALSE(tools.isEmpty()) << "build the mp4tags, mp4art and mp4chaps targets";
    }

    // Three MP3 files joined and encoded into one AAC book by ffmpeg's ipod muxer.
    QString makeBook(const QString& name = QStringLiteral("book.m4b"))
    {
        QStringList args;
        for (int i = 0; i < 3; ++i) {
            const QString mp3 = dir.filePath(QStringLiteral("part%1.mp3").arg(i));
            if (!QFileInfo::exists(mp3)) {
                EXPECT_TRUE(Fixtures::tone(mp3, 4.0, {QStringLiteral("-c:a"), QStringLiteral("libmp3lame")}, 44100, 2, 300 + 200 * i));
            }
            args << QStringLiteral("-i") << mp3;
        }
        const QString out = dir.filePath(name);
        args << QStringLiteral("-filter_complex") << QStringLiteral("concat=n=3:v=0:a=1") << QStringLiteral("-c:a")
             << QStringLiteral("aac") << QStringLiteral("-b:a") << QStringLiteral("64k") << QStringLiteral("-f")
             << QStringLiteral("ipod") << out;
        EXPECT_TRUE(Fixtures::ffmpeg(args));
        return out;
    }

    // A tools folder with the real tools linked in and the named ones replaced by scripts.
    QString standIns(const QMap<QString, QString>& scripts)
    {
        const QString folder = dir.filePath(QStringLiteral("tools-%1").arg(++standInCount));
        QDir().mkpath(folder);
        for (const char* t : {"mp4tags", "mp4art", "mp4chaps"}) {
            const QString name = QString::fromLatin1(t);
            if (scripts.contains(name))
                ScriptedTool::write(folder, name, scripts.value(name));
            else
                QFile::link(QDir(tools).filePath(name), QDir(folder).filePath(name));
        }
        return folder;
    }

    QTemporaryDir dir;
    QString tools;
    int standInCount = 0;
};
} // namespace

TEST_F(MetadataWritingTest, FinishedBookReadsBackWithEveryReader)
{
    const QString book = makeBook();
    const QString md5Before = Fixtures::decodedMd5(book);
    ASSERT_FALSE(md5Before.isEmpty());
    const QStringList foldersBefore = workFolders();

    BookFinishRequest request;
    request.file = book;
    request.metadata = bookTags();
    request.chapters = threeChapters();
    request.coverImage = coverJpeg();
    ASSERT_FALSE(request.coverImage.isEmpty());
    LogCapture logs;
    DefaultMetadataWritingService().finishBook(request, CancellationToken::never());

    // Structure: M4B brand, moov ahead of the audio.
    const QStringList boxes = topLevel(book);
    ASSERT_TRUE(boxes.contains(QStringLiteral("moov")));
    EXPECT_LT(boxes.indexOf(QStringLiteral("moov")), boxes.indexOf(QStringLiteral("mdat")));
    EXPECT_EQ(Fixtures::readFile(book).mid(8, 4), QByteArray("M4B "));
    // The audio is what it was.
    EXPECT_EQ(Fixtures::decodedMd5(book), md5Before);

    // ffprobe: tags, cover stream, QuickTime chapters.
    const QJsonObject probe = MediaReaders::ffprobe(book);
    EXPECT_EQ(tag(probe, "major_brand"), QStringLiteral("M4B "));
    EXPECT_EQ(tag(probe, "title"), QStringLiteral("The Test Book"));
    EXPECT_EQ(tag(probe, "artist"), QStringLiteral("Ada Author"));
    EXPECT_EQ(tag(probe, "album_artist"), QStringLiteral("Ada Author"));
    EXPECT_EQ(tag(probe, "album"), QStringLiteral("Tests 2.5: The Test Book"));
    EXPECT_EQ(tag(probe, "composer"), QStringLiteral("Ned Narrator"));
    EXPECT_EQ(tag(probe, "date"), QStringLiteral("2024"));
    EXPECT_EQ(tag(probe, "genre"), QStringLiteral("Audiobook"));
    EXPECT_EQ(tag(probe, "comment"), QStringLiteral("A comment"));
    EXPECT_EQ(tag(probe, "description"), QStringLiteral("Short description"));
    EXPECT_EQ(tag(probe, "synopsis"), QStringLiteral("A much longer summary of the book."));
    EXPECT_EQ(tag(probe, "copyright"), QStringLiteral("(c) 2024 Ada"));
    EXPECT_EQ(tag(probe, "sort_name"), QStringLiteral("Test Book, The"));
    EXPECT_EQ(tag(probe, "sort_artist"), QStringLiteral("Author, Ada"));
    EXPECT_EQ(tag(probe, "media_type"), QStringLiteral("2"));
    bool sawAudio = false, sawCover = false;
    for (const auto& s : probe.value(QStringLiteral("streams")).toArray()) {
        const QJsonObject stream = s.toObject();
        if (stream.value(QStringLiteral("codec_type")) == QStringLiteral("audio")) {
            sawAudio = true;
            EXPECT_EQ(stream.value(QStringLiteral("tags")).toObject().value(QStringLiteral("language")).toString(), QStringLiteral("deu"));
        }
        if (stream.value(QStringLiteral("disposition")).toObject().value(QStringLiteral("attached_pic")).toInt() == 1)
            sawCover = true;
    }
    EXPECT_TRUE(sawAudio);
    EXPECT_TRUE(sawCover);
    const QJsonArray qtChapters = probe.value(QStringLiteral("chapters")).toArray();
    ASSERT_EQ(qtChapters.size(), 3);

    // mutagen: items, cover, freeform atoms, and the Nero chapters.
    const QJsonObject mp4 = MediaReaders::mutagenMp4(book);
    EXPECT_EQ(mp4.value(QStringLiteral("stik")).toArray().first().toInt(), 2);
    ASSERT_EQ(mp4.value(QStringLiteral("covr")).toArray().size(), 1);
    EXPECT_EQ(mp4.value(QStringLiteral("covr")).toArray().first().toObject().value(QStringLiteral("format")).toInt(), 13);
    EXPECT_EQ(mp4.value(QStringLiteral("covr")).toArray().first().toObject().value(QStringLiteral("size")).toInt(),
              request.coverImage.size());
    EXPECT_EQ(mp4.value(QStringLiteral("\u00A9nam")).toArray().first().toString(), QStringLiteral("The Test Book"));
    EXPECT_EQ(mp4.value(QStringLiteral("soar")).toArray().first().toString(), QStringLiteral("Author, Ada"));
    EXPECT_EQ(mp4.value(QStringLiteral("\u00A9enc")).toArray().first().toString(), QStringLiteral("Tester"));
    EXPECT_EQ(mp4.value(QStringLiteral("\u00A9grp")).toArray().first().toString(), QStringLiteral("Tests"));
    EXPECT_EQ(mp4.value(QStringLiteral("\u00A9lan")).toArray().first().toString(), QStringLiteral("de"));
    EXPECT_EQ(mp4.value(QStringLiteral("----:com.apple.iTunes:NARRATOR")).toArray().first().toString(), QStringLiteral("Ned Narrator"));
    EXPECT_EQ(mp4.value(QStringLiteral("----:com.apple.iTunes:SERIES")).toArray().first().toString(), QStringLiteral("Tests"));
    EXPECT_EQ(mp4.value(QStringLiteral("----:com.apple.iTunes:SERIES-PART")).toArray().first().toString(), QStringLiteral("2.5"));
    EXPECT_EQ(mp4.value(QStringLiteral("----:com.apple.iTunes:PUBLISHER")).toArray().first().toString(), QStringLiteral("Folio House"));
    EXPECT_EQ(mp4.value(QStringLiteral("----:com.apple.iTunes:LANGUAGE")).toArray().first().toString(), QStringLiteral("deu"));
    const QJsonArray nero = mp4.value(QStringLiteral("_chapters")).toArray();
    ASSERT_EQ(nero.size(), 3);

    // Both chapter kinds agree with what was asked, within 1 ms.
    const QList<ChapterInfo> expected = threeChapters();
    for (int i = 0; i < 3; ++i) {
        const QJsonObject qt = qtChapters.at(i).toObject();
        EXPECT_EQ(qt.value(QStringLiteral("tags")).toObject().value(QStringLiteral("title")).toString(), expected[i].title);
        EXPECT_NEAR(qt.value(QStringLiteral("start_time")).toString().toDouble(), expected[i].startTime, 0.001);
        EXPECT_EQ(nero.at(i).toArray().at(1).toString(), expected[i].title);
        EXPECT_NEAR(nero.at(i).toArray().at(0).toDouble(), qt.value(QStringLiteral("start_time")).toString().toDouble(), 0.001);
    }
    EXPECT_NEAR(qtChapters.last().toObject().value(QStringLiteral("end_time")).toString().toDouble(), 12.0, 0.05);

    // exiftool: the iTunes items, the chapter track and the Nero list.
    const QJsonObject exif = MediaReaders::exiftool(book);
    EXPECT_EQ(exif.value(QStringLiteral("ItemList:Title")).toString(), QStringLiteral("The Test Book"));
    EXPECT_EQ(exif.value(QStringLiteral("ItemList:MediaType")).toString(), QStringLiteral("Audiobook"));
    EXPECT_TRUE(exif.contains(QStringLiteral("ItemList:CoverArt")));
    EXPECT_EQ(exif.value(QStringLiteral("Track2:HandlerType")).toString(), QStringLiteral("Text"));
    EXPECT_EQ(exif.value(QStringLiteral("Track2:MediaLanguageCode")).toString(), QStringLiteral("deu"));
    EXPECT_EQ(exif.value(QStringLiteral("Track1:ChapterListTrackID")).toInt(), 2);
    EXPECT_EQ(exif.value(QStringLiteral("UserData:ChapterList")).toArray().size(), 3);
    const MediaReaders::Run texts = MediaReaders::run(QStringLiteral("exiftool"),
                                                      {QStringLiteral("-a"), QStringLiteral("-ee"), QStringLiteral("-s3"),
                                                       QStringLiteral("-Track2:Text"), book});
    EXPECT_EQ(QString::fromUtf8(texts.out).trimmed().split(u'\n'),
              (QStringList{QStringLiteral("Opening"), QStringLiteral("Middle — ü"), QStringLiteral("Ending")}));

    // The log tells the story, and nothing is left in the work folder.
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] writeMetadataAndChapters: ")));
    EXPECT_TRUE(logs.contains(QStringLiteral(" chapters (single-copy)")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] Copied M4B to temp in ")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4tags args: ")));
    EXPECT_TRUE(logs.contains(QStringLiteral("hasCover=true")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4tags OK in ")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4art --remove: skipped (fresh export output has no pre-existing art)")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4art --add OK in ")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4chaps (QuickTime) OK in ")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4chaps (Nero) OK in ")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] Metadata: copied back in ")));
    EXPECT_EQ(workFolders(), foldersBefore);
}

TEST_F(MetadataWritingTest, SecondPassOnAFinishedBookReplacesRatherThanDuplicates)
{
    const QString book = makeBook();
    BookFinishRequest request;
    request.file = book;
    request.metadata = bookTags();
    request.chapters = threeChapters();
    request.coverImage = coverJpeg();
    DefaultMetadataWritingService service;
    service.finishBook(request, CancellationToken::never());

    request.freshOutput = false;
    request.metadata.title = QStringLiteral("Renamed");
    request.chapters = {{QStringLiteral("Only"), 0.0, {}}, {QStringLiteral("Second"), 6.0, {}}};
    LogCapture logs;
    service.finishBook(request, CancellationToken::never());
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4art --remove: exit=0 in ")));

    const QJsonObject mp4 = MediaReaders::mutagenMp4(book);
    EXPECT_EQ(mp4.value(QStringLiteral("\u00A9nam")).toArray(), QJsonArray{QStringLiteral("Renamed")});
    EXPECT_EQ(mp4.value(QStringLiteral("covr")).toArray().size(), 1);
    EXPECT_EQ(mp4.value(QStringLiteral("_chapters")).toArray().size(), 2);
    const QJsonObject probe = MediaReaders::ffprobe(book);
    EXPECT_EQ(probe.value(QStringLiteral("chapters")).toArray().size(), 2);
    int dataStreams = 0;
    for (const auto& s : probe.value(QStringLiteral("streams")).toArray())
        if (s.toObject().value(QStringLiteral("codec_type")) == QStringLiteral("data"))
            ++dataStreams;
    EXPECT_EQ(dataStreams, 1);
}

TEST_F(MetadataWritingTest, EmptyChapterListRunsNoTool)
{
    const QString book = makeBook();
    const QByteArray before = Fixtures::readFile(book);
    const QString marker = dir.filePath(QStringLiteral("ran"));
    const QString body = QStringLiteral("touch '%1'\nexit 0").arg(marker);
    DefaultMetadataWritingService::Options options;
    options.toolsDirectories = QStringList{standIns({{QStringLiteral("mp4tags"), body}, {QStringLiteral("mp4art"), body},
                                                     {QStringLiteral("mp4chaps"), body}})};
    LogCapture logs;
    DefaultMetadataWritingService(options).writeChapters(book, {}, CancellationToken::never(), {});
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] skipping writeChapters: empty")));
    EXPECT_FALSE(QFileInfo::exists(marker));
    EXPECT_EQ(Fixtures::readFile(book), before);
}

TEST_F(MetadataWritingTest, RefusedCoverIsEmbeddedByTheFfmpegFallback)
{
    const QString book = makeBook();
    const QString folder = standIns({{QStringLiteral("mp4art"), QStringLiteral("echo 'mp4art: refused' >&2\nexit 1")}});
    ScopedEnvironment env("FOLIVOX_TOOLS_DIR", folder);
    BookFinishRequest request;
    request.file = book;
    request.metadata = bookTags();
    request.chapters = threeChapters();
    request.coverImage = coverJpeg();
    const QString md5Before = Fixtures::decodedMd5(book);
    LogCapture logs;
    DefaultMetadataWritingService().finishBook(request, CancellationToken::never());

    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4art --add FAILED: exit=1 stderr=mp4art: refused")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] Restoring backup and falling back to FFmpeg for cover embedding...")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] FFmpeg cover fallback OK in ")));
    const QJsonObject probe = MediaReaders::ffprobe(book);
    bool cover = false;
    for (const auto& s : probe.value(QStringLiteral("streams")).toArray())
        cover = cover || s.toObject().value(QStringLiteral("disposition")).toObject().value(QStringLiteral("attached_pic")).toInt() == 1;
    EXPECT_TRUE(cover);
    EXPECT_EQ(tag(probe, "title"), QStringLiteral("The Test Book"));
    EXPECT_EQ(tag(probe, "media_type"), QStringLiteral("2"));
    EXPECT_EQ(probe.value(QStringLiteral("chapters")).toArray().size(), 3);
    const QJsonObject mp4 = MediaReaders::mutagenMp4(book);
    EXPECT_EQ(mp4.value(QStringLiteral("covr")).toArray().size(), 1);
    EXPECT_EQ(mp4.value(QStringLiteral("_chapters")).toArray().size(), 3);
    EXPECT_EQ(Fixtures::decodedMd5(book), md5Before);
}

TEST_F(MetadataWritingTest, NeroFailureAfterQuickTimeFailsWithNeroPrefixAndLeavesTheBook)
{
    const QString book = makeBook();
    const QByteArray before = Fixtures::readFile(book);
    const QString realChaps = QDir(tools).filePath(QStringLiteral("mp4chaps"));
    DefaultMetadataWritingService::Options options;
    options.toolsDirectories = QStringList{standIns(
        {{QStringLiteral("mp4chaps"),
          QStringLiteral("case \"$*\" in *--chapter-nero*) echo 'mp4chaps: nero table broken' >&2; exit 3;; esac\nexec '%1' \"$@\"")
              .arg(realChaps)}})};
    LogCapture logs;
    try {
        DefaultMetadataWritingService(options).writeChapters(book, threeChapters(), CancellationToken::never(), {});
        FAIL() << "the Nero failure was not reported";
    } catch (const MetadataWritingError& e) {
        EXPECT_EQ(e.kind(), MetadataWritingError::Kind::mp4chapsFailed);
        EXPECT_TRUE(e.detail().startsWith(QStringLiteral("Nero: "))) << e.detail().toStdString();
        EXPECT_EQ(e.description(), QStringLiteral("mp4chaps failed: Nero: mp4chaps: nero table broken"));
    }
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4chaps (QuickTime) OK in ")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] mp4chaps (Nero) FAILED: exit=3 stderr=mp4chaps: nero table broken")));
    EXPECT_FALSE(logs.contains(QStringLiteral("copied back")));
    EXPECT_EQ(Fixtures::readFile(book), before);
}

TEST_F(MetadataWritingTest, MissingToolIsBinaryNotFoundAndNothingChanges)
{
    const QString book = makeBook();
    const QByteArray before = Fixtures::readFile(book);
    const QString empty = dir.filePath(QStringLiteral("no-tools"));
    QDir().mkpath(empty);
    ScopedEnvironment path("PATH", empty);
    DefaultMetadataWritingService::Options options;
    options.toolsDirectories = QStringList{empty};
    DefaultMetadataWritingService service(options);
    const QStringList foldersBefore = workFolders();

    BookFinishRequest request;
    request.file = book;
    request.metadata = bookTags();
    request.chapters = threeChapters();
    try {
        service.finishBook(request, CancellationToken::never());
        FAIL() << "a missing mp4tags went unnoticed";
    } catch (const MP4TagsService::Error& e) {
        EXPECT_EQ(e.kind(), MP4TagsService::Error::Kind::binaryNotFound);
        EXPECT_EQ(e.description(), QStringLiteral("mp4tags binary not found in app bundle"));
    }
    try {
        service.writeMetadata(book, {}, coverJpeg(), CancellationToken::never(), {});
        FAIL() << "a missing mp4art went unnoticed";
    } catch (const MP4ArtService::Error& e) {
        EXPECT_EQ(e.kind(), MP4ArtService::Error::Kind::binaryNotFound);
    }
    try {
        service.writeChapters(book, threeChapters(), CancellationToken::never(), {});
        FAIL() << "a missing mp4chaps went unnoticed";
    } catch (const ToolLaunchError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("mp4chaps binary not found in app bundle"));
    }
    EXPECT_EQ(Fixtures::readFile(book), before);
    EXPECT_EQ(workFolders(), foldersBefore);
}

TEST_F(MetadataWritingTest, DamageLeftByMp4tagsStartsTheTranscodeRetry)
{
    const QString book = makeBook();
    const QByteArray before = Fixtures::readFile(book);
    // Exits 0 after cutting the file short: the moov at the end is lost.
    const QString cut = QStringLiteral("for f; do :; done\nsize=$(wc -c < \"$f\")\ntruncate -s $((size - 200)) \"$f\"\nexit 0");
    DefaultMetadataWritingService::Options options;
    options.toolsDirectories = QStringList{standIns({{QStringLiteral("mp4tags"), cut}})};
    BookFinishRequest request;
    request.file = book;
    request.metadata = bookTags();
    request.chapters = threeChapters();
    LogCapture logs;
    try {
        DefaultMetadataWritingService(options).finishBook(request, CancellationToken::never());
        FAIL() << "the damage went unnoticed";
    } catch (const ExportError& e) {
        EXPECT_EQ(e.kind(), ExportError::Kind::corruptedSourceRequiresTranscode);
        EXPECT_EQ(e.detail(), QStringLiteral("mp4v2 corrupted moov atom on exotic MP4 container (mp4tags exit=0 but file unreadable)"));
    }
    EXPECT_TRUE(logs.contains(
        QStringLiteral("[MetadataWriting] mp4tags corrupted moov atom — triggering transcode retry for container normalization")));
    EXPECT_EQ(Fixtures::readFile(book), before);
}

TEST_F(MetadataWritingTest, FailingMp4tagsAndCancellationLeaveTheBook)
{
    const QString book = makeBook();
    const QByteArray before = Fixtures::readFile(book);
    DefaultMetadataWritingService::Options options;
    options.toolsDirectories = QStringList{standIns({{QStringLiteral("mp4tags"), QStringLiteral("echo 'mp4tags: no' >&2\nexit 2")}})};
    const QList<MetadataItem> items = MetadataItemBuilder::items(bookTags());
    try {
        DefaultMetadataWritingService(options).writeMetadata(book, items, {}, CancellationToken::never(), {});
        FAIL();
    } catch (const MetadataWritingError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("mp4tags failed: mp4tags: no"));
    }
    ManualCancellationToken cancelled;
    cancelled.cancel();
    try {
        DefaultMetadataWritingService().writeMetadata(book, items, {}, cancelled, {});
        FAIL();
    } catch (const ExportError& e) {
        EXPECT_EQ(e.kind(), ExportError::Kind::cancelled);
    }
    EXPECT_EQ(Fixtures::readFile(book), before);
}

TEST_F(MetadataWritingTest, LargeBookGoesThroughOneFfmpegCopyPass)
{
    const QString book = makeBook();
    const QString md5Before = Fixtures::decodedMd5(book);
    DefaultMetadataWritingService::Options options;
    options.largeBookMoovBytes = 1; // every book counts as large here
    // The tools must not run on this path.
    options.toolsDirectories = QStringList{standIns({{QStringLiteral("mp4tags"), QStringLiteral("exit 9")},
                                                     {QStringLiteral("mp4art"), QStringLiteral("exit 9")},
                                                     {QStringLiteral("mp4chaps"), QStringLiteral("exit 9")}})};
    BookFinishRequest request;
    request.file = book;
    request.metadata = bookTags();
    request.chapters = threeChapters();
    request.coverImage = coverJpeg();
    LogCapture logs;
    DefaultMetadataWritingService(options).finishBook(request, CancellationToken::never());
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] large book — routing metadata write through memory-safe FFmpeg -c copy path")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] ffmpeg cmd: ")));
    EXPECT_TRUE(logs.contains(QStringLiteral("-map_metadata 1 -map_chapters 1 -c copy")));
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] ffmpeg pass OK in ")));

    const QJsonObject probe = MediaReaders::ffprobe(book);
    EXPECT_EQ(tag(probe, "major_brand"), QStringLiteral("M4B "));
    EXPECT_EQ(tag(probe, "title"), QStringLiteral("The Test Book"));
    EXPECT_EQ(tag(probe, "album"), QStringLiteral("Tests 2.5: The Test Book"));
    EXPECT_EQ(tag(probe, "media_type"), QStringLiteral("2"));
    const QJsonArray chapters = probe.value(QStringLiteral("chapters")).toArray();
    ASSERT_EQ(chapters.size(), 3);
    EXPECT_NEAR(chapters.at(2).toObject().value(QStringLiteral("start_time")).toString().toDouble(), 8.25, 0.001);
    const QJsonObject mp4 = MediaReaders::mutagenMp4(book);
    EXPECT_EQ(mp4.value(QStringLiteral("covr")).toArray().size(), 1);
    EXPECT_EQ(mp4.value(QStringLiteral("----:com.apple.iTunes:NARRATOR")).toArray().first().toString(), QStringLiteral("Ned Narrator"));
    const QStringList boxes = topLevel(book);
    EXPECT_LT(boxes.indexOf(QStringLiteral("moov")), boxes.indexOf(QStringLiteral("mdat")));
    EXPECT_EQ(Fixtures::decodedMd5(book), md5Before);
}

TEST_F(MetadataWritingTest, PerChapterM4aGetsTrackNumberAndCover)
{
    const QString file = makeBook(QStringLiteral("01 - Opening.m4a"));
    BookFinishRequest request;
    request.file = file;
    request.metadata = bookTags();
    request.coverImage = coverJpeg();
    request.placement = FilePlacement::track(QStringLiteral("Opening"), 1, 14);
    DefaultMetadataWritingService().finishBook(request, CancellationToken::never());
    const QJsonObject mp4 = MediaReaders::mutagenMp4(file);
    EXPECT_EQ(mp4.value(QStringLiteral("trkn")).toArray().first().toArray(), (QJsonArray{1, 14}));
    EXPECT_EQ(mp4.value(QStringLiteral("\u00A9nam")).toArray(), QJsonArray{QStringLiteral("Opening")});
    EXPECT_EQ(mp4.value(QStringLiteral("\u00A9alb")).toArray(), QJsonArray{QStringLiteral("Tests 2.5: The Test Book")});
    EXPECT_EQ(mp4.value(QStringLiteral("covr")).toArray().size(), 1);
    EXPECT_EQ(mp4.value(QStringLiteral("stik")).toArray().first().toInt(), 2);
    // An M4A keeps its own brand.
    EXPECT_NE(Fixtures::readFile(file).mid(8, 4), QByteArray("M4B "));
}

TEST_F(MetadataWritingTest, Mp3OutputGetsId3v24WithCoverAndTrackNumber)
{
    const QString mp3 = dir.filePath(QStringLiteral("02 - Middle.mp3"));
    ASSERT_TRUE(Fixtures::tone(mp3, 3.0, {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-id3v2_version"),
                                          QStringLiteral("3"), QStringLiteral("-metadata"), QStringLiteral("title=old")}));
    const QString md5Before = Fixtures::decodedMd5(mp3);
    BookFinishRequest request;
    request.file = mp3;
    request.metadata = bookTags();
    request.coverImage = coverJpeg();
    request.placement = FilePlacement::disc(QStringLiteral("The Test Book (Part 2)"), 2, 9);
    request.chapters = threeChapters();
    DefaultMetadataWritingService().finishBook(request, CancellationToken::never());

    const QJsonObject id3 = MediaReaders::mutagenId3(mp3);
    EXPECT_EQ(id3.value(QStringLiteral("_version")).toArray(), (QJsonArray{2, 4, 0}));
    EXPECT_EQ(id3.value(QStringLiteral("TIT2")).toArray(), QJsonArray{QStringLiteral("The Test Book (Part 2)")});
    EXPECT_EQ(id3.value(QStringLiteral("TPE1")).toArray(), QJsonArray{QStringLiteral("Ada Author")});
    EXPECT_EQ(id3.value(QStringLiteral("TALB")).toArray(), QJsonArray{QStringLiteral("Tests 2.5: The Test Book")});
    EXPECT_EQ(id3.value(QStringLiteral("TPOS")).toArray(), QJsonArray{QStringLiteral("2/9")});
    EXPECT_FALSE(id3.contains(QStringLiteral("TRCK")));
    EXPECT_EQ(id3.value(QStringLiteral("TLAN")).toArray(), QJsonArray{QStringLiteral("deu")});
    EXPECT_EQ(id3.value(QStringLiteral("TXXX:NARRATOR")).toArray(), QJsonArray{QStringLiteral("Ned Narrator")});
    EXPECT_EQ(id3.value(QStringLiteral("APIC")).toObject().value(QStringLiteral("mime")).toString(), QStringLiteral("image/jpeg"));
    EXPECT_EQ(id3.value(QStringLiteral("APIC")).toObject().value(QStringLiteral("type")).toInt(), 3);
    EXPECT_EQ(id3.value(QStringLiteral("APIC")).toObject().value(QStringLiteral("size")).toInt(), request.coverImage.size());
    EXPECT_FALSE(id3.contains(QStringLiteral("CHAP")));
    EXPECT_EQ(Fixtures::decodedMd5(mp3), md5Before);
}

TEST_F(MetadataWritingTest, BuildOutputInsideTheWorkFolderIsEditedWhereItLies)
{
    // A build's own output in its FolivoxWork folder: no working copy, and a
    // refused cover still rolls back to the snapshot and goes in by ffmpeg.
    WorkDirectory buildFolder;
    const QString made = makeBook(QStringLiteral("made.m4b"));
    const QString book = buildFolder.filePath(QStringLiteral("book.m4b"));
    ASSERT_TRUE(QFile::copy(made, book));
    const QString md5Before = Fixtures::decodedMd5(book);
    const QString folder = standIns({{QStringLiteral("mp4art"), QStringLiteral("echo 'mp4art: refused' >&2\nexit 1")}});
    ScopedEnvironment env("FOLIVOX_TOOLS_DIR", folder);
    BookFinishRequest request;
    request.file = book;
    request.metadata = bookTags();
    request.chapters = threeChapters();
    request.coverImage = coverJpeg();
    {
        LogCapture logs;
        DefaultMetadataWritingService().finishBook(request, CancellationToken::never());
        EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] Editing build output in place (no working copy): book.m4b")));
        EXPECT_FALSE(logs.contains(QStringLiteral("Copied M4B to temp")));
        EXPECT_FALSE(logs.contains(QStringLiteral("copied back in")));
        EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] FFmpeg cover fallback OK in ")));
    }
    EXPECT_EQ(QDir(buildFolder.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"book.m4b"});
    EXPECT_EQ(Fixtures::decodedMd5(book), md5Before);
    const QJsonObject probe = MediaReaders::ffprobe(book);
    EXPECT_EQ(tag(probe, "title"), QStringLiteral("The Test Book"));
    EXPECT_EQ(probe.value(QStringLiteral("chapters")).toArray().size(), 3);
    EXPECT_EQ(MediaReaders::mutagenMp4(book).value(QStringLiteral("covr")).toArray().size(), 1);

    // The same request on a book outside the work folder goes through a copy.
    LogCapture logs;
    request.file = made;
    DefaultMetadataWritingService().finishBook(request, CancellationToken::never());
    EXPECT_TRUE(logs.contains(QStringLiteral("[MetadataWriting] Copied M4B to temp in ")));
    EXPECT_FALSE(logs.contains(QStringLiteral("Editing build output in place")));
}
