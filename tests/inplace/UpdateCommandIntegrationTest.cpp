#include "InPlaceTestBooks.h"

#include "support/CommandRunner.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

using namespace folivox::test;

namespace {

QString chapterFile(const QString& dir, double secondStart)
{
    const QString p = dir + QStringLiteral("/chapters.txt");
    Fixtures::writeFile(p, QStringLiteral("00:00:00.000 Erstes\n00:00:%1 Zweites\n00:00:08.000 Drittes\n")
                               .arg(secondStart, 6, 'f', 3, QLatin1Char('0'))
                               .toUtf8());
    return p;
}

} // namespace

TEST(UpdateCommand, DryRunWritesNothingAndARealRunReportsTheBackup)
{
    const QString folivox = CommandRunner::folivoxBinary();
    if (folivox.isEmpty())
        GTEST_SKIP() << "the folivox binary is not built";
    QTemporaryDir dir;
    const QString book = dir.filePath(QStringLiteral("book.m4b"));
    ASSERT_TRUE(InPlaceTestBooks::m4b(book, dir.path()));
    const QByteArray before = InPlaceTestBooks::sha(book);
    const QString titles = dir.filePath(QStringLiteral("titles.txt"));
    Fixtures::writeFile(titles, "A\nB\nC\n");

    const CommandRun dry = CommandRunner::run({QStringLiteral("update"), book, QStringLiteral("--title"), QStringLiteral("T2"),
                                               QStringLiteral("--chapter-titles"), titles, QStringLiteral("--dry-run"),
                                               QStringLiteral("--json")},
                                              dir.path());
    EXPECT_EQ(dry.exitCode, 0) << dry.errText().toStdString();
    EXPECT_TRUE(dry.json().value(QStringLiteral("dryRun")).toBool());
    EXPECT_EQ(dry.json().value(QStringLiteral("changes")).toObject().value(QStringLiteral("chapterTitles")).toArray().size(), 3);
    EXPECT_EQ(InPlaceTestBooks::sha(book), before);

    const CommandRun real = CommandRunner::run({QStringLiteral("update"), book, QStringLiteral("--title"), QStringLiteral("T2"),
                                                QStringLiteral("--chapter-titles"), titles},
                                               dir.path());
    EXPECT_EQ(real.exitCode, 0) << real.errText().toStdString();
    const QString out = QString::fromUtf8(real.out);
    const qsizetype at = out.indexOf(QStringLiteral("Backup: "));
    ASSERT_GE(at, 0) << out.toStdString();
    const QString session = out.mid(at + 8).section(u'\n', 0, 0);
    EXPECT_TRUE(QFileInfo(session).isDir());
    EXPECT_EQ(InPlaceTestBooks::chapterTitles(book), (QStringList{"A", "B", "C"}));
    EXPECT_EQ(InPlaceTestBooks::tags(book).value(QStringLiteral("title")).toString(), QStringLiteral("T2"));

    // Too few titles is a usage error.
    Fixtures::writeFile(titles, "A\nB\n");
    EXPECT_EQ(CommandRunner::run({QStringLiteral("update"), book, QStringLiteral("--chapter-titles"), titles}, dir.path()).exitCode, 2);
}

TEST(UpdateCommand, AChapterFileMovedBeyondTheToleranceIsRefusedWithItsReason)
{
    if (CommandRunner::folivoxBinary().isEmpty())
        GTEST_SKIP() << "the folivox binary is not built";
    QTemporaryDir dir;
    const QString book = dir.filePath(QStringLiteral("book.m4b"));
    ASSERT_TRUE(InPlaceTestBooks::m4b(book, dir.path()));
    const QByteArray before = InPlaceTestBooks::sha(book);

    const CommandRun moved = CommandRunner::run(
        {QStringLiteral("update"), book, QStringLiteral("--chapters"), chapterFile(dir.path(), 4.11), QStringLiteral("--json")}, dir.path());
    EXPECT_EQ(moved.exitCode, 1);
    EXPECT_EQ(moved.json().value(QStringLiteral("reasons")).toArray(), QJsonArray{QStringLiteral("chapterBoundariesChanged")});
    EXPECT_EQ(InPlaceTestBooks::sha(book), before);
    const CommandRun plain = CommandRunner::run({QStringLiteral("update"), book, QStringLiteral("--chapters"), chapterFile(dir.path(), 4.11)},
                                                dir.path());
    EXPECT_TRUE(plain.errText().contains(QStringLiteral("chapterBoundariesChanged"))) << plain.errText().toStdString();

    const CommandRun within = CommandRunner::run({QStringLiteral("update"), book, QStringLiteral("--chapters"), chapterFile(dir.path(), 4.1)},
                                                 dir.path());
    EXPECT_EQ(within.exitCode, 0) << within.errText().toStdString();
    EXPECT_EQ(InPlaceTestBooks::chapterTitles(book), (QStringList{"Erstes", "Zweites", "Drittes"}));
}

TEST(UpdateCommand, CtrlCPutsEveryFileBackAndExits130)
{
    const QString folivox = CommandRunner::folivoxBinary();
    if (folivox.isEmpty())
        GTEST_SKIP() << "the folivox binary is not built";
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("parts"));
    QDir().mkpath(folder);
    // Enough files that the update is still running when the signal lands.
    const int files = 24;
    QList<QByteArray> before;
    for (int i = 1; i <= files; ++i) {
        const QString p = folder + QStringLiteral("/%1.mp3").arg(i, 2, 10, QLatin1Char('0'));
        ASSERT_TRUE(InPlaceTestBooks::track(p, 1.0));
        before << InPlaceTestBooks::sha(p);
    }
    QProcess p;
    p.setProgram(folivox);
    p.setArguments({QStringLiteral("update"), folder, QStringLiteral("--title"), QStringLiteral("Interrupted"), QStringLiteral("-v")});
    p.setStandardInputFile(QProcess::nullDevice());
    // Ctrl-C lands right after the first file was put in place, whatever
    // the machine's speed (the command signals itself at that point).
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("FOLIVOX_FAULT_SIGNAL"), QStringLiteral("inplace.file.replaced:INT"));
    p.setProcessEnvironment(env);
    p.start();
    ASSERT_TRUE(p.waitForStarted());
    ASSERT_TRUE(p.waitForFinished(60000));
    const QByteArray err = p.readAllStandardError();
    EXPECT_TRUE(err.contains("cancelled after 1 of 24")) << err.toStdString();
    EXPECT_EQ(p.exitCode(), 130) << err.toStdString();
    EXPECT_TRUE(err.contains("Backup: ")) << err.toStdString();
    for (int i = 1; i <= files; ++i)
        EXPECT_EQ(InPlaceTestBooks::sha(folder + QStringLiteral("/%1.mp3").arg(i, 2, 10, QLatin1Char('0'))), before.at(i - 1)) << i;
}
