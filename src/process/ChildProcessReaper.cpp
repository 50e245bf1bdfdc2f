#include "process/ChildProcessReaper.h"

#include "platform/Log.h"

#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/syscall.h>
#endif

namespace folivox {

namespace {

int openPidfd(qint64 pid)
{
#if defined(__linux__) && defined(SYS_pidfd_open)
    // The descriptor is close-on-exec, so later children do not inherit it.
    const long fd = ::syscall(SYS_pidfd_open, static_cast<pid_t>(pid), 0);
    return fd >= 0 ? static_cast<int>(fd) : -1;
#else
    (void)pid;
    return -1;
#endif
}

bool sendThroughPidfd(int pidfd, int signalNumber)
{
#if defined(__linux__) && defined(SYS_pidfd_send_signal)
    return ::syscall(SYS_pidfd_send_signal, pidfd, signalNumber, nullptr, 0) == 0;
#else
    (void)pidfd;
    (void)signalNumber;
    return false;
#endif
}

} // namespace

void terminateChildrenAtExit()
{
    ChildProcessReaper::instance().terminateAllImpl(ChildProcessReaper::kDefaultGrace, false);
}

ChildProcessReaper::Entry::Entry(QString program) : program_(std::move(program)) {}

ChildProcessReaper::Entry::~Entry()
{
    if (pidfd_ >= 0)
        ::close(pidfd_);
}

QString ChildProcessReaper::Entry::program() const
{
    std::lock_guard lock(mutex_);
    return program_;
}

qint64 ChildProcessReaper::Entry::pid() const
{
    std::lock_guard lock(mutex_);
    return pid_;
}

void ChildProcessReaper::Entry::attach(qint64 pid)
{
    std::lock_guard lock(mutex_);
    pid_ = pid;
    // Opened while the child cannot have been reaped yet: only the thread that
    // launched it reaps it, and that thread is here.
    pidfd_ = openPidfd(pid);
}

void ChildProcessReaper::Entry::markEnded()
{
    std::lock_guard lock(mutex_);
    ended_ = true;
    if (pidfd_ >= 0) {
        ::close(pidfd_);
        pidfd_ = -1;
    }
}

bool ChildProcessReaper::Entry::signal(int signalNumber)
{
    std::lock_guard lock(mutex_);
    if (ended_ || pid_ <= 0)
        return false;
    if (pidfd_ >= 0)
        return sendThroughPidfd(pidfd_, signalNumber);
    return ::kill(static_cast<pid_t>(pid_), signalNumber) == 0;
}

bool ChildProcessReaper::Entry::isAlive() const
{
    std::lock_guard lock(mutex_);
    if (ended_ || pid_ <= 0)
        return false;
    if (pidfd_ >= 0) {
        // A pidfd becomes readable when its process exits.
        pollfd p{pidfd_, POLLIN, 0};
        return ::poll(&p, 1, 0) == 0;
    }
    // Look without reaping: the owner of the run collects the exit status.
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return false;
    return info.si_pid == 0;
}

ChildProcessReaper& ChildProcessReaper::instance()
{
    static ChildProcessReaper* reaper = [] {
        auto* r = new ChildProcessReaper;
        std::atexit(terminateChildrenAtExit);
        return r;
    }();
    return *reaper;
}

std::shared_ptr<ChildProcessReaper::Entry> ChildProcessReaper::enter(const QString& program)
{
    auto entry = std::make_shared<Entry>(program);
    std::lock_guard lock(mutex_);
    state_.emplace(entry.get(), entry);
    return entry;
}

void ChildProcessReaper::launched(const std::shared_ptr<Entry>& entry, qint64 pid)
{
    entry->attach(pid);
    if (entry->terminationRequested())
        entry->signal(SIGTERM);
}

void ChildProcessReaper::leave(const std::shared_ptr<Entry>& entry)
{
    entry->markEnded();
    std::lock_guard lock(mutex_);
    state_.erase(entry.get());
}

std::size_t ChildProcessReaper::count() const
{
    std::lock_guard lock(mutex_);
    return state_.size();
}

int ChildProcessReaper::terminateAll(std::chrono::milliseconds grace)
{
    return terminateAllImpl(grace, true);
}

int ChildProcessReaper::terminateAllImpl(std::chrono::milliseconds grace, bool writeLog)
{
    std::vector<std::shared_ptr<Entry>> entries;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [key, entry] : state_)
            entries.push_back(entry);
    }
    if (entries.empty())
        return 0;

    int signalled = 0;
    for (const auto& entry : entries) {
        entry->terminationRequested_.store(true);
        if (entry->signal(SIGTERM)) {
            ++signalled;
            if (writeLog)
                Log::write(QStringLiteral("[FFmpeg] Reaper: SIGTERM to %1 PID=%2").arg(entry->program()).arg(entry->pid()));
        }
    }

    const auto deadline = std::chrono::steady_clock::now() + grace;
    auto anyAlive = [&entries] {
        for (const auto& e : entries) {
            if (e->isAlive())
                return true;
        }
        return false;
    };
    while (anyAlive() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));

    for (const auto& entry : entries) {
        if (entry->isAlive() && entry->signal(SIGKILL) && writeLog)
            Log::write(QStringLiteral("[FFmpeg] Reaper: SIGKILL to %1 PID=%2").arg(entry->program()).arg(entry->pid()));
    }
    return signalled;
}

} // namespace folivox
