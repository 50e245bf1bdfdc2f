#include "container/mp3/MP3FileBytes.h"

#include "container/mp3/MP3IntegrityError.h"

#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#if defined(__APPLE__)
#include <sys/mount.h>
#include <sys/param.h>
#else
#include <sys/vfs.h>
#endif

namespace folivox {

namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

QString systemReason(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

bool isRemote(int fd)
{
    struct statfs fs {};
    if (::fstatfs(fd, &fs) != 0)
        return false;
#if defined(__APPLE__)
    return (fs.f_flags & MNT_LOCAL) == 0;
#else
    return MP3FileBytes::isRemoteFileSystemType(long(fs.f_type));
#endif
}

} // namespace

bool MP3FileBytes::isRemoteFileSystemType(long type)
{
    switch (static_cast<unsigned long>(type) & 0xFFFFFFFFUL) {
    case 0x6969UL:     // NFS
    case 0x517BUL:     // SMB
    case 0xFF534D42UL: // CIFS
    case 0xFE534D42UL: // SMB2
    case 0x65735546UL: // FUSE
    case 0x65735543UL: // FUSE control
    case 0x73757245UL: // Coda
    case 0x5346414FUL: // AFS
    case 0x6B414653UL: // kAFS
    case 0x01021997UL: // 9P
    case 0x00C36400UL: // Ceph
    case 0x564CUL:     // NCP
    case 0x47504653UL: // GPFS
    case 0x19830326UL: // Lustre
    case 0x0BD00BD0UL: // Lustre
        return true;
    default:
        return false;
    }
}

MP3FileBytes::MP3FileBytes(const QString& path, const std::function<bool()>& cancelled, Placement placement)
{
    const QString name = QFileInfo(path).fileName();
    const Descriptor fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0)
        throw MP3IntegrityError(MP3IntegrityError::Kind::cannotOpen, name, systemReason(errno));
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0)
        throw MP3IntegrityError(MP3IntegrityError::Kind::cannotOpen, name, systemReason(errno));
    if (!S_ISREG(st.st_mode))
        throw MP3IntegrityError(MP3IntegrityError::Kind::cannotOpen, name, QStringLiteral("not a regular file"));
    fileSize_ = std::int64_t(st.st_size);
    if (fileSize_ == 0)
        return;

    if (placement == Placement::automatic && !isRemote(fd.get())) {
        void* m = ::mmap(nullptr, std::size_t(fileSize_), PROT_READ, MAP_PRIVATE, fd.get(), 0);
        if (m != MAP_FAILED) {
            // One pass front to back: read-ahead pays, pages behind can go.
            ::madvise(m, std::size_t(fileSize_), MADV_SEQUENTIAL);
            mapping_ = m;
            data_ = static_cast<const std::uint8_t*>(m);
            size_ = std::size_t(fileSize_);
            access_ = Access::mapped;
            return;
        }
    }

    if (fileSize_ > kMaxReadBytes) {
        access_ = Access::tooLarge;
        return;
    }
    access_ = Access::read;
    buffer_.resize(qsizetype(fileSize_));
    std::int64_t done = 0;
    while (done < fileSize_) {
        if (cancelled && cancelled()) {
            cancelled_ = true;
            buffer_.clear();
            return;
        }
        const auto want = std::size_t(std::min(kReadChunk, fileSize_ - done));
        const ssize_t got = ::pread(fd.get(), buffer_.data() + done, want, off_t(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw MP3IntegrityError(MP3IntegrityError::Kind::cannotRead, name, systemReason(errno));
        if (got == 0)
            break; // the file shrank while being read: scan what is there
        done += got;
    }
    buffer_.truncate(qsizetype(done));
    data_ = reinterpret_cast<const std::uint8_t*>(buffer_.constData());
    size_ = std::size_t(done);
}

MP3FileBytes::~MP3FileBytes()
{
    if (mapping_)
        ::munmap(mapping_, std::size_t(fileSize_));
}

} // namespace folivox
