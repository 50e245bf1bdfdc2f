#include "platform/AppPaths.h"
#include "platform/AppSettings.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace folivox;

TEST(L10nTest, FormatFillsPlaceholdersInOrderAndKeepsLiteralPercent)
{
    EXPECT_EQ(L10n::format(QStringLiteral("%d kbps (Keep original)"), {QStringLiteral("128")}),
              QStringLiteral("128 kbps (Keep original)"));
    EXPECT_EQ(L10n::format(QStringLiteral("The file \"%@\" is %lld bytes, 100%%"), {QStringLiteral("a.mp3"), QStringLiteral("7")}),
              QStringLiteral("The file \"a.mp3\" is 7 bytes, 100%"));
    // A stray percent that is no placeholder stays as written; missing args become empty.
    EXPECT_EQ(L10n::format(QStringLiteral("50% of %@"), {}), QStringLiteral("50% of "));
}

TEST(L10nTest, OverrideReplacesDefaultTextOnlyForItsKey)
{
    L10n::setOverride(QStringLiteral("k.one"), QStringLiteral("Eins"));
    EXPECT_EQ(L10n::text("k.one", "One"), QStringLiteral("Eins"));
    EXPECT_EQ(L10n::text("k.two", "Two"), QStringLiteral("Two"));
    L10n::clearOverrides();
    EXPECT_EQ(L10n::text("k.one", "One"), QStringLiteral("One"));
}

TEST(LogTest, CaptureSeesLinesFromManyThreadsAndFileSinkAppends)
{
    QTemporaryDir dir;
    const QString logPath = dir.filePath(QStringLiteral("build.log"));
    ASSERT_TRUE(Log::setFile(logPath));
    LogCapture capture;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i)
                Log::write(QStringLiteral("Test"), QStringLiteral("thread %1 line %2").arg(t).arg(i));
        });
    for (auto& th : threads)
        th.join();
    Log::setFile({});
    EXPECT_EQ(capture.lines().size(), 200);
    EXPECT_EQ(capture.count(QStringLiteral("[Test] thread 3")), 50);
    QFile f(logPath);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    EXPECT_EQ(f.readAll().count('\n'), 200);
}

TEST(WorkDirectoryTest, LivesUnderFolivoxWorkAndIsRemovedWithItsContents)
{
    QString path;
    {
        WorkDirectory work;
        path = work.path();
        EXPECT_TRUE(path.contains(QStringLiteral("/FolivoxWork/")));
        QDir().mkpath(work.filePath(QStringLiteral("nested/deeper")));
        QFile f(work.filePath(QStringLiteral("nested/deeper/x.bin")));
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("data");
        f.close();
        EXPECT_TRUE(QFile::exists(f.fileName()));
    }
    EXPECT_FALSE(QDir(path).exists());
}

TEST(WorkDirectoryTest, RemovedWhenWorkThrows)
{
    QString path;
    try {
        WorkDirectory work;
        path = work.path();
        throw std::runtime_error("boom");
    } catch (const std::runtime_error&) {
    }
    ASSERT_FALSE(path.isEmpty());
    EXPECT_FALSE(QDir(path).exists());
}

TEST(AppSettingsTest, ValuesPersistInsideFolivoxHome)
{
    {
        AppSettings s;
        s.setValue(QStringLiteral("test.key"), QStringLiteral("v1"));
        s.sync();
    }
    EXPECT_TRUE(QFile::exists(AppPaths::appSupportDir() + QStringLiteral("/settings.ini")));
    AppSettings again;
    EXPECT_EQ(again.value(QStringLiteral("test.key")).toString(), QStringLiteral("v1"));
    again.remove(QStringLiteral("test.key"));
    EXPECT_FALSE(again.contains(QStringLiteral("test.key")));
}
