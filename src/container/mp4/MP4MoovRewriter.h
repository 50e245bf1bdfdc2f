#pragma once

#include "container/mp4/MP4MoovReader.h"
#include "platform/Error.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

namespace folivox {

// Puts an edited `moov` back into its file without moving any media, so that
// at every instant the file reads as either the old or the new version:
//
//   1. The new `moov` (with any new media boxes right ahead of it) is written
//      where no reader looks: inside the dead space around the old `moov`
//      (its MP4FreeZone), or behind it at the end of the file, hidden inside
//      a `free` box. It is made durable.
//   2. One header write of 8 bytes switches: it makes the first box of the
//      new copy visible and puts the old `moov` inside a `free` box, in the
//      same write. It is made durable.
//   3. Clean-up that no reader can see: the old `moov`'s bytes are zeroed or
//      cut off with a free tail at the end of the file, and media boxes that
//      the new `moov` no longer uses become `free`.
//
// The live `moov` is never written over, and there is never more than one
// `moov` a reader can reach. Dead space is reused: the new copy goes into the
// dead space ahead of the old `moov` when it fits there (so that the space
// behind can be cut off at the end of the file), else behind it, growing the
// file only by what is missing. A file edited again and again therefore holds
// at most about two copies of its `moov`.
class MP4MoovRewriter {
public:
    // Where the new moov goes: ahead of the old one in its dead space, behind
    // it in its dead space, or behind it with the file growing.
    enum class Mode { front, behind, append };
    static QString modeText(Mode mode);

    struct Plan {
        // The edited moov (with the chunk offsets of `media` final) and the
        // place of the old one.
        MP4MoovReader::MoovBuffer buffer;
        // Whole boxes written right ahead of the new moov (new media).
        QByteArray media;
        Mode mode = Mode::front;
        std::uint64_t fileSize = 0;  // when planned
        std::uint64_t zoneStart = 0; // the dead space around the old moov
        std::uint64_t zoneEnd = 0;
        std::uint64_t writableLeadEnd = 0; // see MP4FreeZone
        bool zoneReachesEnd = false;
        bool leadIsOneFreeBox = true;
        bool tailIsOneFreeBox = true;
        bool moovOpenEnded = false;
        // Where media then moov start, and where they end.
        std::uint64_t unitOffset = 0;
        std::uint64_t unitEnd() const { return unitOffset + std::uint64_t(media.size() + buffer.data.size()); }
        // The end of the `free` box that hides the new copy until the switch
        // (modes behind and append); beyond fileSize when the file grows.
        std::uint64_t wrapperEnd = 0;
        // The file's size once done.
        std::uint64_t finalSize = 0;
        // The offset of the one write that switches readers to the new moov.
        std::uint64_t switchOffset = 0;
        // Offsets of top-level `mdat` boxes the new moov no longer points
        // into: they become `free` once the switch is made.
        QList<std::uint64_t> deadMedia;
    };

    class UnsupportedLayout : public Error {
    public:
        explicit UnsupportedLayout(QString reason) : reason_(std::move(reason)) {}
        const QString& reason() const { return reason_; }
        QString description() const override;

    private:
        QString reason_;
    };

    // Decides where buffer (an edited moov) goes in the file at path. media,
    // when given, is written right ahead of the new moov; the moov's chunk
    // offsets at or above mediaBase point into it as if it started at
    // mediaBase, and are moved to where it lands. Never changes the file.
    // Throws UnsupportedLayout (no room, or media at risk) or MP4FileError.
    static Plan plan(MP4MoovReader::MoovBuffer buffer, const QString& path, const QByteArray& media = {},
                     std::uint64_t mediaBase = 0);

    // Performs the writes of a plan. Throws UnsupportedLayout when the file
    // changed since planning (nothing written then), or MP4FileError; after
    // a failure the file still reads as the old or the new version.
    static void rewrite(const Plan& plan, const QString& path);

    // The header of a `free` box covering n bytes (n >= 8): 8 bytes, or 16
    // with the 64-bit size form when n does not fit in 32 bits.
    static QByteArray freeHeader(std::uint64_t n);
};

} // namespace folivox
