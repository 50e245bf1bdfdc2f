#include "container/mp4/MP4File.h"

#include "platform/FailureCause.h"
#include "platform/L10n.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace folivox {

MP4FileError::MP4FileError(Kind kind, QString path, QString systemMessage)
    : kind_(kind), path_(std::move(path)), systemMessage_(std::move(systemMessage))
{
}

MP4FileError::MP4FileError(Kind kind, QString path, int err)
    : MP4FileError(kind, std::move(path), QString::fromLocal8Bit(std::strerror(err)))
{
    setCause(FailureCause::fromErrno(err));
}

QString MP4FileError::description() const
{
    const char* key = "container.io.read";
    const char* text = "Could not read \"%@\": %@";
    switch (kind_) {
    case Kind::openFailed:
        key = "container.io.open";
        text = "Could not open \"%@\": %@";
        break;
    case Kind::statFailed:
        key = "container.io.stat";
        text = "Could not get the size of \"%@\": %@";
        break;
    case Kind::readFailed:
        break;
    case Kind::writeFailed:
        key = "container.io.write";
        text = "Could not write \"%@\": %@";
        break;
    case Kind::syncFailed:
        key = "container.io.sync";
        text = "Could not save \"%@\" to disk: %@";
        break;
    case Kind::truncateFailed:
        key = "container.io.truncate";
        text = "Could not set the length of \"%@\": %@";
        break;
    case Kind::createFailed:
        key = "container.io.create";
        text = "Could not create \"%@\": %@";
        break;
    }
    return L10n::format(L10n::text(key, text), {QFileInfo(path_).fileName(), systemMessage_});
}

MP4File::MP4File(const QString& path, Access access) : path_(path)
{
    int flags = O_CLOEXEC;
    switch (access) {
    case Access::read:
        flags |= O_RDONLY;
        break;
    case Access::update:
        flags |= O_RDWR;
        break;
    case Access::write:
        flags |= O_WRONLY;
        break;
    }
    const QByteArray native = QFile::encodeName(path);
    do {
        fd_ = ::open(native.constData(), flags);
    } while (fd_ < 0 && errno == EINTR);
    if (fd_ < 0)
        fail(MP4FileError::Kind::openFailed, errno);
}

MP4File MP4File::createNew(const QString& path, unsigned mode)
{
    MP4File f;
    f.path_ = path;
    const QByteArray native = QFile::encodeName(path);
    f.fd_ = ::open(native.constData(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
    if (f.fd_ < 0)
        f.fail(MP4FileError::Kind::createFailed, errno);
    if (::fchmod(f.fd_, mode_t(mode & 07777)) != 0) {
        const int err = errno;
        f.close();
        ::unlink(native.constData());
        throw MP4FileError(MP4FileError::Kind::createFailed, path, err);
    }
    return f;
}

MP4File MP4File::adopt(int fd, const QString& path)
{
    MP4File f;
    f.fd_ = fd;
    f.path_ = path;
    return f;
}

MP4File::~MP4File()
{
    if (fd_ >= 0)
        ::close(fd_);
}

MP4File::MP4File(MP4File&& other) noexcept : fd_(other.fd_), path_(std::move(other.path_))
{
    other.fd_ = -1;
}

MP4File& MP4File::operator=(MP4File&& other) noexcept
{
    if (this != &other) {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = other.fd_;
        path_ = std::move(other.path_);
        other.fd_ = -1;
    }
    return *this;
}

void MP4File::fail(MP4FileError::Kind kind, int err) const
{
    throw MP4FileError(kind, path_, err);
}

std::uint64_t MP4File::size() const
{
    struct stat st{};
    if (::fstat(fd_, &st) != 0)
        fail(MP4FileError::Kind::statFailed, errno);
    return std::uint64_t(st.st_size);
}

std::uint64_t MP4File::readAt(std::uint64_t offset, char* into, std::uint64_t count) const
{
    std::uint64_t done = 0;
    while (done < count) {
        const ssize_t n = ::pread(fd_, into + done, size_t(count - done), off_t(offset + done));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            fail(MP4FileError::Kind::readFailed, errno);
        }
        if (n == 0)
            break;
        done += std::uint64_t(n);
    }
    return done;
}

QByteArray MP4File::readAt(std::uint64_t offset, std::uint64_t count) const
{
    QByteArray out(qsizetype(count), Qt::Uninitialized);
    const std::uint64_t got = readAt(offset, out.data(), count);
    out.truncate(qsizetype(got));
    return out;
}

void MP4File::writeAt(std::uint64_t offset, const char* data, std::uint64_t count)
{
    std::uint64_t done = 0;
    while (done < count) {
        const ssize_t n = ::pwrite(fd_, data + done, size_t(count - done), off_t(offset + done));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            fail(MP4FileError::Kind::writeFailed, errno);
        }
        if (n == 0)
            fail(MP4FileError::Kind::writeFailed, EIO);
        done += std::uint64_t(n);
    }
}

void MP4File::zeroFill(std::uint64_t offset, std::uint64_t count)
{
    if (count == 0)
        return;
    const std::vector<char> zeros(size_t(std::min(count, zeroPieceSize)), '\0');
    while (count > 0) {
        const std::uint64_t piece = std::min<std::uint64_t>(count, zeros.size());
        writeAt(offset, zeros.data(), piece);
        offset += piece;
        count -= piece;
    }
}

void MP4File::truncate(std::uint64_t size)
{
    int rc;
    do {
        rc = ::ftruncate(fd_, off_t(size));
    } while (rc != 0 && errno == EINTR);
    if (rc != 0)
        fail(MP4FileError::Kind::truncateFailed, errno);
}

void MP4File::sync()
{
    if (::fsync(fd_) != 0)
        fail(MP4FileError::Kind::syncFailed, errno);
}

void MP4File::close()
{
    if (fd_ < 0)
        return;
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0 && errno != EINTR)
        fail(MP4FileError::Kind::writeFailed, errno);
}

} // namespace folivox
