#include "container/mp4/MP4BoxHeader.h"

#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"
#include "platform/L10n.h"

#include <algorithm>

namespace folivox {

MP4BoxHeader::ParseError MP4BoxHeader::ParseError::sizeSmallerThanHeader(std::uint64_t size, std::uint64_t headerLength)
{
    return ParseError(Kind::sizeSmallerThanHeader, size, headerLength);
}

MP4BoxHeader::ParseError MP4BoxHeader::ParseError::sizeBeyondLimit(std::uint64_t size, std::uint64_t available)
{
    return ParseError(Kind::sizeBeyondLimit, size, available);
}

MP4BoxHeader::ParseError MP4BoxHeader::ParseError::truncatedHeader()
{
    return ParseError(Kind::truncatedHeader, 0, 0);
}

MP4BoxHeader::ParseError MP4BoxHeader::ParseError::offsetOutOfRange()
{
    return ParseError(Kind::offsetOutOfRange, 0, 0);
}

QString MP4BoxHeader::ParseError::description() const
{
    switch (kind_) {
    case Kind::sizeSmallerThanHeader:
        return L10n::format(L10n::text("container.box.sizeSmallerThanHeader", "box size %@ is smaller than its %@-byte header"),
                            {QString::number(size_), QString::number(second_)});
    case Kind::sizeBeyondLimit:
        return L10n::format(L10n::text("container.box.sizeBeyondLimit", "box size %@ exceeds the %@ bytes left in its container"),
                            {QString::number(size_), QString::number(second_)});
    case Kind::truncatedHeader:
        return L10n::text("container.box.truncatedHeader", "truncated box header");
    case Kind::offsetOutOfRange:
        return L10n::text("container.box.offsetOutOfRange", "box offset outside the buffer");
    }
    return {};
}

MP4BoxHeader MP4BoxHeader::decode(const char* data, std::uint64_t count, std::uint64_t offset, std::uint64_t limit)
{
    if (offset > limit)
        throw ParseError::offsetOutOfRange();
    const std::uint64_t remaining = limit - offset;
    const std::uint64_t n = std::min<std::uint64_t>(count, 16);
    if (n < 8 || remaining < 8)
        throw ParseError::truncatedHeader();

    const std::uint32_t size32 = MP4Bytes::be32(data);
    MP4BoxHeader h;
    h.typeCode = MP4Bytes::be32(data + 4);
    h.type = MP4Bytes::typeText(h.typeCode);
    h.offset = offset;

    if (size32 == 0) {
        h.size = remaining;
        h.headerLength = 8;
        h.extendsToEnd = true;
    } else if (size32 == 1) {
        if (n < 16 || remaining < 16)
            throw ParseError::truncatedHeader();
        h.size = MP4Bytes::be64(data + 8);
        h.headerLength = 16;
        if (h.size < 16)
            throw ParseError::sizeSmallerThanHeader(h.size, 16);
    } else {
        h.size = size32;
        h.headerLength = 8;
        if (h.size < 8)
            throw ParseError::sizeSmallerThanHeader(h.size, 8);
    }
    // offset + size must neither wrap nor pass the limit.
    if (h.size > UINT64_MAX - offset || offset + h.size > limit)
        throw ParseError::sizeBeyondLimit(h.size, remaining);
    return h;
}

MP4BoxHeader MP4BoxHeader::decode(const QByteArray& bytes, std::uint64_t offset, std::uint64_t limit)
{
    return decode(bytes.constData(), std::uint64_t(bytes.size()), offset, limit);
}

MP4BoxHeader MP4BoxHeader::decodeAt(const QByteArray& buffer, qsizetype position, qsizetype limit)
{
    if (position < 0 || limit < 0 || position > buffer.size() || limit > buffer.size() || position > limit)
        throw ParseError::offsetOutOfRange();
    return decode(buffer.constData() + position, std::uint64_t(buffer.size() - position), std::uint64_t(position),
                  std::uint64_t(limit));
}

MP4BoxHeader MP4BoxHeader::readAt(const MP4File& file, std::uint64_t offset, std::uint64_t fileSize)
{
    if (offset > fileSize)
        throw ParseError::offsetOutOfRange();
    char bytes[16];
    const std::uint64_t want = std::min<std::uint64_t>(16, fileSize - offset);
    const std::uint64_t got = file.readAt(offset, bytes, want);
    return decode(bytes, got, offset, fileSize);
}

QList<MP4BoxHeader> MP4BoxHeader::listTopLevel(const MP4File& file, std::uint64_t fileSize)
{
    QList<MP4BoxHeader> boxes;
    std::uint64_t offset = 0;
    while (fileSize >= 8 && offset <= fileSize - 8) {
        MP4BoxHeader h;
        try {
            h = readAt(file, offset, fileSize);
        } catch (const ParseError&) {
            break;
        }
        boxes.append(h);
        offset += h.size;
    }
    return boxes;
}

} // namespace folivox
