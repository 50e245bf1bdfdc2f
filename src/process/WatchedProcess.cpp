#include "process/WatchedProcess.h"

#include <QRegularExpression>

#include "process/BinaryResolver.h"
#include "process/ToolLaunchError.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QProcess>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <unistd.h>
#if defined(__linux__)
#include <sys/prctl.h>
#endif

namespace folivox {

namespace {

// QProcess reports an exec failure as "<function>: <strerror text>".
bool isWrongArchitecture(const QProcess& process)
{
    if (process.error() != QProcess::FailedToStart)
        return false;
    const QString wrongFormat = QString::fromLocal8Bit(std::strerror(ENOEXEC));
    return process.errorString().endsWith(wrongFormat);
}

} // namespace

WatchedProcess::WatchedProcess(QString tool, QStringList arguments, StandardOutput standardOutput, QString logTag)
    : tool_(std::move(tool)), logTag_(std::move(logTag)), process_(std::make_unique<QProcess>())
{
    process_->setArguments(arguments);
    process_->setStandardInputFile(QProcess::nullDevice());
    if (standardOutput == StandardOutput::discard)
        process_->setStandardOutputFile(QProcess::nullDevice());
    process_->setProcessChannelMode(QProcess::SeparateChannels);
#if defined(__linux__)
    // The child dies with Folivox, however Folivox ends (kill -9 included).
    // The kernel sends the signal when the thread that started the child
    // ends; that thread is the one that drives this object, and it stays in
    // waitForFinished() or the destructor until the child has ended, so the
    // signal can only come from Folivox's death. If Folivox died between the
    // fork and the prctl, the child has already been handed to another
    // parent and leaves at once.
    const pid_t parent = ::getpid();
    process_->setChildProcessModifier([parent] {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(127);
    });
#endif
    entry_ = ChildProcessReaper::instance().enter(tool_);
}

WatchedProcess::~WatchedProcess()
{
    if (process_->state() != QProcess::NotRunning) {
        process_->kill();
        process_->waitForFinished(-1);
    }
    finish();
}

QString WatchedProcess::commandLine(const QString& program, const QStringList& arguments)
{
    // Quoted as a POSIX shell reads it, so that the line can be pasted into a terminal.
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_./:=,+%@-]+$"));
    const auto quoted = [](const QString& word) {
        if (plain.match(word).hasMatch())
            return word;
        return u'\'' + QString(word).replace(u'\'', QStringLiteral("'\\''")) + u'\'';
    };
    QStringList words{quoted(program)};
    for (const QString& a : arguments)
        words << quoted(a);
    return words.join(u' ');
}

QString WatchedProcess::launch(const QString& path)
{
    process_->setProgram(path);
    // The whole command, for the build's log and --verbose.
    Log::write(logTag_, QStringLiteral("Command: ") + commandLine(path, process_->arguments()));
    process_->start();
    if (!process_->waitForStarted(-1)) {
        if (!isWrongArchitecture(*process_)) {
            const QString reason = process_->errorString();
            finish();
            throw ToolLaunchError::launchFailed(tool_, path, reason);
        }
        const QString other = BinaryResolver::otherArchitecturePath(path);
        Log::write(logTag_, QStringLiteral("Wrong architecture for %1; trying %2").arg(path, other));
        const QFileInfo info(other);
        if (other.isEmpty() || !info.isFile() || !info.isExecutable()) {
            finish();
            throw ToolLaunchError::wrongArchitecture(tool_, path, other);
        }
        process_->setProgram(other);
        process_->start();
        if (!process_->waitForStarted(-1)) {
            finish();
            if (isWrongArchitecture(*process_))
                throw ToolLaunchError::wrongArchitecture(tool_, path, other);
            throw ToolLaunchError::launchFailed(tool_, other, process_->errorString());
        }
        BinaryResolver::rememberFallback(tool_, other);
    }
    pid_ = process_->processId();
    ChildProcessReaper::instance().launched(entry_, pid_);
    return process_->program();
}

bool WatchedProcess::waitForFinished(int ms)
{
    if (process_->state() == QProcess::NotRunning || process_->waitForFinished(ms)
        || process_->state() == QProcess::NotRunning) {
        finish();
        return true;
    }
    return false;
}

bool WatchedProcess::isRunning() const
{
    return process_->state() != QProcess::NotRunning;
}

QByteArray WatchedProcess::readStandardError()
{
    return process_->readAllStandardError();
}

QByteArray WatchedProcess::readStandardOutput()
{
    return process_->readAllStandardOutput();
}

void WatchedProcess::terminate()
{
    process_->terminate();
}

void WatchedProcess::kill()
{
    process_->kill();
}

void WatchedProcess::stop(std::chrono::milliseconds grace)
{
    if (!isRunning())
        return;
    process_->terminate();
    if (!process_->waitForFinished(static_cast<int>(grace.count()))) {
        process_->kill();
        process_->waitForFinished(-1);
    }
    finish();
}

bool WatchedProcess::exitedNormally() const
{
    return process_->exitStatus() == QProcess::NormalExit;
}

int WatchedProcess::terminationStatus() const
{
    // For a death by signal Qt reports the signal number as the exit code.
    return process_->exitCode();
}

void WatchedProcess::finish()
{
    if (left_)
        return;
    left_ = true;
    ChildProcessReaper::instance().leave(entry_);
}

} // namespace folivox
