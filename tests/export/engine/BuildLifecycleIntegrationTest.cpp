// `folivox build` stopped the hard ways a user or the system stops it: kill -9,
// a closed terminal, a Ctrl-C that lands after the book is in place, a second
// build to the same output, a folder that takes no new files. The real
// command runs as a child process; the test looks at its exit status, its
// children, and what stays on disk.
#include "export/engine/EngineTestSupport.h"
#include "support/CommandRunner.h"
#include "support/Fixtures.h"
#include "support/SmallVolume.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>

#include <unistd.h>

using namespace folivox;
using folivox::test::CommandRun;
using folivox::test::CommandRunner;
using folivox::test::Fixtures;

namespace {

// Children of `parent` whose program is `name`.
QList<qint64> childrenNamed(qint64 parent, const QByteArray& name)
{
    QList<qint64> found;
    for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QByteArray stat = Fixtures::readFile(QStringLiteral("/proc/%1/stat").arg(pid));
        const qsizetype open = stat.indexOf('(');
        const qsizetype close = stat.lastIndexOf(')');
        if (open < 0 || close < 0 || stat.mid(open + 1, close - open - 1) != name)
            continue;
        const QList<QByteArray> rest = stat.mid(close + 2).split(' ');
        if (rest.size() > 1 && rest[0] != "Z" && rest[1].toLongLong() == parent)
            found << pid.toLongLong();
    }
    return found;
}

QByteArray md5Of(const QString& path)
{
    return QCryptographicHash::hash(Fixtures::readFile(path), QCryptographicHash::Md5).toHex();
}

class BuildLifecycle : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (CommandRunner::folivoxBinary().isEmpty())
            GTEST_SKIP() << "the folivox command is not built";
        ASSERT_TRUE(dir_.isValid());
    }
    void TearDown() override
    {
        // Whatever happened, nothing the test started may stay behind.
        for (const QString& line : CommandRunner::processesMentioning(dir_.path()))
            ::kill(static_cast<pid_t>(line.section(u' ', 0, 0).toLongLong()), SIGKILL);
    }

    QString path(const QString& name) const { return dir_.filePath(name); }

    // Sources long enough that the encode is still running when the test acts.
    QString longBook()
    {
        const QString folder = path(QStringLiteral("long"));
        if (!QFileInfo::exists(folder)) {
            for (int i = 0; i < 3; ++i)
                test::mp3Tone(QDir(folder).filePath(QStringLiteral("%1.mp3").arg(i)), 240.0, 250 + 50 * i);
        }
        return folder;
    }

    void start(QProcess& p, const QStringList& args, const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment())
    {
        p.setWorkingDirectory(dir_.path());
        p.setStandardInputFile(QProcess::nullDevice());
        p.setProcessEnvironment(env);
        p.start(CommandRunner::folivoxBinary(), args);
        ASSERT_TRUE(p.waitForStarted(10000));
    }

    // Reads stderr until `text` shows up (or the process ends, or a minute passes).
    static QByteArray waitForText(QProcess& p, const QByteArray& text)
    {
        QByteArray err;
        QElapsedTimer clock;
        clock.start();
        while (!err.contains(text) && clock.elapsed() < 60000 && p.state() == QProcess::Running) {
            p.waitForReadyRead(50);
            err += p.readAllStandardError();
        }
        return err;
    }

    static QString workFolderOf(const QString& logFile)
    {
        const QString log = QString::fromUtf8(Fixtures::readFile(logFile));
        const QString marker = QStringLiteral("Work folder: ");
        const qsizetype at = log.indexOf(marker);
        return at < 0 ? QString() : log.mid(at + marker.size()).section(u'\n', 0, 0).trimmed();
    }

    QTemporaryDir dir_;
};

} // namespace

TEST_F(BuildLifecycle, AKilledBuildTakesItsEncodersAlongAndTheNextRunSweepsItsWork)
{
    const QString input = longBook();
    const QString output = path(QStringLiteral("Mine.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(output, "a book the user already had"));
    const QString logFile = path(QStringLiteral("killed.log"));
    QProcess p;
    start(p, {QStringLiteral("build"), input, QStringLiteral("-o"), output, QStringLiteral("-f"), QStringLiteral("-j"),
              QStringLiteral("2"), QStringLiteral("--bitrate"), QStringLiteral("64"), QStringLiteral("--log"), logFile});
    const QByteArray err = waitForText(p, "Encoding audio");
    ASSERT_TRUE(err.contains("Encoding audio")) << err.toStdString();
    QList<qint64> encoders;
    QElapsedTimer clock;
    clock.start();
    while ((encoders = childrenNamed(p.processId(), "ffmpeg")).isEmpty() && clock.elapsed() < 20000)
        QThread::msleep(10);
    ASSERT_FALSE(encoders.isEmpty()) << "no ffmpeg child was seen";

    ::kill(static_cast<pid_t>(p.processId()), SIGKILL);
    ASSERT_TRUE(p.waitForFinished(10000));
    clock.restart();
    while (!CommandRunner::processesMentioning(dir_.path()).isEmpty() && clock.elapsed() < 1000)
        QThread::msleep(20);
    EXPECT_TRUE(CommandRunner::processesMentioning(dir_.path()).isEmpty())
        << "left running: " << CommandRunner::processesMentioning(dir_.path()).join(u'\n').toStdString();
    EXPECT_EQ(Fixtures::readFile(output), QByteArray("a book the user already had"));

    // The killed build could not remove its work folder; the next run does.
    const QString work = workFolderOf(logFile);
    ASSERT_FALSE(work.isEmpty());
    ASSERT_TRUE(QFileInfo(work).isDir()) << "the scenario needs the killed build's work folder";
    test::mp3Tone(path(QStringLiteral("short/a.mp3")), 1.0);
    QProcess next;
    start(next, {QStringLiteral("build"), path(QStringLiteral("short")), QStringLiteral("-o"), path(QStringLiteral("Next.m4b")),
                 QStringLiteral("--quiet")});
    ASSERT_TRUE(next.waitForFinished(120000));
    EXPECT_EQ(next.exitCode(), 0) << next.readAllStandardError().toStdString();
    EXPECT_FALSE(QFileInfo::exists(work));
    EXPECT_FALSE(QFileInfo::exists(work + QStringLiteral(".lock")));
    EXPECT_EQ(QDir(dir_.path()).entryList({QStringLiteral(".folivox*")}, QDir::AllEntries | QDir::Hidden), QStringList{});
}

TEST_F(BuildLifecycle, AClosedTerminalCancelsLikeCtrlCAndLeavesNothingBehind)
{
    const QString input = longBook();
    const QString output = path(QStringLiteral("Mine.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(output, "a book the user already had"));
    const QString logFile = path(QStringLiteral("hup.log"));
    QProcess p;
    start(p, {QStringLiteral("build"), input, QStringLiteral("-o"), output, QStringLiteral("-f"), QStringLiteral("-j"),
              QStringLiteral("1"), QStringLiteral("--bitrate"), QStringLiteral("64"), QStringLiteral("--log"), logFile});
    QByteArray err = waitForText(p, "Encoding audio");
    ASSERT_TRUE(err.contains("Encoding audio")) << err.toStdString();
    ::kill(static_cast<pid_t>(p.processId()), SIGHUP);
    ASSERT_TRUE(p.waitForFinished(30000));
    err += p.readAllStandardError();

    EXPECT_EQ(p.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.exitCode(), 130) << err.toStdString();
    EXPECT_TRUE(err.contains("folivox build: cancelled")) << err.toStdString();
    EXPECT_EQ(Fixtures::readFile(output), QByteArray("a book the user already had"));
    EXPECT_TRUE(CommandRunner::processesMentioning(dir_.path()).isEmpty()) << CommandRunner::processesMentioning(dir_.path()).join(u'\n').toStdString();
    const QString work = workFolderOf(logFile);
    EXPECT_FALSE(work.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(work));
    EXPECT_EQ(QDir(dir_.path()).entryList({QStringLiteral(".folivox*")}, QDir::AllEntries | QDir::Hidden), QStringList{});
}

TEST_F(BuildLifecycle, ACtrlCThatLandsAfterTheBookIsInPlaceIsASuccess)
{
    test::mp3Tone(path(QStringLiteral("in/a.mp3")), 2.0);
    const QString output = path(QStringLiteral("Mine.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(output, "the previous build"));
    const QString logFile = path(QStringLiteral("late.log"));
    // The command sends itself SIGINT the moment the new book is in place.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("FOLIVOX_FAULT_SIGNAL"), QStringLiteral("export.outputPlaced:INT"));
    QProcess p;
    start(p, {QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), output, QStringLiteral("-f"),
              QStringLiteral("--bitrate"), QStringLiteral("64"), QStringLiteral("--log"), logFile},
          env);
    ASSERT_TRUE(p.waitForFinished(120000));
    const QByteArray err = p.readAllStandardError();
    const QByteArray out = p.readAllStandardOutput();

    ASSERT_TRUE(QString::fromUtf8(Fixtures::readFile(logFile)).contains(QStringLiteral("[Fault] raising signal 2 at export.outputPlaced")))
        << "the signal never landed";
    EXPECT_EQ(p.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.exitCode(), 0) << err.toStdString();
    EXPECT_FALSE(err.contains("cancelled")) << err.toStdString();
    EXPECT_TRUE(out.contains("Built " + output.toUtf8())) << out.toStdString();
    EXPECT_NEAR(Fixtures::decodedDuration(output), 2.0, 0.1);
}

TEST_F(BuildLifecycle, AFolderThatTakesNoNewFilesFailsBeforeAudioWorkAndKeepsTheOldBook)
{
    test::mp3Tone(path(QStringLiteral("in/a.mp3")), 2.0);
    const QString shelf = path(QStringLiteral("Shelf"));
    const QString output = QDir(shelf).filePath(QStringLiteral("Book.m4b"));
    test::aacTone(output, 3.0, 330);
    const QByteArray before = md5Of(output);
    if (!test::makeFolderRefuseNewEntries(shelf))
        GTEST_SKIP() << "cannot make a folder refuse new files here";
    const QString logFile = path(QStringLiteral("refused.log"));
    QProcess p;
    start(p, {QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), output, QStringLiteral("-f"),
              QStringLiteral("--bitrate"), QStringLiteral("64"), QStringLiteral("--log"), logFile});
    const bool ended = p.waitForFinished(120000);
    const QStringList entries = QDir(shelf).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    test::allowNewEntries(shelf);
    ASSERT_TRUE(ended);
    const QString err = QString::fromUtf8(p.readAllStandardError());

    EXPECT_EQ(p.exitCode(), 1) << err.toStdString();
    EXPECT_TRUE(err.contains(QStringLiteral("Folivox can't create new files in “Shelf”, so it can't replace “Book.m4b” "
                                            "safely")))
        << err.toStdString();
    EXPECT_EQ(md5Of(output), before);
    EXPECT_EQ(entries, QStringList{QStringLiteral("Book.m4b")});
    const QString log = QString::fromUtf8(Fixtures::readFile(logFile));
    EXPECT_FALSE(log.contains(QStringLiteral("[FFmpeg] Binary:"))) << "audio work ran";
    EXPECT_FALSE(log.contains(QStringLiteral("Work folder:"))) << "audio work ran";
}

TEST_F(BuildLifecycle, ASecondBuildToTheSameOutputIsRefusedAtOnceNamingTheFirst)
{
    const QString input = longBook();
    const QString output = path(QStringLiteral("Shared.m4b"));
    QProcess first;
    start(first, {QStringLiteral("build"), input, QStringLiteral("-o"), output, QStringLiteral("-j"), QStringLiteral("1"),
                  QStringLiteral("--bitrate"), QStringLiteral("64")});
    const QByteArray firstErr = waitForText(first, "Encoding audio");
    ASSERT_TRUE(firstErr.contains("Encoding audio")) << firstErr.toStdString();
    const qint64 firstPid = first.processId();

    // The same output spelled another way, from another folder.
    QDir().mkpath(path(QStringLiteral("elsewhere")));
    QProcess second;
    second.setWorkingDirectory(path(QStringLiteral("elsewhere")));
    second.setStandardInputFile(QProcess::nullDevice());
    second.start(CommandRunner::folivoxBinary(), {QStringLiteral("build"), input, QStringLiteral("-o"), QStringLiteral("../Shared.m4b"),
                                   QStringLiteral("--bitrate"), QStringLiteral("64")});
    ASSERT_TRUE(second.waitForStarted(10000));
    const bool secondEnded = second.waitForFinished(20000);
    const bool firstStillRunning = first.state() == QProcess::Running;
    const QString secondErr = QString::fromUtf8(second.readAllStandardError());
    if (!secondEnded) {
        second.kill();
        second.waitForFinished(10000);
    }
    ::kill(static_cast<pid_t>(firstPid), SIGINT);
    first.waitForFinished(30000);

    ASSERT_TRUE(secondEnded) << "the second build was not refused at once";
    EXPECT_TRUE(firstStillRunning);
    EXPECT_EQ(second.exitCode(), 1) << secondErr.toStdString();
    EXPECT_TRUE(secondErr.contains(QStringLiteral("Another Folivox build (process %1) is already writing “%2”")
                                       .arg(firstPid)
                                       .arg(output)))
        << secondErr.toStdString();
    // The first was cancelled: no output, and nothing the second did left one either.
    EXPECT_EQ(first.exitCode(), 130);
    EXPECT_FALSE(QFileInfo::exists(output));
}

TEST_F(BuildLifecycle, AFullTemporaryDiskIsNamedWithWhatToDo)
{
    // A temporary folder on a tiny disk of its own (needs root to mount).
    const test::SmallVolume tiny(path(QStringLiteral("tiny-tmp")), "size=1m");
    if (!tiny.mounted())
        GTEST_SKIP() << tiny.failure().toStdString();
    const QString temp = tiny.path();
    test::mp3Tone(path(QStringLiteral("in/a.mp3")), 240.0);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TMPDIR"), temp);
    QProcess p;
    start(p, {QStringLiteral("build"), path(QStringLiteral("in")), QStringLiteral("-o"), path(QStringLiteral("Book.m4b")),
              QStringLiteral("--bitrate"), QStringLiteral("64")},
          env);
    ASSERT_TRUE(p.waitForFinished(120000));
    const QString err = QString::fromUtf8(p.readAllStandardError());
    EXPECT_EQ(p.exitCode(), 1) << err.toStdString();
    EXPECT_TRUE(err.contains(QStringLiteral("The disk that holds the temporary folder “") + temp + QStringLiteral("” ran out of space")))
        << err.toStdString();
    EXPECT_TRUE(err.contains(QStringLiteral("or set TMPDIR to a folder on a disk with more room"))) << err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("Book.m4b"))));
    EXPECT_EQ(QDir(temp + QStringLiteral("/FolivoxWork")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{});
}
