#pragma once

#include "platform/Error.h"

#include <QByteArray>
#include <QString>

#include <cstdint>

namespace folivox {

class MP4File;

// Finds the first top-level `moov` of a file by reading box headers only, and
// loads that one box into memory. Never writes.
class MP4MoovReader {
public:
    // The largest `moov` loaded: 50 MiB. One byte more is refused.
    static constexpr std::uint64_t maxMoovSize = 52428800;

    struct MoovBuffer {
        // The whole box, header included, as it stands in the file; editors
        // change this copy.
        QByteArray data;
        std::uint64_t fileOffset = 0;
        // The box's size in the file; unchanged while data grows or shrinks.
        std::uint64_t originalSize = 0;
        // fileOffset + originalSize equals the file's size.
        bool isLastBox = false;
    };

    class Error : public folivox::Error {
    public:
        enum class Kind { moovTooLarge, moovNotFound, unsupportedLayout, invalidBoxStructure, readFailed };
        explicit Error(Kind kind, std::uint64_t size = 0) : kind_(kind), size_(size) {}
        Kind kind() const { return kind_; }
        // The refused size, for moovTooLarge.
        std::uint64_t size() const { return size_; }
        QString description() const override;

    private:
        Kind kind_;
        std::uint64_t size_;
    };

    // Opens the file, loads its first `moov` and closes it again on every
    // path. Throws Error, or MP4FileError when the file can't be opened,
    // seeked or read.
    static MoovBuffer read(const QString& path);
    // The same on a file already open for reading.
    static MoovBuffer read(const MP4File& file);
};

} // namespace folivox
