#include "platform/FailureCause.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <sys/statvfs.h>

namespace folivox {

namespace {

QString nearestExisting(const QString& path)
{
    if (path.isEmpty())
        return {};
    QFileInfo info(path);
    QString dir = info.exists() ? info.absoluteFilePath() : info.absolutePath();
    while (!dir.isEmpty() && !QFileInfo::exists(dir) && dir != QStringLiteral("/"))
        dir = QFileInfo(dir).absolutePath();
    return dir;
}

bool volumeOf(const QString& path, struct statvfs& st)
{
    const QString existing = nearestExisting(path);
    return !existing.isEmpty() && ::statvfs(QFile::encodeName(existing).constData(), &st) == 0;
}

} // namespace

Error::Cause FailureCause::fromErrno(int err)
{
    switch (err) {
    case ENOSPC:
    case EDQUOT:
        return Error::Cause::outOfSpace;
    case EROFS:
        return Error::Cause::readOnlyVolume;
    default:
        return Error::Cause::none;
    }
}

Error::Cause FailureCause::ofVolumeAt(const QString& path)
{
    struct statvfs st {};
    if (!volumeOf(path, st))
        return Error::Cause::none;
    if ((st.f_flag & ST_RDONLY) != 0)
        return Error::Cause::readOnlyVolume;
    if (st.f_blocks > 0 && st.f_bavail == 0)
        return Error::Cause::outOfSpace;
    return Error::Cause::none;
}

Error::Cause FailureCause::ofFailedWrite(const QString& path, int err)
{
    const Error::Cause fromCode = fromErrno(err);
    return fromCode != Error::Cause::none ? fromCode : ofVolumeAt(path);
}

bool FailureCause::volumeIsReadOnly(const QString& path)
{
    struct statvfs st {};
    return volumeOf(path, st) && (st.f_flag & ST_RDONLY) != 0;
}

} // namespace folivox
