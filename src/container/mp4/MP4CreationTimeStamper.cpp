#include "container/mp4/MP4CreationTimeStamper.h"

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"

#include <cstdint>

namespace folivox {

namespace {

constexpr std::uint32_t fc(const char (&s)[5])
{
    return (std::uint32_t(std::uint8_t(s[0])) << 24) | (std::uint32_t(std::uint8_t(s[1])) << 16)
           | (std::uint32_t(std::uint8_t(s[2])) << 8) | std::uint32_t(std::uint8_t(s[3]));
}

// Seconds between the MP4 epoch (1904) and the Unix one (1970).
constexpr quint64 kEpochOffset = 2082844800;

// Sets the creation and modification times of one full box that starts with
// version, flags, creation time and modification time, when its creation
// time is zero. Version 0 holds 32-bit times, version 1 64-bit ones.
bool stampHeader(MP4File& file, const MP4BoxHeader& box, quint64 seconds)
{
    const std::uint64_t at = box.contentOffset();
    if (box.end() < at + 20)
        return false;
    const QByteArray head = file.readAt(at, 20);
    if (head.size() < 20)
        return false;
    const bool v1 = head.at(0) == 1;
    if (v1) {
        if (MP4Bytes::be64(head.constData() + 4) != 0)
            return false;
        file.writeAt(at + 4, MP4Bytes::be64Bytes(seconds) + MP4Bytes::be64Bytes(seconds));
    } else {
        if (MP4Bytes::be32(head.constData() + 4) != 0 || seconds > 0xFFFFFFFFull)
            return false;
        file.writeAt(at + 4, MP4Bytes::be32Bytes(std::uint32_t(seconds)) + MP4Bytes::be32Bytes(std::uint32_t(seconds)));
    }
    return true;
}

int stampWithin(MP4File& file, std::uint64_t begin, std::uint64_t end, quint64 seconds)
{
    int stamped = 0;
    for (std::uint64_t pos = begin; pos + 8 <= end;) {
        MP4BoxHeader box;
        try {
            box = MP4BoxHeader::readAt(file, pos, end);
        } catch (const MP4BoxHeader::ParseError&) {
            break;
        }
        if (box.is(fc("mvhd")) || box.is(fc("tkhd")) || box.is(fc("mdhd")))
            stamped += stampHeader(file, box, seconds) ? 1 : 0;
        else if (box.is(fc("trak")) || box.is(fc("mdia")))
            stamped += stampWithin(file, box.contentOffset(), box.end(), seconds);
        if (box.size == 0)
            break;
        pos = box.end();
    }
    return stamped;
}

} // namespace

quint64 MP4CreationTimeStamper::mp4Seconds(const QDateTime& when)
{
    return quint64(when.toSecsSinceEpoch()) + kEpochOffset;
}

int MP4CreationTimeStamper::stamp(const QString& path, const QDateTime& when)
{
    MP4File file(path, MP4File::Access::update);
    const std::uint64_t size = file.size();
    int stamped = 0;
    for (const MP4BoxHeader& top : MP4BoxHeader::listTopLevel(file, size))
        if (top.is(fc("moov")))
            stamped += stampWithin(file, top.contentOffset(), top.end(), mp4Seconds(when));
    file.close();
    return stamped;
}

} // namespace folivox
