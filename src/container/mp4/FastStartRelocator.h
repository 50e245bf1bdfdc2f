#pragma once

#include "platform/Error.h"

#include <QString>

#include <cstdint>
#include <functional>

namespace folivox {

// Moves `moov` in front of `mdat` by streaming the file into a new one with
// every chunk offset shifted by the size of `moov`, then putting the new file
// in the book's place with SafeFileReplace. The book itself is touched only
// by that last step.
class FastStartRelocator {
public:
    static constexpr std::uint64_t maxMoovSize = 209715200;

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

    // Writes a new file at destination holding source in fast-start order in
    // one pass: what precedes mdat, moov with every chunk offset shifted,
    // then a `free` box of at least paddingBytes (rounded up so that the
    // media keeps its place within a page, which lets the kernel copy it),
    // then the media. The padding gives later tag, cover and chapter edits
    // room to rewrite moov where it stands. The source is only read.
    //
    // When moov already precedes mdat it stays first and the padding goes
    // right behind it (the media moves by the padding, a whole number of
    // pages). Reports refused, having written nothing, when the copy cannot
    // be made in this order; the caller then copies the file as it is. progress gets the fraction written after each piece
    // and may throw to stop the copy. The destination must not exist; on
    // any failure it is removed. Throws StreamError and MP4FileError.
    static Outcome copyFastStart(const QString& source, const QString& destination, std::uint64_t paddingBytes,
                                 const std::function<void(double)>& progress = {});
};

} // namespace folivox
