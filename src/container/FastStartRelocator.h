#pragma once

#include "platform/Error.h"

#include <QString>

#include <cstdint>

namespace folivox {

// Moves `moov` in front of `mdat` by streaming the file into a new one with
// every chunk offset shifted by the size of `moov`, then putting the new file
// in the book's place with SafeFileReplace. The book itself is touched only
// by that last step.
class FastStartRelocator {
public:
    static constexpr std::uint64_t maxMoovSize = 209715200;
    static constexpr std::uint64_t pieceSize = 4194304;

    enum class Refusal { moovTooLarge, notAnMP4, moovReadShort, stcoOverflow, co64Overflow, noTempLocation, sizeMismatch };
    static QString refusalName(Refusal refusal);

    struct Outcome {
        enum class Kind { relocated, alreadyAhead, refused };
        Kind kind = Kind::relocated;
        Refusal refusal = Refusal::notAnMP4; // meaningful when refused
        std::uint64_t moovSize = 0;          // the refused size, for moovTooLarge
    };

    // A read of the source that ended while bytes were still due.
    class StreamError : public Error {
    public:
        StreamError(std::uint64_t expected, std::uint64_t got) : expected_(expected), got_(got) {}
        std::uint64_t expected() const { return expected_; }
        std::uint64_t got() const { return got_; }
        QString description() const override;

    private:
        std::uint64_t expected_;
        std::uint64_t got_;
    };

    // Relocates, reports that nothing was needed, or refuses (the file left as
    // it was). Throws StreamError, MP4FileError, MP4BoxHeader::ParseError for
    // a moov whose track boxes do not decode, and SafeFileReplace's errors
    // from the put-back.
    static Outcome relocate(const QString& path);
};

} // namespace folivox
