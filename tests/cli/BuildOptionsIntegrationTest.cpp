// Options that make `folivox build` safe and predictable in scripts: an
// existing output is kept unless -f, --dry-run writes nothing, preset names
// in any case, and "-" is no path.
#include "support/CommandRunner.h"
#include "support/Fixtures.h"
#include "support/MediaReaders.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QStandardPaths>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::CommandRun;
using folivox::test::CommandRunner;
using folivox::test::Fixtures;

namespace {

class BuildOptions : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (CommandRunner::folivoxBinary().isEmpty())
            GTEST_SKIP() << "the folivox command is not built";
        ASSERT_TRUE(dir_.isValid());
        for (const char* name : {"in/1.mp3", "in/2.mp3"})
            ASSERT_TRUE(Fixtures::tone(path(QString::fromLatin1(name)), 2.0,
                                       {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"),
                                        QStringLiteral("64k")},
                                       44100, 1));
    }
    QString path(const QString& name) const { return dir_.filePath(name); }
    CommandRun folivox(const QStringList& args) const { return CommandRunner::run(args, dir_.path()); }
    QStringList entries() const
    {
        QStringList found;
        QDirIterator it(dir_.path(), QDir::Files | QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        while (it.hasNext())
            found << it.next();
        found.sort();
        return found;
    }

    QTemporaryDir dir_;
};

} // namespace

TEST_F(BuildOptions, AnExistingOutputIsReplacedOnlyWithForce)
{
    const QString book = path(QStringLiteral("Book.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(book, "the user's own book"));
    const CommandRun kept = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), book, QStringLiteral("-q")});
    EXPECT_EQ(kept.exitCode, 1);
    EXPECT_TRUE(kept.errText().contains(book)) << kept.errText().toStdString();
    EXPECT_TRUE(kept.errText().contains(QStringLiteral("--force")));
    EXPECT_EQ(Fixtures::readFile(book), QByteArray("the user's own book"));

    const CommandRun forced = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), book, QStringLiteral("-q"),
                                       QStringLiteral("-f")});
    ASSERT_EQ(forced.exitCode, 0) << forced.errText().toStdString();
    EXPECT_NEAR(Fixtures::decodedDuration(book), 4.0, 0.15);

    // Per-chapter output: a folder that already holds audio is kept too.
    const QString folder = path(QStringLiteral("chapters"));
    ASSERT_TRUE(Fixtures::writeFile(folder + QStringLiteral("/01 Old.mp3"), "old"));
    const CommandRun keptFolder = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("--format"),
                                           QStringLiteral("mp3"), QStringLiteral("-o"), folder, QStringLiteral("-q")});
    EXPECT_EQ(keptFolder.exitCode, 1);
    EXPECT_EQ(QDir(folder).entryList(QDir::Files), QStringList{QStringLiteral("01 Old.mp3")});
}

TEST_F(BuildOptions, DryRunPrintsThePlanAndWritesNothing)
{
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("marks.txt")), "00:00:00.000 Opening\n00:00:03.000 Later\n"));
    const QStringList before = entries();
    const CommandRun r = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("--chapters"),
                                  path(QStringLiteral("marks.txt")), QStringLiteral("--dry-run"), QStringLiteral("--json"),
                                  QStringLiteral("--preset"), QStringLiteral("SPACESAVER")});
    ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
    const QJsonObject plan = r.json();
    EXPECT_EQ(plan.value(QStringLiteral("status")).toString(), QStringLiteral("planned")) << r.out.toStdString();
    const QJsonArray inputs = plan.value(QStringLiteral("inputs")).toArray();
    ASSERT_EQ(inputs.size(), 2);
    EXPECT_TRUE(inputs[0].toString().endsWith(QStringLiteral("/1.mp3")));
    const QJsonArray chapters = plan.value(QStringLiteral("chapters")).toArray();
    ASSERT_EQ(chapters.size(), 2);
    EXPECT_EQ(chapters[1].toObject().value(QStringLiteral("title")).toString(), QStringLiteral("Later"));
    EXPECT_DOUBLE_EQ(chapters[1].toObject().value(QStringLiteral("start")).toDouble(), 3.0);
    EXPECT_EQ(plan.value(QStringLiteral("strategy")).toString(), QStringLiteral("transcode"));
    EXPECT_FALSE(plan.value(QStringLiteral("reasons")).toArray().isEmpty());
    EXPECT_EQ(plan.value(QStringLiteral("outputPath")).toString(), path(QStringLiteral("in.m4b")));
    EXPECT_EQ(entries(), before);
}

TEST_F(BuildOptions, PresetNamesAndDashPathsAreCheckedWithHelpfulMessages)
{
    const CommandRun badPreset = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("--preset"),
                                          QStringLiteral("tiny")});
    EXPECT_EQ(badPreset.exitCode, 2);
    EXPECT_TRUE(badPreset.errText().contains(QStringLiteral("spaceSaver"))) << badPreset.errText().toStdString();
    for (const QStringList& args : {QStringList{QStringLiteral("build"), QStringLiteral("-")},
                                    QStringList{QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), QStringLiteral("-")}}) {
        const CommandRun r = folivox(args);
        EXPECT_EQ(r.exitCode, 2);
        EXPECT_TRUE(r.errText().contains(QStringLiteral("'-'"))) << r.errText().toStdString();
    }
}

// A JPEG cover at original size and quality goes into the book byte for
// byte; asking for a quality re-encodes it.
TEST_F(BuildOptions, AnOriginalJpegCoverIsKeptByteForByte)
{
    const QString cover = path(QStringLiteral("cover.jpg"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("testsrc=s=640x640"),
                                  QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-q:v"), QStringLiteral("3"), cover}));
    const auto coverIn = [&](const QString& book) {
        const QString out = book + QStringLiteral(".cover.jpg");
        EXPECT_TRUE(Fixtures::ffmpeg({QStringLiteral("-i"), book, QStringLiteral("-map"), QStringLiteral("0:v"), QStringLiteral("-c"),
                                      QStringLiteral("copy"), QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-f"),
                                      QStringLiteral("image2"), out}));
        return Fixtures::readFile(out);
    };
    const QString kept = path(QStringLiteral("kept.m4b"));
    const CommandRun a = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), kept, QStringLiteral("-q"),
                                  QStringLiteral("--cover"), cover, QStringLiteral("--cover-size"), QStringLiteral("original"),
                                  QStringLiteral("--cover-quality"), QStringLiteral("original")});
    ASSERT_EQ(a.exitCode, 0) << a.errText().toStdString();
    EXPECT_EQ(coverIn(kept), Fixtures::readFile(cover));

    const QString smaller = path(QStringLiteral("smaller.m4b"));
    const CommandRun b = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), smaller, QStringLiteral("-q"),
                                  QStringLiteral("--cover"), cover, QStringLiteral("--cover-size"), QStringLiteral("original"),
                                  QStringLiteral("--cover-quality"), QStringLiteral("60")});
    ASSERT_EQ(b.exitCode, 0) << b.errText().toStdString();
    const QByteArray reencoded = coverIn(smaller);
    EXPECT_FALSE(reencoded.isEmpty());
    EXPECT_NE(reencoded, Fixtures::readFile(cover));
}

// A PNG cover stays PNG, byte for byte, when neither a size nor a quality is
// asked for; asking for a quality makes it a JPEG at that quality.
TEST_F(BuildOptions, APngCoverStaysPngUnlessASizeOrQualityIsAskedFor)
{
    const QString cover = path(QStringLiteral("cover.png"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("testsrc=s=320x320"),
                                  QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-f"), QStringLiteral("image2"), cover}));
    const QByteArray png = Fixtures::readFile(cover);
    ASSERT_TRUE(png.startsWith("\x89PNG"));
    constexpr int jpegType = 13;
    constexpr int pngType = 14;
    const auto covers = [&](const QString& book) { return test::MediaReaders::mutagenMp4(book).value(QStringLiteral("covr")).toArray(); };

    const QString kept = path(QStringLiteral("kept.m4b"));
    const CommandRun a = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), kept, QStringLiteral("-q"),
                                  QStringLiteral("--cover"), cover});
    ASSERT_EQ(a.exitCode, 0) << a.errText().toStdString();
    const QJsonArray keptCovers = covers(kept);
    ASSERT_EQ(keptCovers.size(), 1);
    EXPECT_EQ(keptCovers.first().toObject().value(QStringLiteral("format")).toInt(), pngType);
    EXPECT_EQ(keptCovers.first().toObject().value(QStringLiteral("size")).toInt(), png.size());

    const QString converted = path(QStringLiteral("converted.m4b"));
    const CommandRun b = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), converted, QStringLiteral("-q"),
                                  QStringLiteral("--cover"), cover, QStringLiteral("--cover-quality"), QStringLiteral("80")});
    ASSERT_EQ(b.exitCode, 0) << b.errText().toStdString();
    const QJsonArray jpegCovers = covers(converted);
    ASSERT_EQ(jpegCovers.size(), 1);
    EXPECT_EQ(jpegCovers.first().toObject().value(QStringLiteral("format")).toInt(), jpegType);
}

// Sources without a picture and no --cover: an image named like a cover
// beside the audio is used, and the result names it.
TEST_F(BuildOptions, ACoverImageBesideTheAudioIsUsedAndNamed)
{
    const QString cover = path(QStringLiteral("in/Folder.JPG"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("testsrc=s=300x300"),
                                  QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-f"), QStringLiteral("image2"), cover}));
    const QString book = path(QStringLiteral("book.m4b"));
    const CommandRun r = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), book, QStringLiteral("--json"),
                                  QStringLiteral("--cover-quality"), QStringLiteral("original"), QStringLiteral("--cover-size"),
                                  QStringLiteral("original")});
    ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
    EXPECT_EQ(r.json().value(QStringLiteral("coverSource")).toString(), cover);
    const QJsonObject mp4 = test::MediaReaders::mutagenMp4(book);
    ASSERT_EQ(mp4.value(QStringLiteral("covr")).toArray().size(), 1) << QJsonDocument(mp4).toJson().toStdString();
    EXPECT_EQ(mp4.value(QStringLiteral("covr")).toArray().first().toObject().value(QStringLiteral("size")).toInt(),
              Fixtures::readFile(cover).size());
}

// --split-hours takes fractions; the parts are one book to a player: the
// same album, each its own part title and disc number.
TEST_F(BuildOptions, FractionalSplitHoursMakePartsOfOneAlbum)
{
    const CommandRun bad = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("--split-hours"), QStringLiteral("0")});
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_TRUE(bad.errText().contains(QStringLiteral("--split-hours must be greater than 0"))) << bad.errText().toStdString();

    // 0.0006 h is 2.16 s: each 2 s chapter becomes its own part.
    const CommandRun r = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), path(QStringLiteral("Saga.m4b")),
                                  QStringLiteral("--split-hours"), QStringLiteral("0.0006"), QStringLiteral("--title"), QStringLiteral("Saga"),
                                  QStringLiteral("--json"), QStringLiteral("-q")});
    ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
    const QJsonArray files = r.json().value(QStringLiteral("outputFiles")).toArray();
    ASSERT_EQ(files.size(), 2) << r.out.toStdString();
    for (int i = 0; i < files.size(); ++i) {
        const QJsonObject tags = test::MediaReaders::mutagenMp4(files[i].toString());
        EXPECT_EQ(tags.value(QStringLiteral("\u00A9alb")).toArray(), QJsonArray{QStringLiteral("Saga")});
        EXPECT_EQ(tags.value(QStringLiteral("\u00A9nam")).toArray(), QJsonArray{QStringLiteral("Saga (Part %1)").arg(i + 1)});
        EXPECT_EQ(tags.value(QStringLiteral("disk")).toArray().first().toArray(), (QJsonArray{i + 1, 2}));
    }
}

// With no bitrate chosen, a 64 kb/s source is not blown up to the default
// 128 kb/s; a bitrate the user asks for is kept.
TEST_F(BuildOptions, TheDefaultBitrateIsCappedToTheSourcesButAChosenOneIsKept)
{
    const CommandRun capped = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), path(QStringLiteral("a.m4b")),
                                       QStringLiteral("--json"), QStringLiteral("-q")});
    ASSERT_EQ(capped.exitCode, 0) << capped.errText().toStdString();
    EXPECT_EQ(capped.json().value(QStringLiteral("settings")).toObject().value(QStringLiteral("cbrBitrateKbps")).toInt(), 64);
    // Said in the result (and on stderr without -q).
    EXPECT_TRUE(capped.json().value(QStringLiteral("warnings")).toArray().first().toString().startsWith(QStringLiteral("Quality Capped to Source")))
        << capped.out.toStdString();
    EXPECT_FALSE(capped.errText().contains(QStringLiteral("Capped")));
    const QJsonObject stream =
        test::MediaReaders::ffprobe(path(QStringLiteral("a.m4b"))).value(QStringLiteral("streams")).toArray().first().toObject();
    EXPECT_LT(stream.value(QStringLiteral("bit_rate")).toString().toInt(), 80000);

    const CommandRun chosen = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), path(QStringLiteral("b.m4b")),
                                       QStringLiteral("--json"), QStringLiteral("-q"), QStringLiteral("--bitrate"), QStringLiteral("96")});
    ASSERT_EQ(chosen.exitCode, 0) << chosen.errText().toStdString();
    EXPECT_EQ(chosen.json().value(QStringLiteral("settings")).toObject().value(QStringLiteral("cbrBitrateKbps")).toInt(), 96);
    EXPECT_TRUE(chosen.json().value(QStringLiteral("warnings")).toArray().isEmpty());
}

// A 64 kb/s stereo or 32 kb/s mono AAC-LC book (bitrates that look like
// HE-AAC from outside) is copied, not re-encoded: bit for bit.
TEST_F(BuildOptions, LowBitrateAacLcIsCopiedUnderForce)
{
    struct Case {
        const char* name;
        const char* bitrate;
        int channels;
    };
    for (const Case& c : {Case{"lc", "64k", 2}, Case{"mono", "32k", 1}}) {
        const QString name = QString::fromLatin1(c.name);
        const QString source = path(name + QStringLiteral(".m4a"));
        ASSERT_TRUE(Fixtures::tone(source, 3.0, {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"), QString::fromLatin1(c.bitrate)},
                                   44100, c.channels));
        const QString copy = path(name + QStringLiteral("-copy.m4b"));
        const CommandRun r = folivox({QStringLiteral("build"), source, QStringLiteral("-o"), copy, QStringLiteral("--passthrough"),
                                      QStringLiteral("force"), QStringLiteral("--json"), QStringLiteral("-q")});
        ASSERT_EQ(r.exitCode, 0) << c.name << ": " << r.errText().toStdString();
        EXPECT_TRUE(r.json().value(QStringLiteral("strategy")).toString().startsWith(QStringLiteral("passthrough"))) << r.out.toStdString();
        EXPECT_EQ(Fixtures::decodedMd5(copy), Fixtures::decodedMd5(source)) << c.name;
    }
}

// Building a folder into itself twice: the first book is not an input of
// the second.
TEST_F(BuildOptions, AFolderBuiltIntoItselfAgainLeavesItsEarlierBookOut)
{
    const QString in = path(QStringLiteral("in"));
    const CommandRun first = CommandRunner::run({QStringLiteral("build"), in, QStringLiteral("-q")}, in);
    ASSERT_EQ(first.exitCode, 0) << first.errText().toStdString();
    ASSERT_TRUE(QFileInfo::exists(path(QStringLiteral("in/in.m4b"))));
    const CommandRun again = CommandRunner::run({QStringLiteral("build"), in, QStringLiteral("-q"), QStringLiteral("-f"),
                                                 QStringLiteral("--json")},
                                                in);
    ASSERT_EQ(again.exitCode, 0) << again.errText().toStdString();
    EXPECT_EQ(again.json().value(QStringLiteral("tracks")).toInt(), 2);
    EXPECT_TRUE(again.errText().contains(QStringLiteral("in.m4b"))) << again.errText().toStdString();
    EXPECT_NEAR(Fixtures::decodedDuration(path(QStringLiteral("in/in.m4b"))), 4.0, 0.15);
}

// --sort given keeps the files in the order they were named.
TEST_F(BuildOptions, SortGivenKeepsTheOrderOfTheCommandLine)
{
    const CommandRun r = folivox({QStringLiteral("build"), path(QStringLiteral("in/2.mp3")), path(QStringLiteral("in/1.mp3")),
                                  QStringLiteral("--sort"), QStringLiteral("given"), QStringLiteral("--dry-run"), QStringLiteral("--json"),
                                  QStringLiteral("-o"), path(QStringLiteral("x.m4b"))});
    ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
    const QJsonArray inputs = r.json().value(QStringLiteral("inputs")).toArray();
    ASSERT_EQ(inputs.size(), 2);
    EXPECT_TRUE(inputs[0].toString().endsWith(QStringLiteral("/2.mp3")));
    const CommandRun sorted = folivox({QStringLiteral("build"), path(QStringLiteral("in/2.mp3")), path(QStringLiteral("in/1.mp3")),
                                       QStringLiteral("--dry-run"), QStringLiteral("--json"), QStringLiteral("-o"), path(QStringLiteral("x.m4b"))});
    EXPECT_TRUE(sorted.json().value(QStringLiteral("inputs")).toArray()[0].toString().endsWith(QStringLiteral("/1.mp3")));
}

// -v shows every child process's whole command line as it starts.
TEST_F(BuildOptions, VerboseShowsEachChildsCommandLine)
{
    const CommandRun r = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), path(QStringLiteral("v.m4b")),
                                  QStringLiteral("-v")});
    ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
    const QString expected = QStringLiteral("Command: ") + QStandardPaths::findExecutable(QStringLiteral("ffmpeg")) + QStringLiteral(" ");
    EXPECT_TRUE(r.errText().contains(expected)) << r.errText().left(2000).toStdString();
    EXPECT_TRUE(r.errText().contains(path(QStringLiteral("in/1.mp3")))) << "the inputs are on the command lines";
}

// The sort fields players file a book under: soal and soaa (TSOA and TSO2 in
// an MP3) follow --sort-title and --sort-author unless given their own; and
// the book carries the time it was made as its creation date.
TEST_F(BuildOptions, SortAtomsAndTheCreationDateAreWritten)
{
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    const QString book = path(QStringLiteral("Hobbit.m4b"));
    const CommandRun r = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), book, QStringLiteral("-q"),
                                  QStringLiteral("--title"), QStringLiteral("The Hobbit"), QStringLiteral("--author"),
                                  QStringLiteral("J. R. R. Tolkien"), QStringLiteral("--sort-title"), QStringLiteral("Hobbit, The"),
                                  QStringLiteral("--sort-author"), QStringLiteral("Tolkien, J. R. R."), QStringLiteral("--year"),
                                  QStringLiteral("1937-09-21")});
    ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
    const QDateTime after = QDateTime::currentDateTimeUtc().addSecs(1);
    const QJsonObject tags = test::MediaReaders::mutagenMp4(book);
    EXPECT_EQ(tags.value(QStringLiteral("sonm")).toArray(), QJsonArray{QStringLiteral("Hobbit, The")});
    EXPECT_EQ(tags.value(QStringLiteral("soal")).toArray(), QJsonArray{QStringLiteral("Hobbit, The")});
    EXPECT_EQ(tags.value(QStringLiteral("soar")).toArray(), QJsonArray{QStringLiteral("Tolkien, J. R. R.")});
    EXPECT_EQ(tags.value(QStringLiteral("soaa")).toArray(), QJsonArray{QStringLiteral("Tolkien, J. R. R.")});
    EXPECT_EQ(tags.value(QStringLiteral("\u00A9day")).toArray(), QJsonArray{QStringLiteral("1937-09-21")});
    // ffprobe reads the movie and track headers' creation time.
    const QJsonObject probe = test::MediaReaders::ffprobe(book);
    const QDateTime created = QDateTime::fromString(
        probe.value(QStringLiteral("format")).toObject().value(QStringLiteral("tags")).toObject().value(QStringLiteral("creation_time")).toString(),
        Qt::ISODateWithMs);
    ASSERT_TRUE(created.isValid()) << QJsonDocument(probe).toJson().toStdString();
    EXPECT_GE(created, before);
    EXPECT_LE(created, after);
    for (const QJsonValue& stream : probe.value(QStringLiteral("streams")).toArray())
        EXPECT_EQ(QDateTime::fromString(stream.toObject().value(QStringLiteral("tags")).toObject().value(QStringLiteral("creation_time")).toString(),
                                        Qt::ISODateWithMs),
                  created);

    // Sort fields of their own win; MP3 outputs carry them as ID3 frames.
    const QString folder = path(QStringLiteral("mp3s"));
    const CommandRun m = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), folder, QStringLiteral("-q"),
                                  QStringLiteral("--format"), QStringLiteral("mp3"), QStringLiteral("--title"), QStringLiteral("The Hobbit"),
                                  QStringLiteral("--sort-title"), QStringLiteral("Hobbit, The"), QStringLiteral("--sort-album"),
                                  QStringLiteral("Middle-earth 1"), QStringLiteral("--author"), QStringLiteral("J. R. R. Tolkien"),
                                  QStringLiteral("--sort-album-artist"), QStringLiteral("Tolkien")});
    ASSERT_EQ(m.exitCode, 0) << m.errText().toStdString();
    const QStringList mp3s = QDir(folder).entryList({QStringLiteral("*.mp3")}, QDir::Files, QDir::Name);
    ASSERT_EQ(mp3s.size(), 2);
    const QJsonObject id3 = test::MediaReaders::mutagenId3(QDir(folder).filePath(mp3s.first()));
    EXPECT_EQ(id3.value(QStringLiteral("TSOA")).toArray(), QJsonArray{QStringLiteral("Middle-earth 1")}) << QJsonDocument(id3).toJson().toStdString();
    EXPECT_EQ(id3.value(QStringLiteral("TSO2")).toArray(), QJsonArray{QStringLiteral("Tolkien")});
}
