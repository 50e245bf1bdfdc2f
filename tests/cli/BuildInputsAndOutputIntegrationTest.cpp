// `folivox build` run as a user runs it, on inputs and outputs that used to
// lose audio silently or fail late: unreadable sources, outputs whose name
// disagrees with the format, outputs that cannot be made, and what a script
// reads with --json when a build fails.
#include "support/CommandRunner.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::CommandRun;
using folivox::test::CommandRunner;
using folivox::test::Fixtures;

namespace {

class BuildCommandChecks : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (CommandRunner::folivoxBinary().isEmpty())
            GTEST_SKIP() << "the folivox command is not built";
        ASSERT_TRUE(dir_.isValid());
    }
    QString path(const QString& name) const { return dir_.filePath(name); }
    CommandRun folivox(QStringList args) const { return CommandRunner::run(args, dir_.path()); }

    // Two short MP3 chapters.
    void makeTwoGoodFiles()
    {
        for (const char* name : {"in/01 One.mp3", "in/02 Two.mp3"})
            ASSERT_TRUE(Fixtures::tone(path(QString::fromLatin1(name)), 2.0,
                                       {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("64k")},
                                       44100, 1));
    }

    // Every file below the test folder, relative to it.
    QStringList filesBelow() const
    {
        QStringList found;
        QDirIterator it(dir_.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext())
            found << QDir(dir_.path()).relativeFilePath(it.next());
        found.sort();
        return found;
    }

    QTemporaryDir dir_;
};

} // namespace

// A folder with an empty ".mp3" and a text file named ".mp3" among real
// chapters: without --skip-unreadable the build fails naming both and writes
// nothing; with it, the book is made from the rest and both are listed, on
// stderr even with --quiet, and in --json.
TEST_F(BuildCommandChecks, UnreadableSourcesFailTheBuildUnlessSkippedAndAreAlwaysNamed)
{
    makeTwoGoodFiles();
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("in/03 Empty.mp3")), QByteArray()));
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("in/04 Notes.mp3")), QByteArray("these are my notes\n").repeated(40)));
    const QStringList before = filesBelow();

    const CommandRun refused = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"),
                                        path(QStringLiteral("book.m4b")), QStringLiteral("--quiet")});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.errText().contains(QStringLiteral("03 Empty.mp3"))) << refused.errText().toStdString();
    EXPECT_TRUE(refused.errText().contains(QStringLiteral("04 Notes.mp3"))) << refused.errText().toStdString();
    EXPECT_TRUE(refused.errText().contains(QStringLiteral("--skip-unreadable")));
    EXPECT_EQ(filesBelow(), before);

    const CommandRun asJson = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"),
                                       path(QStringLiteral("book.m4b")), QStringLiteral("--json")});
    EXPECT_EQ(asJson.exitCode, 1);
    const QJsonObject error = asJson.json();
    EXPECT_EQ(error.value(QStringLiteral("status")).toString(), QStringLiteral("failed")) << asJson.out.toStdString();
    EXPECT_EQ(error.value(QStringLiteral("exitStatus")).toInt(), 1);
    EXPECT_TRUE(error.value(QStringLiteral("file")).toString().endsWith(QStringLiteral("03 Empty.mp3")));
    EXPECT_TRUE(error.value(QStringLiteral("message")).toString().contains(QStringLiteral("04 Notes.mp3")));

    const CommandRun skipped = folivox({QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"),
                                        path(QStringLiteral("book.m4b")), QStringLiteral("--skip-unreadable"),
                                        QStringLiteral("--quiet"), QStringLiteral("--json")});
    ASSERT_EQ(skipped.exitCode, 0) << skipped.errText().toStdString();
    EXPECT_TRUE(skipped.errText().contains(QStringLiteral("03 Empty.mp3")));
    EXPECT_TRUE(skipped.errText().contains(QStringLiteral("04 Notes.mp3")));
    const QJsonObject built = skipped.json();
    EXPECT_EQ(built.value(QStringLiteral("skippedFiles")).toArray().size(), 2) << skipped.out.toStdString();
    EXPECT_EQ(built.value(QStringLiteral("chapters")).toArray().size(), 2);
    EXPECT_NEAR(Fixtures::decodedDuration(path(QStringLiteral("book.m4b"))), 4.0, 0.15);
}

// The output's extension and --format: an extension names the format when
// --format is absent, a disagreement or a name that is no book is a usage
// error before any work, and a dot inside a title is not an extension.
TEST_F(BuildCommandChecks, OutputExtensionMustAgreeWithTheFormat)
{
    makeTwoGoodFiles();
    const QStringList before = filesBelow();
    const QString in = path(QStringLiteral("in"));
    struct Case {
        QStringList extra;
        const char* mentions;
    };
    const Case refusals[] = {
        {{QStringLiteral("-o"), path(QStringLiteral("book.mp3"))}, "folder"},
        {{QStringLiteral("-o"), path(QStringLiteral("book.m4b")), QStringLiteral("--format"), QStringLiteral("mp3")}, "--format"},
        {{QStringLiteral("-o"), path(QStringLiteral("book.m4a")), QStringLiteral("--format"), QStringLiteral("m4b")}, "--format"},
        {{QStringLiteral("-o"), path(QStringLiteral("notes.txt"))}, "notes.txt"},
    };
    for (const Case& c : refusals) {
        const CommandRun r = folivox(QStringList{QStringLiteral("build"), in} + c.extra);
        EXPECT_EQ(r.exitCode, 2) << c.extra.join(u' ').toStdString() << "\n" << r.errText().toStdString();
        EXPECT_TRUE(r.errText().contains(QString::fromLatin1(c.mentions))) << r.errText().toStdString();
        EXPECT_FALSE(r.errText().contains(QStringLiteral("%@"))) << r.errText().toStdString();
    }
    EXPECT_EQ(filesBelow(), before);

    const CommandRun dotted = folivox({QStringLiteral("build"), in, QStringLiteral("-o"), path(QStringLiteral("Saga Vol.1")),
                                       QStringLiteral("--quiet")});
    ASSERT_EQ(dotted.exitCode, 0) << dotted.errText().toStdString();
    EXPECT_TRUE(QFileInfo(path(QStringLiteral("Saga Vol.1.m4b"))).isFile());
}

// Outputs that cannot be made are refused before any audio work with the
// user's own path in the message, and leave nothing behind.
TEST_F(BuildCommandChecks, OutputsThatCannotBeMadeAreRefusedUpFrontNamingThePath)
{
    makeTwoGoodFiles();
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("plain-file")), "x"));
    const QStringList before = filesBelow();
    const QString in = path(QStringLiteral("in"));
    const QString longName = QString(245, u'n') + QStringLiteral(".m4b"); // fits alone, not as "<name>.chapters.txt"
    struct Case {
        QString output;
        int status;
        QString mentions;
    };
    const Case cases[] = {
        {path(QStringLiteral("missing/book.m4b")), 1, path(QStringLiteral("missing"))},
        {path(QStringLiteral("plain-file/book.m4b")), 1, path(QStringLiteral("plain-file"))},
        {path(QStringLiteral("two\nlines.m4b")), 2, QStringLiteral("line break")},
        {path(longName), 2, longName},
    };
    for (const Case& c : cases) {
        const CommandRun r = folivox({QStringLiteral("build"), in, QStringLiteral("-o"), c.output, QStringLiteral("--json")});
        EXPECT_EQ(r.exitCode, c.status) << c.output.toStdString() << "\n" << r.errText().toStdString();
        EXPECT_TRUE(r.errText().contains(c.mentions)) << r.errText().toStdString();
        EXPECT_FALSE(r.errText().contains(QStringLiteral("FolivoxWork"))) << r.errText().toStdString();
        EXPECT_EQ(r.json().value(QStringLiteral("exitStatus")).toInt(), c.status) << r.out.toStdString();
        EXPECT_EQ(r.json().value(QStringLiteral("file")).toString(), c.output);
    }
    EXPECT_EQ(filesBelow(), before);
}

// A usage error with --json is a JSON document too.
TEST_F(BuildCommandChecks, UsageErrorsWithJsonPrintAnErrorDocument)
{
    const CommandRun r = folivox({QStringLiteral("build"), QStringLiteral("--bitrate"), QStringLiteral("lots"),
                                  QStringLiteral("--json"), path(QStringLiteral("in"))});
    EXPECT_EQ(r.exitCode, 2);
    const QJsonObject doc = r.json();
    EXPECT_EQ(doc.value(QStringLiteral("status")).toString(), QStringLiteral("usage")) << r.out.toStdString();
    EXPECT_EQ(doc.value(QStringLiteral("exitStatus")).toInt(), 2);
    EXPECT_TRUE(doc.value(QStringLiteral("message")).toString().contains(QStringLiteral("--bitrate")));
}

// A cue sheet of many short tracks over one file: the book is exactly as
// long as its audio (each chapter used to add its encoder padding).
TEST_F(BuildCommandChecks, ACueSheetOfManyShortTracksKeepsTheBookAsLongAsItsAudio)
{
    ASSERT_TRUE(Fixtures::tone(path(QStringLiteral("book.mp3")), 30.0,
                               {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("64k")}, 44100, 1));
    QByteArray cue = "FILE \"book.mp3\" MP3\n";
    for (int i = 0; i < 120; ++i) {
        const int frames = i * 75 / 4; // every quarter second, in cue frames
        cue += QStringLiteral("  TRACK %1 AUDIO\n    TITLE \"Part %1\"\n    INDEX 01 %2:%3:%4\n")
                   .arg(i + 1, 3, 10, QChar(u'0'))
                   .arg(frames / 75 / 60, 2, 10, QChar(u'0'))
                   .arg(frames / 75 % 60, 2, 10, QChar(u'0'))
                   .arg(frames % 75, 2, 10, QChar(u'0'))
                   .toUtf8();
    }
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("book.cue")), cue));
    const CommandRun r = folivox({QStringLiteral("build"), path(QStringLiteral("book.mp3")), QStringLiteral("--chapters"),
                                  path(QStringLiteral("book.cue")), QStringLiteral("-o"), path(QStringLiteral("out.m4b")),
                                  QStringLiteral("--json"), QStringLiteral("-q")});
    ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
    EXPECT_EQ(r.json().value(QStringLiteral("chapters")).toArray().size(), 120);
    // Within one AAC frame (1024 samples at 44.1 kHz).
    EXPECT_NEAR(Fixtures::decodedDuration(path(QStringLiteral("out.m4b"))), 30.0, 0.024);
}
