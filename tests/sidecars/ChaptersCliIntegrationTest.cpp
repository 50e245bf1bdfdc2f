// Runs the built `folivox` program on real files: a tone made by ffmpeg, chapter
// files written here, and the audio length read by the command itself.
#include "support/Fixtures.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using folivox::test::Fixtures;

namespace {

struct CliRun {
    int exitCode = -1;
    QString out;
    QString err;
};

QString folivoxProgram()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/folivox");
}

CliRun runFolivox(const QStringList& args, const QString& workDir = {})
{
    QProcess p;
    p.setProgram(folivoxProgram());
    p.setArguments(args);
    if (!workDir.isEmpty())
        p.setWorkingDirectory(workDir);
    p.setStandardInputFile(QProcess::nullDevice());
    p.start();
    CliRun r;
    if (!p.waitForStarted(10'000))
        return r;
    if (!p.waitForFinished(120'000)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromUtf8(p.readAllStandardOutput());
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

class ChaptersCliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QFileInfo(folivoxProgram()).isExecutable())
            << "build the folivox target before running this test: " << folivoxProgram().toStdString();
    }
    QTemporaryDir dir;
    QString path(const QString& name) const { return dir.filePath(name); }
};

} // namespace

TEST_F(ChaptersCliTest, CueSheetAgainstRealAudioAsJson)
{
    ASSERT_TRUE(Fixtures::tone(path("book.mp3"), 20.0));
    ASSERT_TRUE(Fixtures::writeFile(path("album.cue"),
                                    "REM GENRE Audiobook\r\nFILE \"book.mp3\" MP3\r\nTRACK 01 AUDIO\r\n  TITLE \"Intro\"\r\n"
                                    "  INDEX 01 00:00:00\r\nTRACK 02 AUDIO\r\n  TITLE \"Body\"\r\n  INDEX 01 00:10:00\r\n"));
    const CliRun r = runFolivox({"chapters", "--json", path("album.cue"), "--audio", path("book.mp3")});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    QJsonParseError pe;
    const QJsonObject doc = QJsonDocument::fromJson(r.out.toUtf8(), &pe).object();
    ASSERT_EQ(pe.error, QJsonParseError::NoError) << r.out.toStdString();
    EXPECT_EQ(doc.value("format").toString(), QStringLiteral("cue"));
    EXPECT_EQ(doc.value("chapters").toArray().size(), 2);
    // Times in seconds, as every command's JSON gives them.
    EXPECT_DOUBLE_EQ(doc.value("chapters").toArray().at(1).toObject().value("start").toDouble(), 10.0);
    EXPECT_NEAR(doc.value("audio").toObject().value("duration").toDouble(), 20.0, 0.15);
    const QJsonObject match = doc.value("match").toObject();
    EXPECT_EQ(match.value("score").toInt(), 75);
    EXPECT_EQ(match.value("confidence").toString(), QStringLiteral("high"));
    EXPECT_EQ(match.value("layers").toArray(), QJsonArray({"referencedFile", "duration", "sameFolder"}));
    EXPECT_TRUE(doc.value("validation").toObject().value("isValid").toBool());
}

TEST_F(ChaptersCliTest, WarningsCarrySeverityAndDoubledCrLfLineNumbers)
{
    ASSERT_TRUE(Fixtures::writeFile(path("book.chapters.txt"),
                                    "00:00:00.000 One\r\nthis is no chapter\r\n00:05:00.000 Two\r\n"));
    const CliRun r = runFolivox({"chapters", "--json", path("book.chapters.txt")});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const QJsonObject doc = QJsonDocument::fromJson(r.out.toUtf8()).object();
    EXPECT_EQ(doc.value("format").toString(), QStringLiteral("mp4chaps"));
    const QJsonArray warnings = doc.value("warnings").toArray();
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_EQ(warnings.at(0).toObject().value("severity").toString(), QStringLiteral("info"));
    EXPECT_EQ(warnings.at(0).toObject().value("lineNumber").toInt(), 3);
    EXPECT_EQ(warnings.at(0).toObject().value("message").toString(),
              QStringLiteral("Skipped unrecognized line: this is no chapter"));
    EXPECT_FALSE(doc.contains("match"));

    const CliRun text = runFolivox({"chapters", path("book.chapters.txt")});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_TRUE(text.out.contains(QStringLiteral("info (line 3): Skipped unrecognized line")));
}

TEST_F(ChaptersCliTest, FailuresNameTheFileAndUsageErrorsExitTwo)
{
    ASSERT_TRUE(Fixtures::writeFile(path("big.cue"), QByteArray(1'024'001, ' ')));
    CliRun r = runFolivox({"chapters", path("big.cue")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_TRUE(r.err.contains(QStringLiteral("Sidecar file too large: big.cue (1000 KB > 1 MB limit)"))) << r.err.toStdString();

    ASSERT_TRUE(Fixtures::writeFile(path("empty.cue"), "REM nothing\n"));
    r = runFolivox({"chapters", "--json", path("empty.cue")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.contains(path("empty.cue"))) << r.err.toStdString();
    // The document still goes to stdout, and is the only thing there.
    EXPECT_EQ(QJsonDocument::fromJson(r.out.toUtf8()).object().value("warnings").toArray().at(0).toObject().value(
                  "message").toString(),
              QStringLiteral("No chapters found in CUE file"));

    ASSERT_TRUE(Fixtures::writeFile(path("ok.cue"), "FILE \"a.mp3\" MP3\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n"));
    r = runFolivox({"chapters", path("ok.cue"), "--audio", path("missing.mp3")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.contains(path("missing.mp3")));

    EXPECT_EQ(runFolivox({"chapters"}).exitCode, 2);
    EXPECT_EQ(runFolivox({"chapters", "--bogus", path("ok.cue")}).exitCode, 2);
    EXPECT_EQ(runFolivox({"chapters", path("ok.cue"), path("ok.cue")}).exitCode, 2);
}

TEST_F(ChaptersCliTest, RenameFromFileAndArguments)
{
    ASSERT_TRUE(Fixtures::writeFile(path("titles.txt"),
                                    "Track 03 - Intro\r\n\r\nthe the end\r\nDisc 2 - 7\r\n"));
    CliRun r = runFolivox({"rename", "--remove-numeric-prefix", "--remove-duplicate-words", "--from", path("titles.txt")});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("Intro\nthe end\n7\n"));

    r = runFolivox({"rename", "--json", "--find", "^(\\w+) (\\d+)$", "--replace", "$2 $1", "--regex", "--number",
                 "--number-format", "01", "Chapter 9", "Epilogue"});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const QJsonObject doc = QJsonDocument::fromJson(r.out.toUtf8()).object();
    EXPECT_EQ(doc.value("changed").toInt(), 2);
    EXPECT_EQ(doc.value("titles").toArray().at(0).toObject().value("after").toString(), QStringLiteral("01. 9 Chapter"));
    EXPECT_EQ(doc.value("titles").toArray().at(1).toObject().value("after").toString(), QStringLiteral("02. Epilogue"));

    r = runFolivox({"rename", "--find", "([a-", "--regex", "x"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.err.contains(QStringLiteral("Invalid pattern: ")));
    EXPECT_EQ(runFolivox({"rename"}).exitCode, 2);
    EXPECT_EQ(runFolivox({"rename", "--case", "shouting", "x"}).exitCode, 2);
    EXPECT_EQ(runFolivox({"rename", "--from", path("absent.txt")}).exitCode, 1);
}
