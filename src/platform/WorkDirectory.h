#pragma once

#include "platform/FileLock.h"

#include <QString>

namespace folivox {

// A private folder for one piece of temporary work: <temp>/FolivoxWork/<UUID>.
// Made on construction and removed with everything in it on destruction, so
// every exit path of the work that owns it cleans up.
//
// While it lives, the folder's owner holds a lock on <UUID>.lock beside it
// (taken before the folder is made, dropped after it is gone). A process
// killed outright cannot remove its folders, but its locks die with it:
// sweepAbandoned() removes every work folder whose lock nobody holds. The
// first WorkDirectory of a process sweeps, and so does every build.
class WorkDirectory {
public:
    // Throws GenericError naming the temporary folder when the work folder
    // cannot be made there (a full disk, no permission).
    WorkDirectory();
    ~WorkDirectory();
    WorkDirectory(const WorkDirectory&) = delete;
    WorkDirectory& operator=(const WorkDirectory&) = delete;
    WorkDirectory(WorkDirectory&& other) noexcept;
    WorkDirectory& operator=(WorkDirectory&& other) noexcept;

    const QString& path() const { return path_; }
    // A path inside the folder.
    QString filePath(const QString& name) const;
    // Keeps the folder on destruction (hand it over to someone else). It
    // stays owned by this process: its lock is kept until the process ends,
    // and a later run sweeps it.
    void release();

    // Removes the work folders (and stray lock files) in the work root whose
    // owner is gone. Returns how many folders were removed.
    static int sweepAbandoned();

    static constexpr const char* lockSuffix = ".lock";

private:
    void remove();

    QString path_;
    FileLock lock_;
};

} // namespace folivox
