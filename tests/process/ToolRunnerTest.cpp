// ToolRunner with scripts standing in for mp4tags.
#include "ProcessTestHelpers.h"

#include "process/ChildProcessReaper.h"
#include "process/FFmpegWrapperError.h"
#include "process/ToolLaunchError.h"
#include "process/ToolRunner.h"
#include "platform/Log.h"

#include "support/ScriptedTool.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace std::chrono_literals;
using folivox::test::DelayedCancel;
using folivox::test::ScriptedTool;

namespace {
class ToolRunnerTest : public ::testing::Test {
protected:
    ToolRunner runner(std::chrono::milliseconds killGrace = 5000ms) const
    {
        ToolRunner::Options options;
        options.toolsDirectories = QStringList{dir.path()};
        options.killGrace = killGrace;
        return ToolRunner(options);
    }
    void tool(const QString& body) { ScriptedTool::write(dir.path(), QStringLiteral("mp4tags"), body); }
    QString book() const { return QDir(dir.path()).filePath(QStringLiteral("book.m4b")); }

    QTemporaryDir dir;
    LogCapture log;
    ManualCancellationToken token;
};
} // namespace

TEST_F(ToolRunnerTest, SuccessCapturesBothOutputsAndPassesArgumentsVerbatim)
{
    tool(QStringLiteral("for a in \"$@\"; do echo \"arg:$a\"; done\necho 'note on stderr' >&2\nexit 0"));
    const ToolRunResult r = runner().run(QStringLiteral("mp4tags"),
                                         {QStringLiteral("-song"), QStringLiteral("Chapter \"1\"; $HOME"), book()},
                                         {book()}, 30, token);
    EXPECT_TRUE(r.success);
    EXPECT_EQ(r.error, std::nullopt);
    EXPECT_EQ(r.standardOutput,
              QStringLiteral("arg:-song\narg:Chapter \"1\"; $HOME\narg:") + book() + QStringLiteral("\n"));
    EXPECT_EQ(r.standardError, QStringLiteral("note on stderr\n"));
    EXPECT_EQ(r.terminationStatus, 0);
    EXPECT_FALSE(r.timedOut);
    EXPECT_FALSE(r.cancelled);
    EXPECT_TRUE(log.contains(QStringLiteral("[MetadataWriting] mp4tags EXIT exitCode=0")));
}

TEST_F(ToolRunnerTest, FailureCarriesTheExitCodeAndStderr)
{
    tool(QStringLiteral("echo 'mp4tags: cannot open book.m4b' >&2\nexit 3"));
    const ToolRunResult r = runner().run(QStringLiteral("mp4tags"), {book()}, {book()}, 30, token);
    EXPECT_FALSE(r.success);
    EXPECT_EQ(r.terminationStatus, 3);
    EXPECT_EQ(r.error, QStringLiteral("mp4tags failed (exit code 3): mp4tags: cannot open book.m4b"));
}

TEST_F(ToolRunnerTest, TimeoutStopsTheToolWithTheMetadataStepText)
{
    tool(QStringLiteral("exec sleep 30"));
    QElapsedTimer clock;
    clock.start();
    const ToolRunResult r = runner().run(QStringLiteral("mp4tags"), {book()}, {book()}, 0.5, token);
    EXPECT_GE(clock.elapsed(), 450);
    EXPECT_LT(clock.elapsed(), 5000);
    EXPECT_FALSE(r.success);
    EXPECT_TRUE(r.timedOut);
    EXPECT_EQ(r.error, QStringLiteral("The metadata step (mp4tags) timed out after 0.5s. This can happen with very large "
                                      "books (30h+ or 1 GB+). Try splitting the book into smaller parts and exporting "
                                      "again."));
    EXPECT_TRUE(log.contains(QStringLiteral("[MetadataWriting] TIMEOUT: mp4tags ran for 0.5s — stopping PID=")));
}

TEST_F(ToolRunnerTest, CancelStopsTheToolAndSaysSo)
{
    tool(QStringLiteral("exec sleep 30"));
    DelayedCancel cancel(token, 300ms);
    const ToolRunResult r = runner().run(QStringLiteral("mp4tags"), {book()}, {book()}, 60, token);
    EXPECT_LT(cancel.sinceCancel(), 3000);
    EXPECT_FALSE(r.success);
    EXPECT_TRUE(r.cancelled);
    EXPECT_EQ(r.error, QStringLiteral("mp4tags was cancelled."));

    // Already cancelled: nothing starts.
    const QString marker = QDir(dir.path()).filePath(QStringLiteral("started"));
    tool(QStringLiteral("touch '%1'").arg(marker));
    const ToolRunResult early = runner().run(QStringLiteral("mp4tags"), {book()}, {book()}, 60, token);
    EXPECT_EQ(early.error, QStringLiteral("mp4tags was cancelled."));
    EXPECT_FALSE(QFileInfo::exists(marker));
}

TEST_F(ToolRunnerTest, ToolIgnoringSigtermIsKilledAfterTheGrace)
{
    tool(QStringLiteral("trap '' TERM\nwhile :; do sleep 0.1; done"));
    DelayedCancel cancel(token, 200ms);
    const ToolRunResult r = runner(400ms).run(QStringLiteral("mp4tags"), {book()}, {book()}, 60, token);
    const qint64 afterCancel = cancel.sinceCancel();
    EXPECT_GE(afterCancel, 400);
    EXPECT_LT(afterCancel, 4000);
    EXPECT_TRUE(r.cancelled);
    EXPECT_EQ(r.terminationStatus, 9);
    EXPECT_EQ(ChildProcessReaper::instance().count(), 0u);
}

TEST_F(ToolRunnerTest, RefusedPathOrMissingToolStartsNothing)
{
    const QString marker = QDir(dir.path()).filePath(QStringLiteral("started"));
    tool(QStringLiteral("touch '%1'").arg(marker));
    try {
        runner().run(QStringLiteral("mp4tags"), {QStringLiteral("-x.m4b")}, {QStringLiteral("-x.m4b")}, 30, token);
        FAIL() << "expected invalidPath";
    } catch (const FFmpegWrapperError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("Invalid path: Path cannot start with dash: -x.m4b"));
    }
    EXPECT_FALSE(QFileInfo::exists(marker));
    try {
        runner().run(QStringLiteral("mp4nonesuch"), {book()}, {book()}, 30, token);
        FAIL() << "expected notFound";
    } catch (const ToolLaunchError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("mp4nonesuch binary not found in app bundle"));
    }
}
