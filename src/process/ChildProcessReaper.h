#pragma once

#include <QString>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>

namespace folivox {

// Knows every child process Folivox has running, so that none outlives the
// program. A child is entered before it is launched and taken out when it has
// ended. terminateAll() sends SIGTERM to everything still entered and SIGKILL
// to whatever is left after a grace period; it runs by itself when the program
// exits (std::atexit) and may be called from any thread, for example from the
// command line's SIGINT/SIGTERM watcher.
//
// Signals go through a pidfd on Linux, so a child that has already been
// reaped can never be confused with a new process that got its number.
class ChildProcessReaper {
public:
    static constexpr std::chrono::milliseconds kDefaultGrace{5000};

    // One child's place in the reaper. Shared between the reaper and the
    // code that runs the child.
    class Entry {
    public:
        explicit Entry(QString program);
        ~Entry();
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        QString program() const;
        qint64 pid() const;
        // terminateAll() has asked this child to stop. The owner of the run
        // treats that as a cancellation.
        bool terminationRequested() const { return terminationRequested_.load(); }

        // Sends a signal to the child; false when it has ended or was never launched.
        bool signal(int signalNumber);
        // The child was launched and has not died yet (a zombie counts as dead).
        bool isAlive() const;

    private:
        friend class ChildProcessReaper;
        void attach(qint64 pid);
        void markEnded();

        mutable std::mutex mutex_;
        QString program_;
        qint64 pid_ = 0;
        int pidfd_ = -1;
        bool ended_ = false;
        std::atomic<bool> terminationRequested_{false};
    };

    // The one reaper of the program. Never destroyed, so that the exit hook
    // can still use it after static destructors ran.
    static ChildProcessReaper& instance();

    // Enters a child that is about to be launched.
    std::shared_ptr<Entry> enter(const QString& program);
    // Records the launched child's process id. If terminateAll() ran between
    // enter() and launch, the child is sent SIGTERM at once.
    void launched(const std::shared_ptr<Entry>& entry, qint64 pid);
    // Takes a child out once it has ended (or never started).
    void leave(const std::shared_ptr<Entry>& entry);

    // Number of children entered and not yet taken out.
    std::size_t count() const;

    // SIGTERM to every entered child, then SIGKILL to those still alive after
    // `grace`. Returns as soon as all have died. Returns how many children
    // were signalled.
    int terminateAll(std::chrono::milliseconds grace = kDefaultGrace);

private:
    ChildProcessReaper() = default;
    // The exit hook runs after static objects may be gone, the log among
    // them, so it terminates without writing log lines.
    friend void terminateChildrenAtExit();
    int terminateAllImpl(std::chrono::milliseconds grace, bool writeLog);

    mutable std::mutex mutex_;
    std::map<const Entry*, std::shared_ptr<Entry>> state_;
};

} // namespace folivox
