#pragma once

#include "platform/Error.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>

namespace folivox {

class MP4File;

// One decoded box header. Offsets are in the caller's coordinates (a file
// offset or a position in a buffer).
struct MP4BoxHeader {
    // The four type bytes as a big-endian number: the only exact identity.
    std::uint32_t typeCode = 0;
    // The four type bytes as text; bytes outside 0x20..0x7E become "?", so
    // "\xA9lan" reads "?lan". For display and log lines only.
    QString type;
    std::uint64_t offset = 0;
    // Total size, header included.
    std::uint64_t size = 0;
    // 8, or 16 for the 64-bit size form.
    std::uint64_t headerLength = 0;
    // The stored 32-bit size was 0: the box runs to the end of its container.
    bool extendsToEnd = false;

    std::uint64_t end() const { return offset + size; }
    std::uint64_t contentOffset() const { return offset + headerLength; }
    bool is(std::uint32_t code) const { return typeCode == code; }

    class ParseError : public Error {
    public:
        enum class Kind { sizeSmallerThanHeader, sizeBeyondLimit, truncatedHeader, offsetOutOfRange };

        static ParseError sizeSmallerThanHeader(std::uint64_t size, std::uint64_t headerLength);
        static ParseError sizeBeyondLimit(std::uint64_t size, std::uint64_t available);
        static ParseError truncatedHeader();
        static ParseError offsetOutOfRange();

        Kind kind() const { return kind_; }
        std::uint64_t size() const { return size_; }
        // headerLength for sizeSmallerThanHeader, available for sizeBeyondLimit.
        std::uint64_t headerLength() const { return second_; }
        std::uint64_t available() const { return second_; }
        QString description() const override;

    private:
        ParseError(Kind kind, std::uint64_t size, std::uint64_t second) : kind_(kind), size_(size), second_(second) {}
        Kind kind_;
        std::uint64_t size_ = 0;
        std::uint64_t second_ = 0;
    };

    // Decodes a header from the first min(count, 16) bytes at data. offset is
    // where the box starts and limit where its enclosing range ends, both in
    // the caller's coordinates. Throws ParseError.
    static MP4BoxHeader decode(const char* data, std::uint64_t count, std::uint64_t offset, std::uint64_t limit);
    static MP4BoxHeader decode(const QByteArray& bytes, std::uint64_t offset, std::uint64_t limit);

    // Decodes the header that starts at position inside buffer, for a box
    // whose enclosing range ends at limit (a position in the same buffer).
    // Positions outside the buffer throw offsetOutOfRange.
    static MP4BoxHeader decodeAt(const QByteArray& buffer, qsizetype position, qsizetype limit);

    // Reads min(16, fileSize - offset) bytes at offset and decodes them with
    // limit = fileSize. A read failure throws MP4FileError.
    static MP4BoxHeader readAt(const MP4File& file, std::uint64_t offset, std::uint64_t fileSize);

    // All top-level boxes in file order. A header that does not decode ends
    // the list (a file with a damaged tail yields its good prefix); fewer than
    // 8 trailing bytes end it too. Read failures propagate.
    static QList<MP4BoxHeader> listTopLevel(const MP4File& file, std::uint64_t fileSize);
};

} // namespace folivox
