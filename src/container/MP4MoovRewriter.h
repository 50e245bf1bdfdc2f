#pragma once

#include "container/MP4MoovReader.h"
#include "platform/Error.h"

#include <QString>

#include <cstdint>
#include <optional>

namespace folivox {

// Puts an edited `moov` back into its file without moving any media: over
// itself when it is the last box, into its own space plus the free/skip boxes
// behind it, or at the end of the file with the old one turned into `free`.
// No chunk offset changes in any mode.
class MP4MoovRewriter {
public:
    enum class Mode { last, inplace, append };
    static QString modeText(Mode mode);

    struct Plan {
        MP4MoovReader::MoovBuffer buffer;
        Mode mode = Mode::last;
        // Total size of the unbroken free/skip run right behind the old moov; 0 for `last`.
        std::uint64_t trailingFree = 0;
        // The file's size when planned; 0 for `last`.
        std::uint64_t fileSize = 0;
        // For `append` only: the last box's offset when its stored size is 0.
        std::optional<std::uint64_t> openEndedLastBoxOffset;
    };

    class UnsupportedLayout : public Error {
    public:
        explicit UnsupportedLayout(QString reason) : reason_(std::move(reason)) {}
        const QString& reason() const { return reason_; }
        QString description() const override;

    private:
        QString reason_;
    };

    // Decides how buffer (an edited moov) goes back into the file at path.
    // Never changes the file. Throws UnsupportedLayout or MP4FileError.
    static Plan plan(MP4MoovReader::MoovBuffer buffer, const QString& path);

    // Performs the writes of a plan. Throws UnsupportedLayout when the file's
    // size changed since planning, MP4MoovReader::Error for `last` on a moov
    // that is not last, or MP4FileError.
    static void rewrite(const Plan& plan, const QString& path);

    // The header of a `free` box covering n bytes (n >= 8): 8 bytes, or 16
    // with the 64-bit size form when n does not fit in 32 bits.
    static QByteArray freeHeader(std::uint64_t n);
};

} // namespace folivox
