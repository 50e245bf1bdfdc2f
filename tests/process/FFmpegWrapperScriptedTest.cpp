// FFmpegWrapper driven by small shell scripts standing in for ffmpeg, so that
// exit codes, stderr, signals and timing are under the test's control.
#include "ProcessTestHelpers.h"

#include "process/BinaryResolver.h"
#include "process/ChildProcessReaper.h"
#include "process/FFmpegWrapper.h"
#include "process/FFmpegWrapperError.h"
#include "process/ToolLaunchError.h"
#include "platform/Log.h"

#include "support/ChildProcessCheck.h"
#include "support/Fixtures.h"
#include "support/ScriptedTool.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

using namespace folivox;
using namespace std::chrono_literals;
using folivox::test::DelayedCancel;
using folivox::test::Fixtures;
using folivox::test::progressLine;
using folivox::test::ScopedEnvironment;
using folivox::test::ScriptedTool;

namespace {

const QString kCorruptStream = QStringLiteral(
    "The audio stream couldn't be decoded. The file is damaged or improperly converted and cannot be exported.");
const QString kNotResponding = QStringLiteral(
    "FFmpeg not responding (no output for 5 min). The audio engine may be blocked by system security or a "
    "corrupted installation.");

// Shell lines that write n decode errors the way ffmpeg 6+ does.
QString decodeErrors(int n)
{
    return QStringLiteral("i=0; while [ $i -lt %1 ]; do "
                          "echo '[aist#0:0/mp3 @ 0x5581] Error submitting packet to decoder: Invalid data found "
                          "when processing input' >&2; i=$((i+1)); done")
        .arg(n);
}

// Shell lines that write a progress line with a frozen time= every 100 ms, forever.
QString frozenProgressForever()
{
    return QStringLiteral("while :; do echo '%1' >&2; sleep 0.1; done").arg(progressLine(QStringLiteral("00:00:01.00")));
}

// Shell lines that write `count` progress lines with a moving time=, 100 ms apart.
QString movingProgress(int count)
{
    return QStringLiteral("i=10; while [ $i -lt %1 ]; do echo \"size= 1kB time=00:00:$i.00 bitrate= 64.0kbits/s "
                          "speed=1.0x\" >&2; sleep 0.1; i=$((i+1)); done")
        .arg(10 + count);
}

class FFmpegWrapperScriptedTest : public ::testing::Test {
protected:
    FFmpegWrapper wrapper(const QString& body, FFmpegWrapper::Options options = {})
    {
        options.ffmpegPath = ScriptedTool::write(dir.path(), QStringLiteral("ffmpeg"), body);
        return FFmpegWrapper(options);
    }
    QString path(const QString& name) const { return QDir(dir.path()).filePath(name); }
    QStringList job() const
    {
        return {QStringLiteral("-y"), QStringLiteral("-i"), path(QStringLiteral("in.mp3")), QStringLiteral("-c:a"),
                QStringLiteral("aac"), path(QStringLiteral("out.m4a"))};
    }

    QTemporaryDir dir;
    LogCapture log;
    ManualCancellationToken token;
};

} // namespace

TEST_F(FFmpegWrapperScriptedTest, SuccessPassesArgumentsVerbatimAndLogsTheRun)
{
    // Arguments reach the child as a vector: spaces, quotes and $ stay literal.
    const QString argsFile = path(QStringLiteral("args.txt"));
    const FFmpegWrapper w = wrapper(
        QStringLiteral("for a in \"$@\"; do printf '%s|' \"$a\" >> '%1'; done\necho 'Stream mapping: ok' >&2\nexit 0")
            .arg(argsFile));
    const QString odd = path(QStringLiteral("My \"Book\" $HOME 'x'.mp3"));
    const FFmpegResult r = w.run({QStringLiteral("-i"), odd, QStringLiteral("-metadata"), QStringLiteral("title=A; B"),
                                  path(QStringLiteral("out.m4a"))},
                                 std::nullopt, token);
    EXPECT_TRUE(r.succeeded());
    EXPECT_EQ(r.error, std::nullopt);
    EXPECT_EQ(r.outputURL, path(QStringLiteral("out.m4a")));
    EXPECT_EQ(r.terminationStatus, 0);
    EXPECT_TRUE(r.stderr.contains(QStringLiteral("Stream mapping: ok")));
    EXPECT_GT(r.duration, 0.0);
    EXPECT_EQ(QString::fromUtf8(Fixtures::readFile(argsFile)),
              QStringLiteral("-i|") + odd + QStringLiteral("|-metadata|title=A; B|") + path(QStringLiteral("out.m4a"))
                  + QStringLiteral("|"));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Binary: ") + w.ffmpegPath()));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Args count: 5")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] totalDuration: 0.00")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] EXIT exitCode=0 duration=")));
    EXPECT_TRUE(log.contains(QStringLiteral("s wasCancelled=false")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Completed: ") + path(QStringLiteral("out.m4a"))));
    EXPECT_FALSE(log.contains(QStringLiteral("FAILED")));
    EXPECT_EQ(ChildProcessReaper::instance().count(), 0u);
}

TEST_F(FFmpegWrapperScriptedTest, ProgressIsTimeOverDurationClampedAndSurvivesSplitLines)
{
    const FFmpegWrapper w = wrapper(QStringLiteral(
        "echo 'size=  0kB time=00:00:00.00 bitrate=N/A speed=   0x' >&2\n"
        "sleep 0.2\n"
        // A line that arrives in two pieces.
        "printf 'size= 1kB time=00:00:0' >&2\n"
        "sleep 0.3\n"
        "printf '2.50 bitrate=  64.0kbits/s speed=1.5x\\r' >&2\n"
        "sleep 0.2\n"
        "printf 'size= 2kB time=00:00:05.00 bitrate= 100.4kbits/s speed=2.25x\\r' >&2\n"
        "sleep 0.2\n"
        "printf 'size= 3kB time=00:00:12.34 bitrate= 100.0kbits/s speed=2.0x\\n' >&2\n"
        "exit 0"));
    std::vector<double> fractions;
    const FFmpegResult r = w.run(job(), 10.0, token, [&](double f) { fractions.push_back(f); });
    EXPECT_TRUE(r.succeeded());
    EXPECT_EQ(fractions, (std::vector<double>{0.0, 0.25, 0.5, 1.0}));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Progress: 25% time=2.5s/10.0s speed=1.5x bitrate=64kbps")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Progress: 50% time=5.0s/10.0s speed=2.2x bitrate=100kbps"))
                || log.contains(QStringLiteral("[FFmpeg] Progress: 50% time=5.0s/10.0s speed=2.3x bitrate=100kbps")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Progress: 100% time=12.3s/10.0s")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] totalDuration: 10.00")));

    // Without a total duration nothing is reported.
    fractions.clear();
    const FFmpegResult again = w.run(job(), std::nullopt, token, [&](double f) { fractions.push_back(f); });
    EXPECT_TRUE(again.succeeded());
    EXPECT_TRUE(fractions.empty());
}

TEST_F(FFmpegWrapperScriptedTest, FailureCarriesTheDiagnosticTextAndLogsTheStderrTail)
{
    const FFmpegWrapper w = wrapper(QStringLiteral(
        "echo 'Input #0, mp3' >&2\n"
        "echo '[aac @ 0x1] Unable to set encoding parameters' >&2\n"
        "echo 'Warning: something minor' >&2\n"
        "exit 1"));
    const FFmpegResult r = w.run(job(), std::nullopt, token);
    EXPECT_EQ(r.end, FFmpegResult::End::failed);
    EXPECT_EQ(r.terminationStatus, 1);
    EXPECT_EQ(r.error, QStringLiteral("FFmpeg exit code: 1\n\n[aac @ 0x1] Unable to set encoding parameters"));
    EXPECT_EQ(r.outputURL, std::nullopt);
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] FAILED stderr (last 1000 chars): Input #0, mp3")));
    // Lines with "Error" or "Warning" are logged as they arrive.
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Warning: something minor")));
}

TEST_F(FFmpegWrapperScriptedTest, Exit234IsCopyProtectionUnlessTheJobIsAConcat)
{
    const FFmpegWrapper w = wrapper(QStringLiteral("echo '[mov,mp4 @ 0x1] Error: aax activation bytes missing' >&2\nexit 234"));
    const FFmpegResult drm = w.run(job(), std::nullopt, token);
    ASSERT_TRUE(drm.error.has_value());
    EXPECT_TRUE(drm.error->startsWith(QStringLiteral("This file appears to be DRM-protected (e.g., purchased from "
                                                     "Audible or iTunes with copy protection).\n\nFolivox cannot")));
    EXPECT_TRUE(drm.error->endsWith(QStringLiteral("\n\nFFmpeg exit code: 234\n\n[mov,mp4 @ 0x1] Error: aax activation "
                                                   "bytes missing")));

    const FFmpegResult concat =
        w.run({QStringLiteral("-f"), QStringLiteral("concat"), QStringLiteral("-safe"), QStringLiteral("0"),
               QStringLiteral("-i"), path(QStringLiteral("list.txt")), QStringLiteral("-c"), QStringLiteral("copy"),
               path(QStringLiteral("joined.m4a"))},
              std::nullopt, token);
    EXPECT_EQ(concat.error, QStringLiteral("FFmpeg exit code: 234\n\n[mov,mp4 @ 0x1] Error: aax activation bytes missing"));
    EXPECT_EQ(concat.terminationStatus, 234);
}

TEST_F(FFmpegWrapperScriptedTest, FortyNineDecodeErrorsNeverStopARun)
{
    FFmpegWrapper::Options options;
    options.corruptStreamLimit = 300ms;
    // No time= at all for 1.2 s, four times the limit, but one error short.
    const FFmpegWrapper w = wrapper(decodeErrors(49) + QStringLiteral("\nsleep 1.2\necho 'done' >&2\nexit 0"), options);
    const FFmpegResult r = w.run(job(), 60.0, token);
    EXPECT_TRUE(r.succeeded());
    EXPECT_EQ(r.decodeErrorCount, 49);
    EXPECT_FALSE(r.corruptStreamKilled);
    EXPECT_FALSE(log.contains(QStringLiteral("CORRUPT STREAM")));
}

TEST_F(FFmpegWrapperScriptedTest, FiftyDecodeErrorsStopARunOnlyWhileTimeStandsStill)
{
    FFmpegWrapper::Options options;
    options.corruptStreamLimit = 1000ms;
    // Fifty errors, but time= keeps moving for 2 s: the run goes on.
    const FFmpegWrapper moving = wrapper(decodeErrors(50) + QStringLiteral("\n") + movingProgress(20) + QStringLiteral("\nexit 0"),
                                         options);
    const FFmpegResult ok = moving.run(job(), 60.0, token);
    EXPECT_TRUE(ok.succeeded()) << ok.error.value_or(QString()).toStdString();
    EXPECT_EQ(ok.decodeErrorCount, 50);
    EXPECT_FALSE(ok.corruptStreamKilled);

    // ffmpeg 5.x words the same failure differently; it counts the same.
    options.corruptStreamLimit = 500ms;
    const FFmpegWrapper frozen = wrapper(
        QStringLiteral("i=0; while [ $i -lt 50 ]; do echo 'Error while decoding stream #0:0: Invalid data found when "
                       "processing input' >&2; i=$((i+1)); done\n")
            + frozenProgressForever(),
        options);
    QElapsedTimer clock;
    clock.start();
    const FFmpegResult killed = frozen.run(job(), 60.0, token);
    EXPECT_LT(clock.elapsed(), 10000);
    EXPECT_EQ(killed.end, FFmpegResult::End::corruptStream);
    EXPECT_TRUE(killed.corruptStreamKilled);
    EXPECT_EQ(killed.decodeErrorCount, 50);
    EXPECT_EQ(killed.error, kCorruptStream);
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] CORRUPT STREAM: 50 decode errors with no progress after ")));
    EXPECT_TRUE(log.contains(QStringLiteral("s — killing PID=")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] FAILED stderr (last 1000 chars): ")));
}

TEST_F(FFmpegWrapperScriptedTest, SilentChildIsStoppedAfterTheSilenceLimit)
{
    FFmpegWrapper::Options options;
    options.silenceLimit = 500ms;
    const FFmpegWrapper w = wrapper(QStringLiteral("exec sleep 30"), options);
    QElapsedTimer clock;
    clock.start();
    const FFmpegResult r = w.run(job(), std::nullopt, token);
    EXPECT_GE(clock.elapsed(), 450);
    EXPECT_LT(clock.elapsed(), 10000);
    EXPECT_EQ(r.end, FFmpegResult::End::timedOut);
    EXPECT_EQ(r.error, kNotResponding);
    EXPECT_EQ(r.terminationStatus, 15);
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] TIMEOUT: No output for 0.5s — killing stuck process PID=")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] SIGNAL exitCode=15")));
    // This layer sent that signal: no external-kill warning.
    EXPECT_FALSE(log.contains(QStringLiteral("external signal")));
}

TEST_F(FFmpegWrapperScriptedTest, StallLimitStopsAChildThatWritesButMakesNoProgress)
{
    const FFmpegWrapper stuck = wrapper(frozenProgressForever());
    QElapsedTimer clock;
    clock.start();
    const FFmpegResult r = stuck.run(job(), 60.0, token, {}, 0.6);
    EXPECT_LT(clock.elapsed(), 10000);
    EXPECT_EQ(r.end, FFmpegResult::End::stalled);
    EXPECT_FALSE(r.corruptStreamKilled);
    EXPECT_EQ(r.error, QStringLiteral("FFmpeg made no progress for 0.6 s and was stopped."));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] STALL: no progress for ")));

    // The same limit leaves a child alone while its time= moves.
    const FFmpegWrapper moving = wrapper(movingProgress(15) + QStringLiteral("\nexit 0"));
    const FFmpegResult ok = moving.run(job(), 60.0, token, {}, 0.6);
    EXPECT_TRUE(ok.succeeded()) << ok.error.value_or(QString()).toStdString();
}

TEST_F(FFmpegWrapperScriptedTest, ExternalSignalIsLoggedAsSuchAndReportedWithTheDiagnosticText)
{
    const FFmpegWrapper w = wrapper(QStringLiteral("echo 'Press [q] to stop' >&2\nkill -9 $$"));
    const FFmpegResult r = w.run(job(), std::nullopt, token);
    EXPECT_EQ(r.end, FFmpegResult::End::failed);
    EXPECT_EQ(r.terminationStatus, 9);
    EXPECT_EQ(r.error, QStringLiteral("FFmpeg exit code: 9\n\nPress [q] to stop"));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] SIGNAL exitCode=9 duration=")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] WARNING: Process killed by external signal 9 — possible "
                                            "OOM/jetsam. PID=")));
}

TEST_F(FFmpegWrapperScriptedTest, CancelStopsTheChildAndReadsCancelledByUser)
{
    const FFmpegWrapper w = wrapper(movingProgress(300));
    DelayedCancel cancel(token, 300ms);
    const FFmpegResult r = w.run(job(), 600.0, token);
    EXPECT_LT(cancel.sinceCancel(), 3000);
    EXPECT_EQ(r.end, FFmpegResult::End::cancelled);
    EXPECT_EQ(r.error, QStringLiteral("Cancelled by user"));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Cancel requested — sending SIGTERM to PID=")));
    EXPECT_TRUE(log.contains(QStringLiteral("wasCancelled=true")));
    EXPECT_FALSE(log.contains(QStringLiteral("SIGKILL")));
    EXPECT_FALSE(log.contains(QStringLiteral("external signal")));
}

TEST_F(FFmpegWrapperScriptedTest, AlreadyCancelledTokenStartsNothing)
{
    const QString marker = path(QStringLiteral("started"));
    const FFmpegWrapper w = wrapper(QStringLiteral("touch '%1'").arg(marker));
    token.cancel();
    const FFmpegResult r = w.run(job(), std::nullopt, token);
    EXPECT_EQ(r.end, FFmpegResult::End::cancelled);
    EXPECT_EQ(r.error, QStringLiteral("Cancelled by user"));
    EXPECT_FALSE(QFileInfo::exists(marker));
    EXPECT_FALSE(log.contains(QStringLiteral("[FFmpeg] Binary:")));
}

TEST_F(FFmpegWrapperScriptedTest, RefusedPathsStartNothing)
{
    const QString marker = path(QStringLiteral("started"));
    const FFmpegWrapper w = wrapper(QStringLiteral("touch '%1'").arg(marker));
    const QString good = path(QStringLiteral("in.mp3"));
    const QString out = path(QStringLiteral("out.m4a"));
    const QString nul = QString(QChar(u'\0'));
    const std::vector<std::pair<QStringList, QString>> cases = {
        {{QStringLiteral("-i"), QStringLiteral("-evil.mp3"), out}, QStringLiteral("Invalid path: Path cannot start with dash: -evil.mp3")},
        {{QStringLiteral("-i"), good, QStringLiteral("-f"), QStringLiteral("mp4"), QStringLiteral("-out.m4a")},
         QStringLiteral("Invalid path: Path cannot start with dash: -out.m4a")},
        {{QStringLiteral("-i"), good + nul + QStringLiteral(".x"), out}, QStringLiteral("Invalid path: Path cannot contain null bytes")},
        {{QStringLiteral("-i"), dir.path() + QStringLiteral("/../secret.mp3"), out},
         QStringLiteral("Invalid path: Path traversal detected: ") + dir.path() + QStringLiteral("/../secret.mp3")},
        {{QStringLiteral("-i"), good, dir.path() + QStringLiteral("/a\nb.m4a")},
         QStringLiteral("Invalid path: File path contains newline character: ") + dir.path() + QStringLiteral("/a\nb.m4a")},
    };
    for (const auto& [arguments, text] : cases) {
        try {
            w.run(arguments, std::nullopt, token);
            ADD_FAILURE() << "not refused: " << text.toStdString();
        } catch (const FFmpegWrapperError& e) {
            EXPECT_EQ(e.kind(), FFmpegWrapperError::Kind::invalidPath);
            EXPECT_EQ(e.description(), text);
        }
    }
    EXPECT_FALSE(QFileInfo::exists(marker));
    EXPECT_FALSE(log.contains(QStringLiteral("[FFmpeg] Binary:")));
    EXPECT_EQ(ChildProcessReaper::instance().count(), 0u);
    // The same wrapper runs a clean job.
    EXPECT_TRUE(w.run(job(), std::nullopt, token).succeeded());
    EXPECT_TRUE(QFileInfo::exists(marker));
}

TEST_F(FFmpegWrapperScriptedTest, MissingBinaryIsReportedWithItsPath)
{
    FFmpegWrapper::Options options;
    options.ffmpegPath = path(QStringLiteral("nowhere/ffmpeg"));
    const FFmpegWrapper explicitPath(options);
    try {
        explicitPath.run(job(), std::nullopt, token);
        FAIL() << "expected binaryNotFound";
    } catch (const FFmpegWrapperError& e) {
        EXPECT_EQ(e.kind(), FFmpegWrapperError::Kind::binaryNotFound);
        EXPECT_EQ(e.description(), QStringLiteral("FFmpeg binary not found at: ") + path(QStringLiteral("nowhere/ffmpeg")));
    }

    // Resolved by default with neither a tools folder copy nor PATH: the run
    // names the file it expected in the tools folder.
    QTemporaryDir empty;
    const ScopedEnvironment tools("FOLIVOX_TOOLS_DIR", empty.path());
    const ScopedEnvironment pathVar("PATH", empty.path());
    const FFmpegWrapper resolved;
    EXPECT_EQ(resolved.ffmpegPath(),
              QDir(empty.path()).filePath(QStringLiteral("ffmpeg-") + BinaryResolver::currentArchitecture()));
    EXPECT_THROW(resolved.run(job(), std::nullopt, token), FFmpegWrapperError);
    EXPECT_THROW(resolved.inspect(path(QStringLiteral("a.m4a"))), FFmpegWrapperError);
}

TEST_F(FFmpegWrapperScriptedTest, WrongArchitectureFallsBackOnceAndKeepsTheOtherBinary)
{
    const QString arch = BinaryResolver::currentArchitecture();
    const QString other = BinaryResolver::otherArchitecture(arch);
    const QString native = ScriptedTool::writeForeignBinary(dir.path(), QStringLiteral("ffmpeg-") + arch);
    const QString count = path(QStringLiteral("runs"));
    const QString fallback = ScriptedTool::write(dir.path(), QStringLiteral("ffmpeg-") + other,
                                                 QStringLiteral("echo run >> '%1'\nexit 0").arg(count));
    const ScopedEnvironment tools("FOLIVOX_TOOLS_DIR", dir.path());
    const FFmpegWrapper w;
    EXPECT_EQ(w.ffmpegPath(), native);

    const FFmpegResult first = w.run(job(), std::nullopt, token);
    EXPECT_TRUE(first.succeeded());
    EXPECT_EQ(w.ffmpegPath(), fallback);
    EXPECT_EQ(log.count(QStringLiteral("[FFmpeg] Wrong architecture for ")), 1);
    // Later runs, and later lookups in this program, go straight to it.
    EXPECT_TRUE(w.run(job(), std::nullopt, token).succeeded());
    EXPECT_EQ(log.count(QStringLiteral("[FFmpeg] Wrong architecture for ")), 1);
    EXPECT_EQ(Fixtures::readFile(count), QByteArray("run\nrun\n"));
    EXPECT_EQ(BinaryResolver().find(QStringLiteral("ffmpeg")), fallback);
    EXPECT_EQ(FFmpegWrapper().ffmpegPath(), fallback);
    BinaryResolver::forgetFallbacks();
}

TEST_F(FFmpegWrapperScriptedTest, WrongArchitectureOnBothBinariesNamesBoth)
{
    const QString arch = BinaryResolver::currentArchitecture();
    const QString native = ScriptedTool::writeForeignBinary(dir.path(), QStringLiteral("ffmpeg-") + arch);
    FFmpegWrapper::Options options;
    options.ffmpegPath = native;
    const QString other = BinaryResolver::otherArchitecturePath(native);
    try {
        FFmpegWrapper(options).run(job(), std::nullopt, token);
        FAIL() << "expected wrongArchitecture";
    } catch (const ToolLaunchError& e) {
        EXPECT_EQ(e.kind(), ToolLaunchError::Kind::wrongArchitecture);
        EXPECT_EQ(e.description(),
                  QStringLiteral("ffmpeg binary has wrong architecture (tried: ") + native + QStringLiteral(", ") + other + QStringLiteral(")"));
    }
    ScriptedTool::writeForeignBinary(dir.path(), QFileInfo(other).fileName());
    EXPECT_THROW(FFmpegWrapper(options).run(job(), std::nullopt, token), ToolLaunchError);
    EXPECT_EQ(ChildProcessReaper::instance().count(), 0u);

    // Any other launch error is passed on, without a retry.
    QFile plain(path(QStringLiteral("not-executable")));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.close();
    options.ffmpegPath = plain.fileName();
    try {
        FFmpegWrapper(options).run(job(), std::nullopt, token);
        FAIL() << "expected launchFailed";
    } catch (const ToolLaunchError& e) {
        EXPECT_EQ(e.kind(), ToolLaunchError::Kind::launchFailed);
        EXPECT_TRUE(e.description().startsWith(QStringLiteral("Could not start ffmpeg (") + plain.fileName()));
    }
}

TEST_F(FFmpegWrapperScriptedTest, StderrIsBoundedKeepingItsStartAndEnd)
{
    // About 400 kB of stderr.
    const FFmpegWrapper w = wrapper(QStringLiteral(
        "i=0; while [ $i -lt 4000 ]; do echo \"line $i ......................................................."
        "..........................\" >&2; i=$((i+1)); done\nexit 0"));
    const FFmpegResult r = w.run(job(), std::nullopt, token);
    EXPECT_TRUE(r.succeeded());
    const QByteArray bytes = r.stderr.toUtf8();
    EXPECT_LE(bytes.size(), FFmpegWrapper::kStderrLimit);
    EXPECT_GT(bytes.size(), FFmpegWrapper::kStderrLimit - 100);
    EXPECT_TRUE(bytes.startsWith("line 0 ..."));
    EXPECT_TRUE(bytes.contains("\nline 3999 ..."));
    EXPECT_TRUE(bytes.contains(" bytes omitted ...]"));
}

TEST_F(FFmpegWrapperScriptedTest, ExitZeroWithAFullDiskIsAFailure)
{
    const FFmpegWrapper w = wrapper(QStringLiteral(
        "echo 'Error writing trailer of out.m4a: No space left on device' >&2\nexit 0"));
    const FFmpegResult r = w.run(job(), std::nullopt, token);
    EXPECT_EQ(r.end, FFmpegResult::End::outOfSpace);
    EXPECT_TRUE(r.indicatesOutOfSpace());
    EXPECT_EQ(r.error, QStringLiteral("FFmpeg exit code: 0\n\nError writing trailer of out.m4a: No space left on device"));
}

TEST_F(FFmpegWrapperScriptedTest, ParallelRunsAreIndependent)
{
    // Two quick runs share one wrapper; a third, long one is cancelled alone.
    const FFmpegWrapper quick = wrapper(movingProgress(8) + QStringLiteral("\nexit 0"));
    FFmpegWrapper::Options slowOptions;
    slowOptions.ffmpegPath = ScriptedTool::write(dir.path(), QStringLiteral("slow"), movingProgress(200));
    const FFmpegWrapper slow(slowOptions);
    ManualCancellationToken cancelSlow;
    FFmpegResult results[3];
    std::vector<double> progress[3];
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&, i] {
            const FFmpegWrapper& w = i == 2 ? slow : quick;
            const CancellationToken& t = i == 2 ? static_cast<const CancellationToken&>(cancelSlow) : token;
            results[i] = w.run(job(), 100.0, t, [&, i](double f) { progress[i].push_back(f); });
        });
    }
    std::this_thread::sleep_for(400ms);
    EXPECT_GE(ChildProcessReaper::instance().count(), 1u);
    cancelSlow.cancel();
    for (auto& t : threads)
        t.join();
    EXPECT_TRUE(results[0].succeeded());
    EXPECT_TRUE(results[1].succeeded());
    EXPECT_EQ(results[2].error, QStringLiteral("Cancelled by user"));
    EXPECT_EQ(progress[0].size(), 8u);
    EXPECT_EQ(progress[1].size(), 8u);
    EXPECT_DOUBLE_EQ(progress[0].back(), 0.17);
    EXPECT_EQ(ChildProcessReaper::instance().count(), 0u);
}

TEST_F(FFmpegWrapperScriptedTest, InspectReturnsTheStreamDescriptionAndTimesOut)
{
    const FFmpegWrapper w = wrapper(QStringLiteral(
        "echo \"args: $*\" >&2\n"
        "echo 'Input #0, mov,mp4,m4a, from x' >&2\n"
        "echo '  Duration: 00:00:01.00, start: 0.000000, bitrate: 64 kb/s' >&2\n"
        "echo 'At least one output file must be specified' >&2\n"
        "exit 1"));
    const QString file = path(QStringLiteral("x.m4a"));
    const QString text = w.inspect(file);
    EXPECT_TRUE(text.startsWith(QStringLiteral("args: -nostdin -i ") + file + QStringLiteral("\n")));
    EXPECT_TRUE(text.contains(QStringLiteral("Duration: 00:00:01.00")));
    EXPECT_THROW(w.inspect(QStringLiteral("-x.m4a")), FFmpegWrapperError);

    FFmpegWrapper::Options options;
    options.inspectTimeout = 500ms;
    const FFmpegWrapper hung = wrapper(QStringLiteral("exec sleep 30"), options);
    QElapsedTimer clock;
    clock.start();
    try {
        hung.inspect(file);
        FAIL() << "expected inspectionTimedOut";
    } catch (const FFmpegWrapperError& e) {
        EXPECT_EQ(e.kind(), FFmpegWrapperError::Kind::inspectionTimedOut);
        EXPECT_EQ(e.description(), QStringLiteral("FFmpeg inspection timed out for x.m4a"));
    }
    EXPECT_LT(clock.elapsed(), 5000);
    EXPECT_TRUE(log.contains(QStringLiteral("[Inspect] TIMEOUT: ffmpeg -i hung for 0.5s on x.m4a")));
    EXPECT_EQ(ChildProcessReaper::instance().count(), 0u);
}
