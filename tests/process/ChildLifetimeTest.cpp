// A child process never outlives Folivox, even when Folivox is killed
// outright and has no chance to stop it.
#include "process/WatchedProcess.h"

#include "support/Fixtures.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <thread>

#include <unistd.h>

using namespace folivox;

namespace {

const char* kHelperVariable = "FOLIVOX_CHILD_LIFETIME_HELPER";

// Alive and not yet a zombie.
bool running(qint64 pid)
{
    const QByteArray stat = test::Fixtures::readFile(QStringLiteral("/proc/%1/stat").arg(pid));
    const qsizetype close = stat.lastIndexOf(')');
    return close > 0 && close + 2 < stat.size() && stat.at(close + 2) != 'Z';
}

} // namespace

// Not a test of its own: the process the test below kills. It starts a child
// from a worker thread, the way builds do, prints the child's id and waits.
TEST(ChildLifetimeHelper, StartsAChildFromAWorkerThreadAndWaits)
{
    if (!qEnvironmentVariableIsSet(kHelperVariable))
        GTEST_SKIP() << "run by ChildLifetimeTest as a separate process";
    std::thread worker([] {
        WatchedProcess child(QStringLiteral("sleep"), {QStringLiteral("60")}, WatchedProcess::StandardOutput::discard,
                             QStringLiteral("Test"));
        child.launch(QStandardPaths::findExecutable(QStringLiteral("sleep")));
        std::printf("child %lld\n", static_cast<long long>(child.pid()));
        std::fflush(stdout);
        child.waitForFinished(-1);
    });
    worker.join();
}

TEST(ChildLifetimeTest, ChildrenDieWithAProgramKilledOutright)
{
    QProcess helper;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QString::fromLatin1(kHelperVariable), QStringLiteral("1"));
    helper.setProcessEnvironment(env);
    helper.setStandardInputFile(QProcess::nullDevice());
    helper.start(QCoreApplication::applicationFilePath(),
                 {QStringLiteral("--gtest_filter=ChildLifetimeHelper.*")});
    ASSERT_TRUE(helper.waitForStarted(10000));
    QByteArray out;
    QElapsedTimer clock;
    clock.start();
    while (!out.contains('\n') || !out.contains("child ")) {
        ASSERT_LT(clock.elapsed(), 20000) << out.toStdString();
        helper.waitForReadyRead(100);
        out += helper.readAllStandardOutput();
    }
    const qsizetype at = out.indexOf("child ");
    const qint64 child = out.mid(at + 6, out.indexOf('\n', at) - at - 6).trimmed().toLongLong();
    ASSERT_GT(child, 0) << out.toStdString();
    ASSERT_TRUE(running(child));

    ::kill(static_cast<pid_t>(helper.processId()), SIGKILL);
    ASSERT_TRUE(helper.waitForFinished(10000));
    clock.restart();
    while (running(child) && clock.elapsed() < 2000)
        QThread::msleep(20);
    const bool survived = running(child);
    if (survived)
        ::kill(static_cast<pid_t>(child), SIGKILL); // never leave it behind
    EXPECT_FALSE(survived) << "the child outlived the program that started it";
}
