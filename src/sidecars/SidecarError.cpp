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
    }
    return {};
}

} // namespace folivox
