#include "container/mp4/FtypPatcher.h"

#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"
#include "platform/L10n.h"

namespace folivox {

QString FtypPatcherError::description() const
{
    switch (kind_) {
    case Kind::invalidFtypSize:
        return L10n::format(L10n::text("container.ftyp.invalidSize", "Invalid ftyp atom size: %@"), {QString::number(size_)});
    case Kind::fileTooSmall:
        return L10n::text("container.ftyp.fileTooSmall", "File too small to contain ftyp atom");
    case Kind::noFtypAtom:
        return L10n::text("container.ftyp.noFtyp", "First atom is not ftyp");
    }
    return {};
}

bool FtypPatcher::patch(const QString& path)
{
    static const QByteArray m4b("M4B ", 4);
    static const QByteArray m4a("M4A ", 4);

    MP4File file(path, MP4File::Access::update);
    const QByteArray head = file.readAt(0, 16);
    if (head.size() < 16)
        throw FtypPatcherError(FtypPatcherError::Kind::fileTooSmall);
    if (head.mid(4, 4) != QByteArrayLiteral("ftyp"))
        throw FtypPatcherError(FtypPatcherError::Kind::noFtypAtom);
    if (head.mid(8, 4) == m4b)
        return false;

    file.writeAt(8, m4b);
    const std::uint32_t size = MP4Bytes::be32(head.constData());
    if (size < minFtypSize || size > maxFtypSize)
        throw FtypPatcherError(FtypPatcherError::Kind::invalidFtypSize, size);

    if (size >= 20) {
        for (std::uint64_t pos = 16; pos + 4 <= size; pos += 4) {
            const QByteArray brand = file.readAt(pos, 4);
            if (brand.size() < 4)
                continue;
            if (brand == m4a)
                file.writeAt(pos, m4b);
        }
    }
    file.close();
    return true;
}

} // namespace folivox
