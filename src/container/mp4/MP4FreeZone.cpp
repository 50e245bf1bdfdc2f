#include "container/mp4/MP4FreeZone.h"

#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"

namespace folivox {

namespace {
constexpr std::uint32_t kMoov = MP4Bytes::fourCC("moov");
constexpr std::uint32_t kFree = MP4Bytes::fourCC("free");
constexpr std::uint32_t kSkip = MP4Bytes::fourCC("skip");

MP4BoxHeader deadToEnd(std::uint64_t offset, std::uint64_t fileSize)
{
    MP4BoxHeader h;
    h.typeCode = kFree;
    h.type = QStringLiteral("free");
    h.offset = offset;
    h.size = fileSize - offset;
    h.headerLength = 8;
    h.extendsToEnd = true;
    return h;
}
} // namespace

bool MP4FreeZone::isDead(const MP4BoxHeader& box)
{
    return box.is(kFree) || box.is(kSkip);
}

QList<MP4BoxHeader> MP4FreeZone::walk(const MP4File& file, std::uint64_t fileSize, bool* clean)
{
    QList<MP4BoxHeader> boxes;
    bool reached = false;
    std::uint64_t pos = 0;
    for (;;) {
        if (pos == fileSize) {
            reached = true;
            break;
        }
        if (pos > fileSize || fileSize - pos < 8)
            break;
        char raw[16];
        const std::uint64_t got = file.readAt(pos, raw, std::min<std::uint64_t>(16, fileSize - pos));
        const std::uint32_t size32 = MP4Bytes::be32(raw);
        const std::uint32_t type = MP4Bytes::be32(raw + 4);
        if (size32 == 0 && type == 0) {
            // Zeros of a file extended by an edit that stopped before labelling them.
            boxes.append(deadToEnd(pos, fileSize));
            reached = true;
            break;
        }
        MP4BoxHeader h;
        try {
            h = MP4BoxHeader::decode(raw, got, pos, fileSize);
        } catch (const MP4BoxHeader::ParseError& e) {
            if (e.kind() == MP4BoxHeader::ParseError::Kind::sizeBeyondLimit && (type == kFree || type == kSkip)) {
                // A free box labelled before the file was extended to its size.
                boxes.append(deadToEnd(pos, fileSize));
                reached = true;
            }
            break;
        }
        boxes.append(h);
        pos += h.size;
    }
    if (clean)
        *clean = reached;
    return boxes;
}

std::optional<MP4FreeZone> MP4FreeZone::find(const MP4File& file, std::uint64_t moovOffset, std::uint64_t moovSize,
                                             const std::function<bool(const MP4BoxHeader&)>& retired, std::uint64_t maxLead)
{
    MP4FreeZone z;
    z.fileSize = file.size();
    bool clean = false;
    z.topLevel = walk(file, z.fileSize, &clean);
    qsizetype at = -1;
    for (qsizetype i = 0; i < z.topLevel.size(); ++i)
        if (z.topLevel.at(i).offset == moovOffset) {
            at = i;
            break;
        }
    if (at < 0 || !z.topLevel.at(at).is(kMoov) || z.topLevel.at(at).size != moovSize)
        return std::nullopt;

    qsizetype first = at;
    while (first > 0 && (isDead(z.topLevel.at(first - 1)) || (retired && retired(z.topLevel.at(first - 1))))
           && moovOffset - z.topLevel.at(first - 1).offset <= maxLead)
        --first;
    qsizetype writable = first;
    while (writable < at && isDead(z.topLevel.at(writable)))
        ++writable;
    qsizetype last = at;
    while (last + 1 < z.topLevel.size() && isDead(z.topLevel.at(last + 1)))
        ++last;

    const auto oneFreeBox = [&](qsizetype from, qsizetype to) {
        if (from > to)
            return true;
        if (from != to)
            return false;
        const MP4BoxHeader& h = z.topLevel.at(from);
        return h.is(kFree) && h.headerLength == 8 && !h.extendsToEnd && h.size <= 0xFFFFFFFFu;
    };
    z.start = z.topLevel.at(first).offset;
    z.writableLeadEnd = z.topLevel.at(writable).offset;
    z.end = z.topLevel.at(last).end();
    z.moovOffset = moovOffset;
    z.moovSize = moovSize;
    z.reachesEnd = clean && last == z.topLevel.size() - 1;
    z.leadIsOneFreeBox = oneFreeBox(first, writable - 1);
    z.tailIsOneFreeBox = oneFreeBox(at + 1, last);
    z.moovOpenEnded = z.topLevel.at(at).extendsToEnd;
    return z;
}

} // namespace folivox
