#include "container/mp4/MP4ChunkOffsets.h"

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"

#include <functional>
#include <vector>

namespace folivox {

namespace {
constexpr std::uint32_t kTrak = MP4Bytes::fourCC("trak");
constexpr std::uint32_t kMdia = MP4Bytes::fourCC("mdia");
constexpr std::uint32_t kMinf = MP4Bytes::fourCC("minf");
constexpr std::uint32_t kStbl = MP4Bytes::fourCC("stbl");
constexpr std::uint32_t kMoov = MP4Bytes::fourCC("moov");
constexpr std::uint32_t kStco = MP4Bytes::fourCC("stco");
constexpr std::uint32_t kCo64 = MP4Bytes::fourCC("co64");

bool isOffsetContainer(std::uint32_t code)
{
    return code == kMoov || code == kTrak || code == kMdia || code == kMinf || code == kStbl;
}

struct Table {
    qsizetype firstEntry; // buffer position of entry 0
    qsizetype boxEnd;
    std::uint32_t count;
    int width; // 4 or 8
};

// Real files nest these containers four deep; anything deeper is not read,
// which also bounds the recursion on a crafted file.
constexpr int kMaxDepth = 16;

// Visits every table below [from, to), entering only the containers that can
// hold one. Throws ParseError on a child that does not decode.
void collectTables(const QByteArray& buf, qsizetype from, qsizetype to, std::vector<Table>& out, int depth = 0)
{
    qsizetype pos = from;
    while (pos + 8 <= to) {
        const MP4BoxHeader h = MP4BoxHeader::decodeAt(buf, pos, to);
        const qsizetype content = pos + qsizetype(h.headerLength);
        const qsizetype end = pos + qsizetype(h.size);
        if (isOffsetContainer(h.typeCode)) {
            if (depth < kMaxDepth)
                collectTables(buf, content, end, out, depth + 1);
        } else if (h.typeCode == kStco || h.typeCode == kCo64) {
            if (content + 8 <= end)
                out.push_back(Table{content + 8, end, MP4Bytes::be32(buf.constData() + content + 4),
                                    h.typeCode == kStco ? 4 : 8});
        }
        pos = end;
    }
}

template <typename F>
void forEachEntry(const Table& t, F&& f)
{
    qsizetype p = t.firstEntry;
    for (std::uint32_t i = 0; i < t.count; ++i) {
        if (p + t.width > t.boxEnd)
            break;
        f(p);
        p += t.width;
    }
}
} // namespace

std::optional<std::uint64_t> MP4ChunkOffsets::findInRange(const QByteArray& moov, std::uint64_t from, std::uint64_t to)
{
    std::vector<Table> tables;
    try {
        const MP4BoxHeader top = MP4BoxHeader::decodeAt(moov, 0, moov.size());
        if (!top.is(kMoov))
            return std::nullopt;
        collectTables(moov, qsizetype(top.headerLength), qsizetype(top.size), tables);
    } catch (const MP4BoxHeader::ParseError&) {
        // Only the tables found before the damage count. A damaged moov is
        // not this guard's business; its readers will say so.
    }
    for (const Table& t : tables) {
        std::optional<std::uint64_t> hit;
        forEachEntry(t, [&](qsizetype p) {
            if (hit)
                return;
            const std::uint64_t v = t.width == 4 ? MP4Bytes::be32(moov.constData() + p) : MP4Bytes::be64(moov.constData() + p);
            if (v >= from && v < to)
                hit = v;
        });
        if (hit)
            return hit;
    }
    return std::nullopt;
}

MP4ChunkOffsets::ShiftResult MP4ChunkOffsets::shift(QByteArray& buffer, qsizetype moovPosition, qsizetype moovEnd,
                                                   std::int64_t delta, std::uint64_t threshold, std::uint64_t limit)
{
    const MP4BoxHeader top = MP4BoxHeader::decodeAt(buffer, moovPosition, moovEnd);
    std::vector<Table> tables;
    collectTables(buffer, moovPosition + qsizetype(top.headerLength), moovPosition + qsizetype(top.size), tables);

    // Check every entry before changing any, so a refusal leaves the buffer whole.
    const char* data = buffer.constData();
    for (const Table& t : tables) {
        bool overflow = false;
        forEachEntry(t, [&](qsizetype p) {
            if (overflow)
                return;
            if (t.width == 4) {
                const std::int64_t v = MP4Bytes::be32(data + p);
                if (std::uint64_t(v) < threshold || std::uint64_t(v) >= limit)
                    return;
                const std::int64_t r = v + delta;
                overflow = r < 0 || r > std::int64_t(0xFFFFFFFFu);
            } else {
                const std::uint64_t u = MP4Bytes::be64(data + p);
                if (u < threshold || u >= limit)
                    return;
                if (u > std::uint64_t(INT64_MAX)) {
                    overflow = true;
                    return;
                }
                std::int64_t r = 0;
                overflow = __builtin_add_overflow(std::int64_t(u), delta, &r) || r < 0;
            }
        });
        if (overflow)
            return t.width == 4 ? ShiftResult::stcoOverflow : ShiftResult::co64Overflow;
    }
    char* out = buffer.data();
    for (const Table& t : tables) {
        forEachEntry(t, [&](qsizetype p) {
            if (t.width == 4) {
                const std::uint32_t v = MP4Bytes::be32(out + p);
                if (v >= threshold && v < limit)
                    MP4Bytes::put32(out + p, std::uint32_t(std::int64_t(v) + delta));
            } else {
                const std::uint64_t v = MP4Bytes::be64(out + p);
                if (v >= threshold && v < limit)
                    MP4Bytes::put64(out + p, std::uint64_t(std::int64_t(v) + delta));
            }
        });
    }
    return ShiftResult::shifted;
}

} // namespace folivox
