// `folivox build` and `folivox demo` as a user runs them: the built command
// as a child process, its exit status, its JSON and what it leaves on disk.
#include "export/engine/EngineTestSupport.h"
#include "support/CommandRunner.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>

using namespace folivox;
using folivox::test::CommandRun;
using folivox::test::CommandRunner;
using folivox::test::Fixtures;

namespace {

class FolivoxCommand : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (CommandRunner::folivoxBinary().isEmpty())
            GTEST_SKIP() << "the folivox command is not built";
        ASSERT_TRUE(dir_.isValid());
    }
    QString path(const QString& name) const { return dir_.filePath(name); }

    QTemporaryDir dir_;
};

} // namespace

TEST_F(FolivoxCommand, BuildAppliesAChapterFileAcrossTwoFilesAndReportsJson)
{
    test::mp3Tone(path(QStringLiteral("in/a.mp3")), 4.0, 300);
    test::mp3Tone(path(QStringLiteral("in/b.mp3")), 4.0, 600);
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("marks.txt")),
                                    "00:00:00.000 Prologue\n00:00:03.000 Crossing Over\n00:00:06.000 Epilogue\n"));
    const CommandRun r = CommandRunner::run({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("--chapters"),
                           path(QStringLiteral("marks.txt")), QStringLiteral("--title"), QStringLiteral("It's a Test"),
                           QStringLiteral("--bitrate"), QStringLiteral("64"), QStringLiteral("--json"),
                           QStringLiteral("-j"), QStringLiteral("2")},
                          dir_.path());
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    QJsonParseError parseError;
    const QJsonObject doc = QJsonDocument::fromJson(r.out, &parseError).object();
    ASSERT_EQ(parseError.error, QJsonParseError::NoError) << r.out.toStdString();
    const QString output = path(QStringLiteral("It's a Test.m4b"));
    EXPECT_EQ(doc.value(QStringLiteral("outputPath")).toString(), output);
    EXPECT_EQ(doc.value(QStringLiteral("strategy")).toString(), QStringLiteral("transcode"));
    EXPECT_TRUE(doc.value(QStringLiteral("reasons")).toArray().contains(QStringLiteral("non-AAC source")));
    EXPECT_EQ(doc.value(QStringLiteral("chapterSource")).toString(), QStringLiteral("marks.txt"));
    EXPECT_TRUE(doc.value(QStringLiteral("timings")).toObject().contains(QStringLiteral("total")));
    const QJsonArray chapters = doc.value(QStringLiteral("chapters")).toArray();
    ASSERT_EQ(chapters.size(), 3);
    EXPECT_EQ(chapters[1].toObject().value(QStringLiteral("title")).toString(), QStringLiteral("Crossing Over"));
    // The middle chapter crosses from a.mp3 into b.mp3: 3 s of audio.
    EXPECT_NEAR(chapters[1].toObject().value(QStringLiteral("duration")).toDouble(), 3.0, 0.1);
    EXPECT_NEAR(chapters[2].toObject().value(QStringLiteral("start")).toDouble(), 6.0, 0.15);
    EXPECT_NEAR(Fixtures::decodedDuration(output), 8.0, 0.05 * 3);
    // Nothing but JSON on stdout.
    EXPECT_TRUE(r.out.trimmed().startsWith('{') && r.out.trimmed().endsWith('}'));
}

// Without --cover the book takes the picture its first file carries, read
// from the moov of an M4B and through libav from an MP3's ID3 tag.
TEST_F(FolivoxCommand, BuildCarriesTheFirstFilesOwnCover)
{
    const QString jpeg = path(QStringLiteral("front.jpg"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                  QStringLiteral("testsrc=size=96x96:rate=1"), QStringLiteral("-frames:v"),
                                  QStringLiteral("1"), jpeg}));
    ASSERT_EQ(QImage(jpeg).size(), QSize(96, 96));

    test::aacTone(path(QStringLiteral("book.m4b")), 3.0);
    QProcess art;
    art.start(QDir(qEnvironmentVariable("FOLIVOX_TOOLS_DIR")).filePath(QStringLiteral("mp4art")),
              {QStringLiteral("--add"), jpeg, path(QStringLiteral("book.m4b"))});
    ASSERT_TRUE(art.waitForFinished(30000));
    ASSERT_EQ(art.exitCode(), 0) << art.readAllStandardError().toStdString();

    test::mp3Tone(path(QStringLiteral("plain.mp3")), 3.0);
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-i"), path(QStringLiteral("plain.mp3")), QStringLiteral("-i"), jpeg,
                                  QStringLiteral("-map"), QStringLiteral("0"), QStringLiteral("-map"), QStringLiteral("1"),
                                  QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-id3v2_version"),
                                  QStringLiteral("3"), path(QStringLiteral("pictured.mp3"))}));

    for (const QString& source : {QStringLiteral("book.m4b"), QStringLiteral("pictured.mp3")}) {
        const QString output = path(QStringLiteral("out-") + QFileInfo(source).completeBaseName() + QStringLiteral(".m4b"));
        // Encoded, so the picture can only come from what the command read.
        const CommandRun r = CommandRunner::run({QStringLiteral("build"), path(source), QStringLiteral("-o"), output,
                                         QStringLiteral("--bitrate"), QStringLiteral("32"),
                                         QStringLiteral("--no-sidecar"), QStringLiteral("--quiet")},
                                        dir_.path());
        ASSERT_EQ(r.exitCode, 0) << source.toStdString() << ": " << r.err.toStdString();
        const QString extracted = path(QStringLiteral("got-") + QFileInfo(source).completeBaseName() + QStringLiteral(".jpg"));
        ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-i"), output, QStringLiteral("-map"), QStringLiteral("0:v"),
                                      QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-frames:v"),
                                      QStringLiteral("1"), QStringLiteral("-f"), QStringLiteral("image2"), extracted}))
            << source.toStdString() << " built without a cover";
        // The picture may be re-encoded on the way (about 9 levels of mean
        // difference at the default quality); another picture, or a blank
        // one, differs by far more.
        const QImage got(extracted);
        const QImage want(jpeg);
        ASSERT_EQ(got.size(), want.size()) << source.toStdString();
        double difference = 0;
        for (int y = 0; y < want.height(); ++y)
            for (int x = 0; x < want.width(); ++x) {
                const QColor a = got.pixelColor(x, y);
                const QColor b = want.pixelColor(x, y);
                difference += std::abs(a.red() - b.red()) + std::abs(a.green() - b.green()) + std::abs(a.blue() - b.blue());
            }
        EXPECT_LT(difference / (3.0 * want.width() * want.height()), 20.0) << source.toStdString();
    }
}

TEST_F(FolivoxCommand, CtrlCStopsTheBuildWithStatus130AndLeavesNothingBehind)
{
    for (int i = 0; i < 3; ++i)
        test::mp3Tone(path(QStringLiteral("long/%1.mp3").arg(i)), 60.0, 250 + 50 * i);
    const QString output = path(QStringLiteral("Mine.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(output, "a book the user already had"));

    QProcess p;
    p.setWorkingDirectory(dir_.path());
    p.setStandardInputFile(QProcess::nullDevice());
    p.start(CommandRunner::folivoxBinary(), {QStringLiteral("build"), path(QStringLiteral("long")), QStringLiteral("-o"), output, QStringLiteral("-f"),
                              QStringLiteral("-j"), QStringLiteral("1"), QStringLiteral("--bitrate"), QStringLiteral("64")});
    ASSERT_TRUE(p.waitForStarted(10000));
    QByteArray err;
    QElapsedTimer clock;
    clock.start();
    while (!err.contains("Encoding audio") && clock.elapsed() < 60000 && p.state() == QProcess::Running) {
        p.waitForReadyRead(100);
        err += p.readAllStandardError();
    }
    ASSERT_TRUE(err.contains("Encoding audio")) << err.toStdString();
    ::kill(static_cast<pid_t>(p.processId()), SIGINT);
    ASSERT_TRUE(p.waitForFinished(30000));
    err += p.readAllStandardError();

    EXPECT_EQ(p.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.exitCode(), 130) << err.toStdString();
    EXPECT_TRUE(err.contains("cancelled"));
    EXPECT_EQ(Fixtures::readFile(output), QByteArray("a book the user already had"));
    EXPECT_TRUE(CommandRunner::processesMentioning(dir_.path()).isEmpty()) << CommandRunner::processesMentioning(dir_.path()).join(u'\n').toStdString();
    // The build's own work folder is gone (its log names it).
    const QStringList logs = QDir(qEnvironmentVariable("FOLIVOX_HOME") + QStringLiteral("/logs"))
                                 .entryList({QStringLiteral("export-*.log")}, QDir::Files, QDir::Time);
    ASSERT_FALSE(logs.isEmpty());
    const QString log = QString::fromUtf8(
        Fixtures::readFile(qEnvironmentVariable("FOLIVOX_HOME") + QStringLiteral("/logs/") + logs.first()));
    EXPECT_TRUE(log.contains(QStringLiteral("Work folder: ")));
    EXPECT_TRUE(test::leftoverWorkFolders(log.split(u'\n')).isEmpty());
    EXPECT_EQ(QDir(dir_.path()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("Mine.m4b")});
}

TEST_F(FolivoxCommand, BadOptionsAndMissingInputsHaveTheirStatuses)
{
    test::mp3Tone(path(QStringLiteral("a.mp3")), 1.0);
    const CommandRun badFormat = CommandRunner::run({QStringLiteral("build"), path(QStringLiteral("a.mp3")), QStringLiteral("--format"),
                                   QStringLiteral("ogg")},
                                  dir_.path());
    EXPECT_EQ(badFormat.exitCode, 2);
    EXPECT_TRUE(badFormat.err.contains("invalid value for --format: 'ogg'")) << badFormat.err.toStdString();

    const CommandRun zeroSplit = CommandRunner::run({QStringLiteral("build"), path(QStringLiteral("a.mp3")), QStringLiteral("--split-hours"),
                                   QStringLiteral("0")},
                                  dir_.path());
    EXPECT_EQ(zeroSplit.exitCode, 2);
    EXPECT_TRUE(zeroSplit.err.contains("--split-hours must be greater than 0")) << zeroSplit.err.toStdString();

    const CommandRun missing = CommandRunner::run({QStringLiteral("build"), path(QStringLiteral("nowhere.mp3"))}, dir_.path());
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.contains("nowhere.mp3"));

    const QString locked = path(QStringLiteral("Locked"));
    if (test::makeFolderRefuseNewEntries(locked)) {
        const CommandRun refused = CommandRunner::run({QStringLiteral("build"), path(QStringLiteral("a.mp3")), QStringLiteral("-o"),
                                     QDir(locked).filePath(QStringLiteral("b.m4b")), QStringLiteral("--quiet")},
                                    dir_.path());
        test::allowNewEntries(locked);
        EXPECT_EQ(refused.exitCode, 1);
        EXPECT_TRUE(QString::fromUtf8(refused.err).contains(QStringLiteral("Folivox can't save into “Locked”")))
            << refused.err.toStdString();
    }
}

TEST_F(FolivoxCommand, DemoBuildsTheSampleBookIntoTheCurrentFolder)
{
    const CommandRun r = CommandRunner::run({QStringLiteral("demo"), QStringLiteral("--json")}, dir_.path());
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const QJsonObject doc = QJsonDocument::fromJson(r.out).object();
    const QString book = path(QStringLiteral("Folivox Sample Book.m4b"));
    EXPECT_EQ(doc.value(QStringLiteral("outputPath")).toString(), book);
    EXPECT_EQ(doc.value(QStringLiteral("chapters")).toArray().size(), 4);
    EXPECT_EQ(doc.value(QStringLiteral("chapters")).toArray()[1].toObject().value(QStringLiteral("title")).toString(),
              QStringLiteral("The Long Road"));
    EXPECT_GT(Fixtures::decodedDuration(book), 23.0);
    // A second run never writes over the first book.
    const CommandRun again = CommandRunner::run({QStringLiteral("demo"), QStringLiteral("--quiet")}, dir_.path());
    ASSERT_EQ(again.exitCode, 0) << again.err.toStdString();
    EXPECT_TRUE(QFile::exists(path(QStringLiteral("Folivox Sample Book 2.m4b"))));
    // A path without an extension gets ".m4b", and the closing line names
    // the file that was written.
    const CommandRun named = CommandRunner::run({QStringLiteral("demo"), QStringLiteral("-o"), QStringLiteral("mine")}, dir_.path());
    ASSERT_EQ(named.exitCode, 0) << named.err.toStdString();
    EXPECT_TRUE(QFile::exists(path(QStringLiteral("mine.m4b"))));
    EXPECT_TRUE(QString::fromUtf8(named.out).contains(QStringLiteral("Listen to it: ") + path(QStringLiteral("mine.m4b")) + u'\n'))
        << named.out.toStdString();
}
