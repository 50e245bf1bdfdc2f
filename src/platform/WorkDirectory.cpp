#include "platform/WorkDirectory.h"

#include "platform/AppPaths.h"
#include "platform/Error.h"
#include "platform/FailureCause.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

#include <sys/stat.h>

namespace folivox {

namespace {

// Locks of folders handed over with release(): kept for the life of the process.
std::mutex gKeptMutex;
std::vector<FileLock>& keptLocks()
{
    static auto* kept = new std::vector<FileLock>;
    return *kept;
}

[[noreturn]] void throwCannotMake(const QString& root, int err)
{
    const QString temp = QFileInfo(root).absolutePath();
    if (err == ENOSPC || err == EDQUOT) {
        throw GenericError(L10n::format(
            L10n::text("work.error.temporaryFolderFull",
                       "The temporary folder “%@” is full, so Folivox can't make its work folder there. Free up "
                       "space on that disk, or set TMPDIR to a folder on a disk with more room, then try again."),
            {temp}),
            Error::Cause::outOfSpace);
    }
    throw GenericError(L10n::format(
        L10n::text("work.error.temporaryFolderUnusable",
                   "Folivox can't make its work folder in the temporary folder “%@” (%@). Check that folder, or set "
                   "TMPDIR to another one, then try again."),
        {temp, QString::fromLocal8Bit(std::strerror(err))}),
        FailureCause::fromErrno(err));
}

} // namespace

WorkDirectory::WorkDirectory()
{
    static std::once_flag swept;
    std::call_once(swept, [] { sweepAbandoned(); });

    const QString root = AppPaths::workRoot();
    if (!QFileInfo(root).isDir()) {
        const int err = ::mkdir(QFile::encodeName(root).constData(), 0700) == 0 ? 0 : errno;
        if (err != 0)
            throwCannotMake(root, err == EEXIST ? ENOTDIR : err); // something else has the name
    }
    const QString name = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QString candidate = root + u'/' + name;
    // The lock comes first: a folder never exists without a live owner's lock.
    lock_ = FileLock::tryAcquire(candidate + QLatin1String(lockSuffix), FileLock::Open::createNew);
    if (!lock_.isHeld())
        throwCannotMake(root, lock_.errorNumber());
    if (::mkdir(QFile::encodeName(candidate).constData(), 0700) != 0) {
        const int err = errno;
        lock_.removeAndRelease();
        throwCannotMake(root, err);
    }
    path_ = candidate;
}

WorkDirectory::~WorkDirectory()
{
    remove();
}

WorkDirectory::WorkDirectory(WorkDirectory&& other) noexcept
    : path_(std::move(other.path_)), lock_(std::move(other.lock_))
{
    other.path_.clear();
}

WorkDirectory& WorkDirectory::operator=(WorkDirectory&& other) noexcept
{
    if (this != &other) {
        remove();
        path_ = std::move(other.path_);
        lock_ = std::move(other.lock_);
        other.path_.clear();
    }
    return *this;
}

void WorkDirectory::remove()
{
    if (!path_.isEmpty())
        QDir(path_).removeRecursively();
    path_.clear();
    lock_.removeAndRelease();
}

QString WorkDirectory::filePath(const QString& name) const
{
    return path_ + u'/' + name;
}

void WorkDirectory::release()
{
    path_.clear();
    if (lock_.isHeld()) {
        std::lock_guard guard(gKeptMutex);
        keptLocks().push_back(std::move(lock_));
    }
}

int WorkDirectory::sweepAbandoned()
{
    const QString root = AppPaths::workRoot();
    const QDir dir(root);
    int removed = 0;
    const QString suffix = QLatin1String(lockSuffix);
    // Folders: the owner of each holds <name>.lock. A folder with no lock
    // file at all was left by a process that never took one.
    for (const QString& name : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden | QDir::NoSymLinks)) {
        const QString folder = dir.filePath(name);
        FileLock lock = FileLock::tryAcquire(folder + suffix, FileLock::Open::existing);
        if (!lock.isHeld() && lock.errorNumber() != ENOENT)
            continue; // a live owner (or a lock file this user can't open)
        if (QFileInfo(folder).isDir() && QDir(folder).removeRecursively()) {
            ++removed;
            Log::write(QStringLiteral("[Work] Removed an abandoned work folder: ") + folder);
        }
        lock.removeAndRelease();
    }
    // Lock files whose folder is gone (a crash between the two steps).
    for (const QString& name : dir.entryList({QStringLiteral("*") + suffix}, QDir::Files | QDir::Hidden)) {
        const QString lockPath = dir.filePath(name);
        if (QFileInfo(lockPath.chopped(suffix.size())).exists())
            continue;
        FileLock lock = FileLock::tryAcquire(lockPath, FileLock::Open::existing);
        if (lock.isHeld())
            lock.removeAndRelease();
    }
    return removed;
}

} // namespace folivox
