#include "container/io/ReplacedFileRelease.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>
#include <thread>

namespace folivox {

ReplacedFileRelease::ReplacedFileRelease(const QByteArray& path)
{
    fd_ = ::open(path.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat st{};
    if (fd_ >= 0 && (::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode))) {
        ::close(fd_);
        fd_ = -1;
    }
}

ReplacedFileRelease::~ReplacedFileRelease()
{
    if (fd_ >= 0)
        ::close(fd_);
}

void ReplacedFileRelease::releaseInBackground()
{
    if (fd_ < 0)
        return;
    const int fd = fd_;
    fd_ = -1;
    try {
        std::thread([fd] { ::close(fd); }).detach();
    } catch (const std::system_error&) {
        ::close(fd); // no thread to spare: release it here
    }
}

} // namespace folivox
