// The mp4tags, mp4art and mp4chaps programs on books written by ffmpeg, read
// back by ffprobe, exiftool and mutagen.
#include "support/Fixtures.h"
#include "support/MediaReaders.h"

#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4Bytes.h"
#include "container/io/FaultInjection.h"
#include "container/mp4/MP4MoovReader.h"
#include "tools/ArtCommand.h"
#include "tools/ChapsCommand.h"
#include "tools/TagsCommand.h"
#include "tools/ChapterListFile.h"
#include "tools/IlstEditor.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <sys/wait.h>
#include <unistd.h>

using namespace folivox;
using namespace folivox::test;

namespace {
QString toolPath(const char* name)
{
    QString dir = qEnvironmentVariable("FOLIVOX_TOOLS_DIR");
    if (dir.isEmpty())
        dir = QCoreApplication::applicationDirPath();
    return QDir(dir).filePath(QString::fromLatin1(name));
}

MediaReaders::Run tool(const char* name, const QStringList& args)
{
    return MediaReaders::run(toolPath(name), args);
}

// Runs a tool command in a child process that dies on the spot (as if
// killed) when it reaches the fault point `point`; true when it died there.
bool killedAt(const QString& point, const std::function<int(QTextStream&, QTextStream&)>& command)
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        FaultInjection::Scope hook([&](const QString& reached) {
            if (reached == point)
                ::_exit(42);
        });
        QString out;
        QString err;
        QTextStream o(&out);
        QTextStream e(&err);
        ::_exit(command(o, e) == 0 ? 3 : 2);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 42;
}

QStringList chapterTitles(const QJsonObject& probe)
{
    QStringList titles;
    for (const auto& c : probe.value(QStringLiteral("chapters")).toArray())
        titles << c.toObject().value(QStringLiteral("tags")).toObject().value(QStringLiteral("title")).toString();
    return titles;
}

int dataStreams(const QJsonObject& probe)
{
    int n = 0;
    for (const auto& s : probe.value(QStringLiteral("streams")).toArray())
        if (s.toObject().value(QStringLiteral("codec_type")) == QStringLiteral("data"))
            ++n;
    return n;
}

class ToolsOnRealFiles : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        ASSERT_TRUE(QFileInfo(toolPath("mp4tags")).isExecutable()) << "build the tool targets first";
        book = dir.filePath(QStringLiteral("book.m4b"));
        ASSERT_TRUE(Fixtures::tone(book, 30.0, {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"),
                                                QStringLiteral("48k"), QStringLiteral("-f"), QStringLiteral("ipod")}));
        md5 = Fixtures::decodedMd5(book);
        ASSERT_FALSE(md5.isEmpty());
    }
    QTemporaryDir dir;
    QString book;
    QString md5;
};
} // namespace

TEST_F(ToolsOnRealFiles, TagsTwiceLeaveOneOfEachAndReadBack)
{
    const QStringList args{QStringLiteral("-song"), QStringLiteral("Song Ü"), QStringLiteral("-artist"), QStringLiteral("Artist"),
                           QStringLiteral("-albumartist"), QStringLiteral("Album Artist"), QStringLiteral("-album"),
                           QStringLiteral("Album"), QStringLiteral("-year"), QStringLiteral("2001"), QStringLiteral("-genre"),
                           QStringLiteral("Spoken"), QStringLiteral("-comment"), QStringLiteral("Note"), QStringLiteral("-writer"),
                           QStringLiteral("Writer"), QStringLiteral("-description"), QStringLiteral("Desc"), QStringLiteral("-longdesc"),
                           QStringLiteral("Long desc"), QStringLiteral("-copyright"), QStringLiteral("Copy"), QStringLiteral("-type"),
                           QStringLiteral("audiobook"), QStringLiteral("-track"), QStringLiteral("2"), QStringLiteral("-tracks"),
                           QStringLiteral("5"), QStringLiteral("-sortalbumartist"), QStringLiteral("Artist, Album"), book};
    for (int i = 0; i < 2; ++i) {
        const auto r = tool("mp4tags", args);
        ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    }
    const QJsonObject mp4 = MediaReaders::mutagenMp4(book);
    EXPECT_EQ(mp4.value(QStringLiteral("\u00A9nam")).toArray(), QJsonArray{QStringLiteral("Song Ü")});
    EXPECT_EQ(mp4.value(QStringLiteral("stik")).toArray(), QJsonArray{2});
    EXPECT_EQ(mp4.value(QStringLiteral("trkn")).toArray().first().toArray(), (QJsonArray{2, 5}));
    EXPECT_EQ(mp4.value(QStringLiteral("ldes")).toArray(), QJsonArray{QStringLiteral("Long desc")});
    EXPECT_EQ(mp4.value(QStringLiteral("soaa")).toArray(), QJsonArray{QStringLiteral("Artist, Album")});

    // Each item once in the file.
    const MP4BoxTree::Node moov = MP4BoxTree::parse(MP4MoovReader::read(book).data);
    const MP4BoxTree::Node* ilst = MP4BoxTree::find(const_cast<MP4BoxTree::Node&>(moov),
                                                    {MP4Bytes::fourCC("udta"), MP4Bytes::fourCC("meta"), MP4Bytes::fourCC("ilst")});
    ASSERT_NE(ilst, nullptr);
    for (const MP4BoxTree::Node& item : ilst->children)
        EXPECT_EQ(ilst->count(item.type), 1) << item.typeText().toStdString();

    const QJsonObject exif = MediaReaders::exiftool(book);
    EXPECT_EQ(exif.value(QStringLiteral("ItemList:Title")).toString(), QStringLiteral("Song Ü"));
    EXPECT_EQ(exif.value(QStringLiteral("ItemList:MediaType")).toString(), QStringLiteral("Audiobook"));
    EXPECT_EQ(exif.value(QStringLiteral("ItemList:TrackNumber")).toString(), QStringLiteral("2 of 5"));
    const QJsonObject probe = MediaReaders::ffprobe(book);
    EXPECT_EQ(probe.value(QStringLiteral("format")).toObject().value(QStringLiteral("tags")).toObject().value(QStringLiteral("album_artist")),
              QStringLiteral("Album Artist"));
    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
}

TEST_F(ToolsOnRealFiles, CoverAddedThenRemovedLeavesNoCovr)
{
    const QString jpg = dir.filePath(QStringLiteral("cover.jpg"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                  QStringLiteral("testsrc=size=320x320"), QStringLiteral("-frames:v"), QStringLiteral("1"), jpg}));
    ASSERT_EQ(tool("mp4art", {QStringLiteral("--add"), jpg, book}).exitCode, 0);
    QJsonObject mp4 = MediaReaders::mutagenMp4(book);
    ASSERT_EQ(mp4.value(QStringLiteral("covr")).toArray().size(), 1);
    EXPECT_EQ(mp4.value(QStringLiteral("covr")).toArray().first().toObject().value(QStringLiteral("size")).toInt(),
              Fixtures::readFile(jpg).size());
    EXPECT_TRUE(MediaReaders::exiftool(book).contains(QStringLiteral("ItemList:CoverArt")));

    ASSERT_EQ(tool("mp4art", {QStringLiteral("--remove"), book}).exitCode, 0);
    mp4 = MediaReaders::mutagenMp4(book);
    EXPECT_FALSE(mp4.contains(QStringLiteral("covr")));
    EXPECT_FALSE(MediaReaders::exiftool(book).contains(QStringLiteral("ItemList:CoverArt")));
    EXPECT_FALSE(Fixtures::readFile(book).contains("covr"));
    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
}

TEST_F(ToolsOnRealFiles, ChaptersImportRemoveImportAndThreeHundred)
{
    const QString list = ChapterListFile::pathFor(book);
    ASSERT_TRUE(Fixtures::writeFile(list, "00:00:00.000 Alpha\n00:00:10.000 Beta\n00:00:20.500 Gamma\n"));
    ASSERT_EQ(tool("mp4chaps", {QStringLiteral("--import"), book}).exitCode, 0);
    ASSERT_EQ(tool("mp4chaps", {QStringLiteral("--remove"), book}).exitCode, 0);
    QJsonObject exif = MediaReaders::exiftool(book);
    EXPECT_FALSE(exif.contains(QStringLiteral("Track1:ChapterListTrackID")));
    EXPECT_FALSE(exif.contains(QStringLiteral("UserData:ChapterList")));
    EXPECT_EQ(MediaReaders::ffprobe(book).value(QStringLiteral("chapters")).toArray().size(), 0);

    ASSERT_EQ(tool("mp4chaps", {QStringLiteral("--import"), book}).exitCode, 0);
    QJsonObject probe = MediaReaders::ffprobe(book);
    EXPECT_EQ(dataStreams(probe), 1);
    const QJsonArray chapters = probe.value(QStringLiteral("chapters")).toArray();
    ASSERT_EQ(chapters.size(), 3);
    EXPECT_EQ(chapters.at(1).toObject().value(QStringLiteral("tags")).toObject().value(QStringLiteral("title")), QStringLiteral("Beta"));
    EXPECT_EQ(chapters.at(2).toObject().value(QStringLiteral("start_time")).toString(), QStringLiteral("20.500000"));
    EXPECT_NEAR(chapters.at(2).toObject().value(QStringLiteral("end_time")).toString().toDouble(), 30.0, 0.05);
    exif = MediaReaders::exiftool(book);
    // The removed track's ID is not reused: mvhd's next track ID had moved on.
    EXPECT_EQ(exif.value(QStringLiteral("Track1:ChapterListTrackID")).toInt(), 3);
    EXPECT_EQ(exif.value(QStringLiteral("Track2:TrackID")).toInt(), 3);

    // 300 chapters: all in the QuickTime track, the first 255 in Nero.
    QByteArray text;
    for (int i = 0; i < 300; ++i)
        text += ChapterListFile::formatTime(std::int64_t(i) * 100).toUtf8() + " Section " + QByteArray::number(i + 1) + "\n";
    ASSERT_TRUE(Fixtures::writeFile(list, text));
    ASSERT_EQ(tool("mp4chaps", {QStringLiteral("-i"), book}).exitCode, 0);
    probe = MediaReaders::ffprobe(book);
    EXPECT_EQ(dataStreams(probe), 1);
    EXPECT_EQ(probe.value(QStringLiteral("chapters")).toArray().size(), 300);
    const QJsonArray nero = MediaReaders::mutagenMp4(book).value(QStringLiteral("_chapters")).toArray();
    ASSERT_EQ(nero.size(), 255);
    EXPECT_EQ(nero.last().toArray().at(1).toString(), QStringLiteral("Section 255"));
    EXPECT_NEAR(nero.last().toArray().at(0).toDouble(), 25.4, 0.0005);
    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
}

TEST_F(ToolsOnRealFiles, BadInputExitsNonZeroWithOneLineAndNoChange)
{
    const QByteArray before = Fixtures::readFile(book);
    // A chapter list that cannot be read (a folder in its place).
    QDir().mkpath(ChapterListFile::pathFor(book));
    auto r = tool("mp4chaps", {QStringLiteral("--import"), book});
    EXPECT_NE(r.exitCode, 0);
    EXPECT_EQ(r.err.count('\n'), 1) << r.err.toStdString();
    EXPECT_TRUE(r.err.startsWith("mp4chaps: book.chapters.txt: cannot read the chapter list")) << r.err.toStdString();

    // A WAV file is not an MP4.
    const QString wav = dir.filePath(QStringLiteral("sound.m4b"));
    ASSERT_TRUE(Fixtures::tone(wav, 1.0, {QStringLiteral("-f"), QStringLiteral("wav")}));
    const QByteArray wavBytes = Fixtures::readFile(wav);
    for (const auto& run : {tool("mp4tags", {QStringLiteral("-song"), QStringLiteral("x"), wav}),
                            tool("mp4art", {QStringLiteral("--remove"), wav}), tool("mp4chaps", {QStringLiteral("-r"), wav})}) {
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_TRUE(run.err.endsWith(": sound.m4b: not an MP4 file\n")) << run.err.toStdString();
    }
    EXPECT_EQ(Fixtures::readFile(wav), wavBytes);

    // A book cut short inside its moov.
    const QString cut = dir.filePath(QStringLiteral("cut.m4b"));
    const QByteArray shortened = before.left(before.size() - 100);
    ASSERT_TRUE(Fixtures::writeFile(cut, shortened));
    r = tool("mp4tags", {QStringLiteral("-song"), QStringLiteral("x"), cut});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err.count('\n'), 1);
    EXPECT_EQ(Fixtures::readFile(cut), shortened);

    EXPECT_EQ(tool("mp4art", {QStringLiteral("--add"), dir.filePath(QStringLiteral("missing.jpg")), book}).exitCode, 1);
    EXPECT_EQ(tool("mp4tags", {book}).exitCode, 2);
    EXPECT_EQ(Fixtures::readFile(book), before);
}

TEST_F(ToolsOnRealFiles, AToolKilledAtAnyStepLeavesTheOldOrTheNewBook)
{
    const QString list = ChapterListFile::pathFor(book);
    const QString jpg = dir.filePath(QStringLiteral("cover.jpg"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                  QStringLiteral("testsrc=size=200x200"), QStringLiteral("-frames:v"), QStringLiteral("1"), jpg}));
    ASSERT_TRUE(Fixtures::writeFile(list, "00:00:00.000 Alpha\n00:00:10.000 Beta\n00:00:20.000 Gamma\n"));
    ASSERT_EQ(tool("mp4chaps", {QStringLiteral("--import"), book}).exitCode, 0);
    ASSERT_EQ(tool("mp4tags", {QStringLiteral("-song"), QStringLiteral("Old title"), book}).exitCode, 0);
    const QByteArray start = Fixtures::readFile(book);
    const QStringList oldChapters{QStringLiteral("Alpha"), QStringLiteral("Beta"), QStringLiteral("Gamma")};

    struct Case {
        QString name;
        std::function<int(QTextStream&, QTextStream&)> command;
        QStringList newChapters;
        QString newTitle;
        bool newCover;
    };
    const QString newList = dir.filePath(QStringLiteral("new.chapters.txt"));
    ASSERT_TRUE(Fixtures::writeFile(newList, "00:00:00.000 One\n00:00:15.000 Two\n"));
    const QList<Case> cases{
        {QStringLiteral("mp4chaps --remove"),
         [&](QTextStream& o, QTextStream& e) { return ChapsCommand::run({QStringLiteral("--remove"), book}, o, e); }, {},
         QStringLiteral("Old title"), false},
        {QStringLiteral("mp4chaps --import"),
         [&](QTextStream& o, QTextStream& e) { return ChapsCommand::run({QStringLiteral("--import"), book}, o, e); },
         {QStringLiteral("One"), QStringLiteral("Two")}, QStringLiteral("Old title"), false},
        {QStringLiteral("mp4tags with a long value"),
         [&](QTextStream& o, QTextStream& e) {
             return TagsCommand::run({QStringLiteral("-song"), QString(20000, u'N'), book}, o, e);
         },
         oldChapters, QString(20000, u'N'), false},
        {QStringLiteral("mp4art --add"),
         [&](QTextStream& o, QTextStream& e) { return ArtCommand::run({QStringLiteral("--add"), jpg, book}, o, e); },
         oldChapters, QStringLiteral("Old title"), true},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(Fixtures::writeFile(book, start));
        ASSERT_TRUE(Fixtures::writeFile(list, Fixtures::readFile(newList)));
        QStringList points;
        {
            FaultInjection::Scope record([&](const QString& p) { points << p; });
            QString out;
            QString err;
            QTextStream o(&out);
            QTextStream e(&err);
            ASSERT_EQ(c.command(o, e), 0) << err.toStdString();
        }
        ASSERT_TRUE(points.contains(QStringLiteral("rewrite.switched"))) << c.name.toStdString();
        for (const QString& point : points) {
            const std::string where = (c.name + QStringLiteral(" killed at ") + point).toStdString();
            ASSERT_TRUE(Fixtures::writeFile(book, start));
            ASSERT_TRUE(killedAt(point, c.command)) << where;
            const bool switched = points.indexOf(point) >= points.indexOf(QStringLiteral("rewrite.switched"));
            const QJsonObject probe = MediaReaders::ffprobe(book);
            EXPECT_EQ(chapterTitles(probe), switched ? c.newChapters : oldChapters) << where;
            EXPECT_EQ(Fixtures::decodedMd5(book), md5) << where;
            const QJsonObject mp4 = MediaReaders::mutagenMp4(book);
            EXPECT_EQ(mp4.value(QStringLiteral("\u00A9nam")).toArray().first().toString(),
                      switched ? c.newTitle : QStringLiteral("Old title"))
                << where;
            EXPECT_EQ(mp4.contains(QStringLiteral("covr")), switched && c.newCover) << where;
            EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).filter(QStringLiteral(".tmp")), QStringList()) << where;
        }
    }
}
