#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace folivox {

// Finds the tags that sit among MP3 frames: ID3v2 (before the audio, or
// appended), ID3v1 ("TAG", 128 bytes) and APE (v1 and v2).
class MP3TagLocator {
public:
    struct Span {
        std::size_t start = 0;
        std::size_t end = 0; // one past the last byte, never beyond the data
    };

    // The tag that opens at pos, or whose APE footer lies at pos. For an
    // ID3v2 tag: "ID3", a version and flags that are not 0xFF, and four
    // syncsafe size bytes (each below 0x80) giving the size after the 10-byte
    // header; the footer flag (0x10 of byte 5) adds 10 more. For "TAG": 128
    // bytes must be at hand. For "APETAGEX": the 32-byte header or footer
    // carries (little-endian, from byte 12) the tag's size counting its items
    // and footer but not its header, and in its flags (byte 20) whether this
    // block is the header (bit 29) and whether the tag has a header (bit 31).
    // From a header the tag runs 32 + size bytes forward. From a footer the
    // items lie before it: the tag starts size - 32 bytes before the footer,
    // and 32 more when it has a header too, so its start may lie before pos.
    // A size below 32 or beyond the data is not an APE tag.
    static std::optional<Span> tagAt(const std::uint8_t* data, std::size_t size, std::size_t pos);

    // The TLEN frame (length in milliseconds) of an ID3v2 tag of versions 2
    // to 4, in seconds; nothing when it has none or the tag is unsynchronised.
    static std::optional<double> id3v2Length(const std::uint8_t* tag, std::size_t length);
};

} // namespace folivox
