#include "library/files/LibraryLock.h"

#include "library/files/LibraryLockError.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace folivox {

LibraryLock::LibraryLock(const QString& root, const QString& fileURL)
    : fileURL_(fileURL)
{
    const QByteArray path = QFile::encodeName(fileURL);
    descriptor_ = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (descriptor_ < 0)
        throw LibraryLockError(LibraryLockError::Kind::cannotOpen, root, QString::fromLocal8Bit(std::strerror(errno)));
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        char buffer[32] = {};
        const ssize_t n = ::pread(descriptor_, buffer, sizeof buffer - 1, 0);
        ::close(descriptor_);
        descriptor_ = -1;
        if (error == EWOULDBLOCK) {
            const QString holder = n > 0 ? QString::fromLatin1(buffer, n).trimmed() : QString();
            throw LibraryLockError(LibraryLockError::Kind::heldByAnotherProcess, root,
                                   holder.isEmpty() ? QString() : QStringLiteral("process ") + holder);
        }
        throw LibraryLockError(LibraryLockError::Kind::cannotOpen, root, QString::fromLocal8Bit(std::strerror(error)));
    }
    // Who holds it, for the message another process shows.
    const QByteArray pid = QByteArray::number(static_cast<qint64>(::getpid())) + '\n';
    if (::ftruncate(descriptor_, 0) == 0)
        (void)!::pwrite(descriptor_, pid.constData(), static_cast<size_t>(pid.size()), 0);
}

LibraryLock::~LibraryLock()
{
    if (descriptor_ >= 0) {
        // No stale process id for the next one to name.
        (void)!::ftruncate(descriptor_, 0);
        ::flock(descriptor_, LOCK_UN);
        ::close(descriptor_);
    }
}

} // namespace folivox
