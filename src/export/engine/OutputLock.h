#pragma once

#include "platform/FileLock.h"

#include <QString>

#include <optional>

namespace folivox {

// Makes sure only one build at a time writes to one output. The lock is a
// file in the user's lock folder (AppPaths::lockDir), named after a hash of
// the output's absolute path and holding the owner's process id; nothing is
// written beside the output. Every Folivox process of the user sees it: the
// command line, the queue and the window. It is held for the whole build and
// dies with its process, so a crashed build never blocks the next one.
class OutputLock {
public:
    OutputLock() = default;
    ~OutputLock();
    OutputLock(OutputLock&&) noexcept = default;
    OutputLock& operator=(OutputLock&&) noexcept = default;

    // Takes the lock for `outputPath` without waiting. Throws
    // ExportError::validationFailed naming the output and the process id of
    // the build that holds it. Where the lock folder can't be used at all
    // the build goes on unguarded (logged).
    static OutputLock acquire(const QString& outputPath);

    // The lock file for an output (the same for every spelling of its path).
    static QString lockFileFor(const QString& outputPath);

    // The process id written in a held lock file, if any.
    static std::optional<qint64> holderOf(const QString& outputPath);

    // Removes lock files that killed builds left in the lock folder (nobody
    // holds them). Returns how many were removed.
    static int sweepAbandoned();

    bool isHeld() const { return lock_.isHeld(); }

private:
    FileLock lock_;
};

} // namespace folivox
