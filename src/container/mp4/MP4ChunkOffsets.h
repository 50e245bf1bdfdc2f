#pragma once

#include <QByteArray>

#include <cstdint>
#include <optional>

namespace folivox {

// The chunk offset tables (`stco`, 32-bit entries; `co64`, 64-bit entries)
// inside a `moov`: searching them and shifting them when media moves.
class MP4ChunkOffsets {
public:
    // Searches every stco/co64 below moov/trak/mdia/minf/stbl of the `moov`
    // box held in moov (the whole box, header included) for an entry in
    // [from, to). Returns the first found. A box that does not parse ends the
    // search with nothing found: this is a guard, not a validator. A table
    // whose count claims more entries than the box holds is read as far as
    // the box goes.
    static std::optional<std::uint64_t> findInRange(const QByteArray& moov, std::uint64_t from, std::uint64_t to);

    enum class ShiftResult { shifted, stcoOverflow, co64Overflow };

    // Adds delta to every entry (at or above threshold, below limit) of every stco/co64 of
    // the `moov` box that starts at moovPosition in buffer and ends at
    // moovEnd, walking trak/mdia/minf/stbl. A stco entry that would leave
    // 0..0xFFFFFFFF gives stcoOverflow, a co64 entry that would leave the
    // signed 64-bit range or go negative gives co64Overflow; the buffer is
    // then unchanged. A box that does not decode throws
    // MP4BoxHeader::ParseError.
    static ShiftResult shift(QByteArray& buffer, qsizetype moovPosition, qsizetype moovEnd, std::int64_t delta,
                             std::uint64_t threshold = 0, std::uint64_t limit = UINT64_MAX);
};

} // namespace folivox
