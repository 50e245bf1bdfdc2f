// The command line a build logs for each child: pasted into a shell, it
// must run the same program with the same arguments.
#include "process/WatchedProcess.h"

#include <QProcess>

#include <gtest/gtest.h>

using folivox::WatchedProcess;

TEST(CommandLineText, AShellReadsTheLoggedLineBackAsTheSameArguments)
{
    const QStringList args{QStringLiteral("-i"), QStringLiteral("/books/It's a Test (Part 1).mp3"), QStringLiteral("-metadata"),
                           QStringLiteral("title=Two words"), QStringLiteral("$HOME"), QStringLiteral("a\"b"),
                           QStringLiteral("plain-1.5k")};
    const QString line = WatchedProcess::commandLine(QStringLiteral("/usr/bin/printf"), QStringList{QStringLiteral("%s\\n")} + args);
    EXPECT_TRUE(line.contains(QStringLiteral(" plain-1.5k"))) << line.toStdString(); // plain words stay plain
    QProcess sh;
    sh.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), line});
    ASSERT_TRUE(sh.waitForFinished(10000));
    EXPECT_EQ(QString::fromUtf8(sh.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts), args) << line.toStdString();
}
