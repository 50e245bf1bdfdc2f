#include "support/SmallVolume.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace folivox::test {

SmallVolume::SmallVolume(const QString& folder, const QByteArray& options) : folder_(QDir(folder).absolutePath())
{
    QDir().mkpath(folder_);
    if (::geteuid() != 0) {
        failure_ = QStringLiteral("mounting a tmpfs needs root");
        return;
    }
    mounted_ = ::mount("tmpfs", QFile::encodeName(folder_).constData(), "tmpfs", 0, options.constData()) == 0;
    if (!mounted_)
        failure_ = QStringLiteral("cannot mount a tmpfs here: ") + QString::fromLocal8Bit(std::strerror(errno));
}

SmallVolume::~SmallVolume()
{
    if (!mounted_)
        return;
    const QByteArray at = QFile::encodeName(folder_);
    if (::umount(at.constData()) != 0)
        ::umount2(at.constData(), MNT_DETACH);
}

QString SmallVolume::filePath(const QString& name) const
{
    return QDir(folder_).filePath(name);
}

bool SmallVolume::remount(const QByteArray& options)
{
    QByteArray all = options;
    unsigned long flags = MS_REMOUNT;
    if (options == "ro") {
        flags |= MS_RDONLY;
        all.clear();
    }
    return mounted_ && ::mount("tmpfs", QFile::encodeName(folder_).constData(), "tmpfs", flags, all.constData()) == 0;
}

void SmallVolume::fill(const QString& name) const
{
    const int fd = ::open(QFile::encodeName(filePath(name)).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    const QByteArray block(64 * 1024, 'x');
    // A short write takes the last free bytes; the next one fails.
    while (::write(fd, block.constData(), size_t(block.size())) > 0) {
    }
    ::close(fd);
}

} // namespace folivox::test
