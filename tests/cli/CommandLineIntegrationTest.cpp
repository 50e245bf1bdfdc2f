// The program-wide conventions: help as a command, short options, and the
// man page and completions written from the same help texts.
#include "support/CommandRunner.h"
#include "support/Fixtures.h"

#include <QDir>
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
