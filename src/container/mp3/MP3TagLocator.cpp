#include "container/mp3/MP3TagLocator.h"

#include <algorithm>
#include <cstring>

namespace folivox {

namespace {

std::uint32_t syncsafe(const std::uint8_t* p)
{
    return (std::uint32_t(p[0]) << 21) | (std::uint32_t(p[1]) << 14) | (std::uint32_t(p[2]) << 7) | p[3];
}

std::uint32_t bigEndian(const std::uint8_t* p, int bytes)
{
    std::uint32_t v = 0;
    for (int i = 0; i < bytes; ++i)
        v = (v << 8) | p[i];
    return v;
}

std::uint32_t littleEndian32(const std::uint8_t* p)
{
    return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) | (std::uint32_t(p[3]) << 24);
}

// The digits of a text frame's value, whatever its encoding: ASCII digits are
// picked from the bytes, so UTF-16 zero bytes and a byte-order mark fall away.
std::optional<double> millisecondsText(const std::uint8_t* p, std::size_t length)
{
    if (length < 2)
        return std::nullopt;
    double ms = 0;
    bool any = false;
    for (std::size_t i = 1; i < length && i < 64; ++i) {
        if (p[i] >= '0' && p[i] <= '9') {
            ms = ms * 10 + (p[i] - '0');
            any = true;
        } else if (p[i] != 0 && p[i] != 0xFF && p[i] != 0xFE) {
            break;
        }
    }
    if (!any || ms <= 0)
        return std::nullopt;
    return ms / 1000.0;
}

} // namespace

std::optional<MP3TagLocator::Span> MP3TagLocator::tagAt(const std::uint8_t* data, std::size_t size, std::size_t pos)
{
    if (pos >= size)
        return std::nullopt;
    const std::uint8_t* p = data + pos;
    const std::size_t left = size - pos;
    if (p[0] == 'I' && left >= 10 && std::memcmp(p, "ID3", 3) == 0) {
        if (p[3] == 0xFF || p[4] == 0xFF || (p[6] | p[7] | p[8] | p[9]) & 0x80)
            return std::nullopt;
        const std::uint64_t length = std::uint64_t(syncsafe(p + 6)) + 10 + ((p[5] & 0x10) ? 10 : 0);
        return Span{pos, length >= left ? size : pos + std::size_t(length)};
    }
    if (p[0] == 'T' && left >= 128 && std::memcmp(p, "TAG", 3) == 0)
        return Span{pos, pos + 128};
    if (p[0] == 'A' && left >= 32 && std::memcmp(p, "APETAGEX", 8) == 0) {
        const std::uint32_t tagSize = littleEndian32(p + 12);
        const std::uint32_t flags = littleEndian32(p + 20);
        if (tagSize < 32 || tagSize > size)
            return std::nullopt;
        if (flags & (1u << 29)) {
            const std::uint64_t end = std::uint64_t(pos) + 32 + tagSize;
            return Span{pos, end >= size ? size : std::size_t(end)};
        }
        const std::uint64_t before = std::uint64_t(tagSize) - 32 + ((flags & (1u << 31)) ? 32 : 0);
        return Span{before > pos ? 0 : pos - std::size_t(before), pos + 32};
    }
    return std::nullopt;
}

std::optional<double> MP3TagLocator::id3v2Length(const std::uint8_t* tag, std::size_t length)
{
    if (length < 10 || std::memcmp(tag, "ID3", 3) != 0)
        return std::nullopt;
    const int version = tag[3];
    const std::uint8_t flags = tag[5];
    if (version < 2 || version > 4 || (flags & 0x80))
        return std::nullopt;
    std::size_t end = std::min<std::size_t>(length, std::size_t(syncsafe(tag + 6)) + 10);
    std::size_t pos = 10;
    if (version >= 3 && (flags & 0x40) && pos + 4 <= end) {
        // Extended header: its size excludes its own four size bytes in
        // version 3 and includes them (syncsafe) in version 4.
        pos += version == 3 ? 4 + bigEndian(tag + pos, 4) : syncsafe(tag + pos);
    }
    const std::size_t headerLength = version == 2 ? 6 : 10;
    const std::size_t idLength = version == 2 ? 3 : 4;
    while (pos + headerLength <= end) {
        const std::uint8_t* f = tag + pos;
        if (f[0] == 0)
            break; // padding
        const std::size_t frameSize = version == 2 ? bigEndian(f + 3, 3)
            : version == 3                         ? bigEndian(f + 4, 4)
                                                   : syncsafe(f + 4);
        if (frameSize > end - pos - headerLength)
            break;
        if (std::memcmp(f, version == 2 ? "TLE" : "TLEN", idLength) == 0)
            return millisecondsText(f + headerLength, frameSize);
        pos += headerLength + frameSize;
    }
    return std::nullopt;
}

} // namespace folivox
