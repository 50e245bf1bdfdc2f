#pragma once

#include "process/ChildProcessReaper.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <memory>

class QProcess;

namespace folivox {

// One child process, launched the way every tool run in Folivox is: argument
// vector (never a shell), standard input from the null device, standard error
// on a pipe, standard output on a pipe or the null device, and an entry in the
// ChildProcessReaper for exactly as long as the child lives. On Linux the
// child is also bound to Folivox's life by the kernel (PR_SET_PDEATHSIG): a
// Folivox killed outright takes its children with it.
//
// Not thread-safe: the thread that made it drives it (the QProcess underneath
// belongs to that thread and needs no event loop).
class WatchedProcess {
public:
    enum class StandardOutput { discard, capture };

    // `tool` is the base name ("ffmpeg", "mp4tags"), used to find the other
    // architecture's binary and in messages; `logTag` prefixes log lines.
    WatchedProcess(QString tool, QStringList arguments, StandardOutput standardOutput, QString logTag);

    // A program and its arguments as one line a POSIX shell reads back the
    // same (words quoted where they need it).
    static QString commandLine(const QString& program, const QStringList& arguments);
    // A child still running is killed and waited for; the reaper entry goes.
    ~WatchedProcess();
    WatchedProcess(const WatchedProcess&) = delete;
    WatchedProcess& operator=(const WatchedProcess&) = delete;

    // Starts the binary at `path`. When the system refuses it as the wrong
    // architecture (ENOEXEC), starts the other architecture's binary once and
    // remembers it for later runs. Returns the path that is running. Throws
    // ToolLaunchError (wrongArchitecture, launchFailed).
    QString launch(const QString& path);

    // Waits up to `ms` for the child to end, buffering its output meanwhile.
    // True once the child has ended.
    bool waitForFinished(int ms);
    bool isRunning() const;

    QByteArray readStandardError();
    QByteArray readStandardOutput();

    // SIGTERM and SIGKILL.
    void terminate();
    void kill();
    // SIGTERM, then SIGKILL when the child is still there after `grace`;
    // returns once it has ended. Output keeps being buffered meanwhile.
    void stop(std::chrono::milliseconds grace);

    qint64 pid() const { return pid_; }
    // After the end: true for an exit, false for death by a signal.
    bool exitedNormally() const;
    // After the end: the exit status or the signal number.
    int terminationStatus() const;
    // The reaper asked this child to stop (program exit or a signal).
    bool terminationRequested() const { return entry_->terminationRequested(); }

private:
    void finish();

    QString tool_;
    QString logTag_;
    std::shared_ptr<ChildProcessReaper::Entry> entry_;
    std::unique_ptr<QProcess> process_;
    qint64 pid_ = 0;
    bool left_ = false;
};

} // namespace folivox
