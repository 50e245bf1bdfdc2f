#include "container/mp4/MP4MoovReader.h"

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"
#include "platform/L10n.h"

namespace folivox {

QString MP4MoovReader::Error::description() const
{
    switch (kind_) {
    case Kind::moovTooLarge:
        return L10n::format(L10n::text("container.moov.tooLarge", "moov box exceeds safety limit: %@ bytes"),
                            {QString::number(size_)});
    case Kind::moovNotFound:
        return L10n::text("container.moov.notFound", "moov box not found in file");
    case Kind::unsupportedLayout:
        return L10n::text("container.moov.unsupportedLayout", "moov is not the last box — streaming rewrite required");
    case Kind::invalidBoxStructure:
        return L10n::text("container.moov.invalidBoxStructure", "invalid MP4 box structure");
    case Kind::readFailed:
        return L10n::text("container.moov.readFailed", "failed to read moov from file");
    }
    return {};
}

MP4MoovReader::MoovBuffer MP4MoovReader::read(const QString& path)
{
    // The handle closes when `file` leaves scope, on success and on every throw.
    const MP4File file(path, MP4File::Access::read);
    return read(file);
}

MP4MoovReader::MoovBuffer MP4MoovReader::read(const MP4File& file)
{
    constexpr std::uint32_t moovCode = MP4Bytes::fourCC("moov");
    const std::uint64_t fileSize = file.size();
    if (fileSize < 8)
        throw Error(Error::Kind::invalidBoxStructure);

    std::uint64_t offset = 0;
    MP4BoxHeader moov;
    for (;;) {
        if (offset >= fileSize)
            throw Error(Error::Kind::moovNotFound);
        // Fewer than 8 bytes left: the file ran out before a moov was seen.
        if (fileSize - offset < 8)
            throw Error(Error::Kind::moovNotFound);
        MP4BoxHeader h;
        try {
            h = MP4BoxHeader::readAt(file, offset, fileSize);
        } catch (const MP4BoxHeader::ParseError& e) {
            if (e.kind() == MP4BoxHeader::ParseError::Kind::truncatedHeader)
                throw Error(Error::Kind::moovNotFound);
            throw Error(Error::Kind::invalidBoxStructure);
        }
        if (h.is(moovCode)) {
            moov = h;
            break;
        }
        offset += h.size;
    }

    if (moov.size > maxMoovSize)
        throw Error(Error::Kind::moovTooLarge, moov.size);

    MoovBuffer buffer;
    buffer.data = file.readAt(moov.offset, moov.size);
    if (buffer.data.isEmpty() || std::uint64_t(buffer.data.size()) != moov.size)
        throw Error(Error::Kind::readFailed);
    buffer.fileOffset = moov.offset;
    buffer.originalSize = moov.size;
    buffer.isLastBox = moov.offset + moov.size == fileSize;
    return buffer;
}

} // namespace folivox
