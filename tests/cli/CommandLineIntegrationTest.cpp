// The program-wide conventions: help as a command, short options, and the
// man page and completions written from the same help texts.
#include "support/CommandRunner.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::CommandRun;
using folivox::test::CommandRunner;

TEST(CommandLine, HelpAsACommandAndShortOptionsAnswerLikeTheirLongForms)
{
    if (CommandRunner::folivoxBinary().isEmpty())
        GTEST_SKIP() << "the folivox command is not built";
    const QString here = QDir::tempPath();
    const CommandRun viaHelp = CommandRunner::run({QStringLiteral("help"), QStringLiteral("build")}, here);
    const CommandRun viaOption = CommandRunner::run({QStringLiteral("build"), QStringLiteral("--help")}, here);
    const CommandRun viaShort = CommandRunner::run({QStringLiteral("build"), QStringLiteral("-h")}, here);
    EXPECT_EQ(viaHelp.exitCode, 0);
    EXPECT_TRUE(viaHelp.out.contains("--skip-unreadable"));
    EXPECT_EQ(viaHelp.out, viaOption.out);
    EXPECT_EQ(viaShort.out, viaOption.out);
    const CommandRun version = CommandRunner::run({QStringLiteral("-V")}, here);
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_TRUE(version.out.startsWith("folivox ")) << version.out.toStdString();
}

TEST(CommandLine, TheManPageAndCompletionsCarryEveryOptionOfTheHelp)
{
    if (CommandRunner::folivoxBinary().isEmpty())
        GTEST_SKIP() << "the folivox command is not built";
    const QString docs = QFileInfo(CommandRunner::folivoxBinary()).absolutePath() + QStringLiteral("/../share/folivox-cli");
    const QByteArray man = test::Fixtures::readFile(docs + QStringLiteral("/folivox.1"));
    const QByteArray bash = test::Fixtures::readFile(docs + QStringLiteral("/folivox.bash"));
    const QByteArray zsh = test::Fixtures::readFile(docs + QStringLiteral("/_folivox"));
    ASSERT_FALSE(man.isEmpty()) << "no man page in " << docs.toStdString();
    const QByteArray help = CommandRunner::run({QStringLiteral("build"), QStringLiteral("--help")}, QDir::tempPath()).out;
    // Every long option of the build's help is in all three (troff escapes '-').
    for (const QString& option : {QStringLiteral("--skip-unreadable"), QStringLiteral("--dry-run"), QStringLiteral("--split-hours"),
                                  QStringLiteral("--cover-quality")}) {
        ASSERT_TRUE(help.contains(option.toUtf8())) << option.toStdString();
        QString escaped = option;
        escaped.replace(u'-', QStringLiteral("\\-"));
        EXPECT_TRUE(man.contains(escaped.toUtf8())) << option.toStdString();
        EXPECT_TRUE(bash.contains(option.toUtf8())) << option.toStdString();
        EXPECT_TRUE(zsh.contains(option.toUtf8())) << option.toStdString();
    }
    EXPECT_TRUE(bash.contains("complete -o filenames -F _folivox folivox"));
}

// Every subcommand answers -h as --help and lists it; the short forms its help
// lists (-v, -q) are taken by the command itself.
TEST(CommandLine, EveryCommandTakesTheShortOptionsItsHelpLists)
{
    if (CommandRunner::folivoxBinary().isEmpty())
        GTEST_SKIP() << "the folivox command is not built";
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    for (const char* name : {"build", "inspect", "chapters", "rename", "check", "library", "queue", "update", "demo"}) {
        const QString command = QString::fromLatin1(name);
        const CommandRun longForm = CommandRunner::run({command, QStringLiteral("--help")}, dir.path());
        const CommandRun shortForm = CommandRunner::run({command, QStringLiteral("-h")}, dir.path());
        EXPECT_EQ(shortForm.exitCode, 0) << name;
        EXPECT_EQ(shortForm.out, longForm.out) << name;
        EXPECT_TRUE(shortForm.out.startsWith("Usage: folivox " + QByteArray(name))) << name;
        EXPECT_TRUE(shortForm.out.contains("-h, --help")) << name << "\n" << shortForm.out.toStdString();
        if (command != u"rename") {
            EXPECT_TRUE(shortForm.out.contains("-v, --verbose")) << name << "\n" << shortForm.out.toStdString();
        }
    }

    const QString mp3 = dir.filePath(QStringLiteral("a.mp3"));
    ASSERT_TRUE(test::Fixtures::tone(mp3, 1.0));
    // -v shows the diagnostic log on stderr; without it stderr stays quiet.
    const CommandRun inspectQuiet = CommandRunner::run({QStringLiteral("inspect"), mp3}, dir.path());
    const CommandRun inspectVerbose = CommandRunner::run({QStringLiteral("inspect"), QStringLiteral("-v"), mp3}, dir.path());
    EXPECT_EQ(inspectQuiet.exitCode, 0);
    EXPECT_TRUE(inspectQuiet.err.isEmpty()) << inspectQuiet.err.toStdString();
    EXPECT_EQ(inspectVerbose.exitCode, 0) << inspectVerbose.err.toStdString();
    EXPECT_EQ(inspectVerbose.out, inspectQuiet.out);
    EXPECT_FALSE(inspectVerbose.err.isEmpty());

    const QString chapters = dir.filePath(QStringLiteral("chapters.txt"));
    ASSERT_TRUE(test::Fixtures::writeFile(chapters, "00:00:00.000 Opening\n00:00:00.500 Second\n"));
    const CommandRun chaptersVerbose = CommandRunner::run({QStringLiteral("chapters"), QStringLiteral("-v"), chapters}, dir.path());
    EXPECT_EQ(chaptersVerbose.exitCode, 0) << chaptersVerbose.err.toStdString();
    EXPECT_TRUE(chaptersVerbose.out.contains("Second")) << chaptersVerbose.out.toStdString();

    const CommandRun library = CommandRunner::run({QStringLiteral("library"), QStringLiteral("list"), QStringLiteral("-q"), QStringLiteral("-v"),
                                                   QStringLiteral("--library"), dir.filePath(QStringLiteral("Library"))},
                                                  dir.path());
    EXPECT_EQ(library.exitCode, 0) << library.err.toStdString();

    // -q leaves out the demo's account of what it made the book from.
    const QString demo = dir.filePath(QStringLiteral("demo.m4b"));
    const CommandRun quietDemo = CommandRunner::run({QStringLiteral("demo"), QStringLiteral("-q"), QStringLiteral("-o"), demo}, dir.path());
    EXPECT_EQ(quietDemo.exitCode, 0) << quietDemo.err.toStdString();
    EXPECT_TRUE(QFileInfo::exists(demo));
    EXPECT_FALSE(quietDemo.out.contains("The sample book was made from")) << quietDemo.out.toStdString();
    const QString loudDemo = dir.filePath(QStringLiteral("loud.m4b"));
    const CommandRun demoRun = CommandRunner::run({QStringLiteral("demo"), QStringLiteral("-o"), loudDemo}, dir.path());
    EXPECT_EQ(demoRun.exitCode, 0) << demoRun.err.toStdString();
    EXPECT_TRUE(demoRun.out.contains("The sample book was made from")) << demoRun.out.toStdString();
}
