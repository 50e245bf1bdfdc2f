#include "sidecars/SidecarError.h"

#include "platform/L10n.h"

namespace folivox {

SidecarError::SidecarError(Kind kind, QString name, std::int64_t size, QString reason)
    : kind_(kind), name_(std::move(name)), size_(size), reason_(std::move(reason))
{
}

SidecarError SidecarError::fileTooLarge(const QString& name, std::int64_t size)
{
    return SidecarError(Kind::fileTooLarge, name, size, {});
}

SidecarError SidecarError::unsupportedEncoding(const QString& name)
{
    return SidecarError(Kind::unsupportedEncoding, name, 0, {});
}

SidecarError SidecarError::readFailed(const QString& name, const QString& reason)
{
    return SidecarError(Kind::readFailed, name, 0, reason);
}

SidecarError SidecarError::notFound(const QString& name)
{
    return SidecarError(Kind::notFound, name, 0, {});
}

SidecarError SidecarError::folder(const QString& name)
{
    return SidecarError(Kind::folder, name, 0, {});
}

SidecarError SidecarError::notRegularFile(const QString& name)
{
    return SidecarError(Kind::notRegularFile, name, 0, {});
}

SidecarError SidecarError::permissionDenied(const QString& name)
{
    return SidecarError(Kind::permissionDenied, name, 0, {});
}

QString SidecarError::description() const
{
    switch (kind_) {
    case Kind::fileTooLarge:
        // The limit is 1000 KiB; the message has always called it 1 MB.
        return L10n::format(L10n::text("sidecar.error.tooLarge", "Sidecar file too large: %@ (%lld KB > 1 MB limit)"),
                            {name_, QString::number(size_ / 1024)});
    case Kind::unsupportedEncoding:
        return L10n::format(L10n::text("sidecar.error.encoding", "Cannot decode %@: unsupported encoding"), {name_});
    case Kind::readFailed:
        return L10n::format(L10n::text("sidecar.error.read", "Cannot read %@: %@"), {name_, reason_});
    case Kind::notFound:
        return L10n::format(L10n::text("sidecar.error.notFound", "Cannot read %@: there is no such file — check the path"),
                            {name_});
    case Kind::folder:
        return L10n::format(L10n::text("sidecar.error.folder",
                                       "Cannot read %@: it is a folder — give the chapter file inside it instead"),
                            {name_});
    case Kind::notRegularFile:
        return L10n::format(L10n::text("sidecar.error.notRegular",
                                       "Cannot read %@: it is not a regular file (a pipe, socket or device) — save "
                                       "the chapters to a file and give that"),
                            {name_});
    case Kind::permissionDenied:
        return L10n::format(L10n::text("sidecar.error.permission",
                                       "Cannot read %@: permission denied — give your user read access to the file "
                                       "(for example chmod u+r) or copy it somewhere you can read"),
                            {name_});
    }
    return {};
}

} // namespace folivox
