#pragma once

#include "container/MP4BoxHeader.h"
#include "container/MP4BoxTree.h"
#include "container/MP4MoovReader.h"
#include "container/MP4MoovRewriter.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

namespace folivox {

// One edit of an MP4 file's `moov` by the mp4 tools. Opening checks that the
// file is an MP4 with a `moov` the tools can parse, and loads that box as a
// tree; the tools change the tree; commit() puts it back through
// MP4MoovRewriter, so the media is never rewritten. New media (chapter text
// samples) goes into an `mdat` appended at the end of the file.
//
// Every check runs before the first write: a file the tools refuse is left
// exactly as it was.
class MoovEditor {
public:
    // Loads and checks the file. Throws ToolError (fileUnreadable, notAnMP4,
    // moovUnreadable).
    explicit MoovEditor(const QString& path);

    const QString& path() const { return path_; }
    std::uint64_t fileSize() const { return fileSize_; }
    const QList<MP4BoxHeader>& topLevelBoxes() const { return topLevel_; }
    const MP4MoovReader::MoovBuffer& loadedMoov() const { return buffer_; }

    MP4BoxTree::Node& moov() { return moov_; }
    const MP4BoxTree::Node& moov() const { return moov_; }

    // Where an appended box would start: the current end of the file.
    std::uint64_t appendOffset() const { return fileSize_; }

    // Writes the edited moov back. Does nothing (and returns no mode) when the
    // tree serialises to the bytes that were loaded. Throws ToolError.
    std::optional<MP4MoovRewriter::Mode> commit();

    // Appends mediaBox (a whole box, normally an `mdat` whose data the edited
    // moov already points at, starting at appendOffset()) and then writes the
    // moov back. Refuses before writing when the boxes do not reach the end
    // of the file cleanly or the last box is open-ended beyond 4 GiB. If the
    // moov cannot be put back, the appended bytes are cut off again.
    MP4MoovRewriter::Mode commitAppending(const QByteArray& mediaBox);

    // The boxes of the track with this handler type ("soun", "text"), in order.
    std::vector<MP4BoxTree::Node*> tracksWithHandler(std::uint32_t handler);

    // The handler type of a trak node (0 when it has none).
    static std::uint32_t handlerType(const MP4BoxTree::Node& trak);
    // The track ID from a trak's tkhd (0 when it cannot be read).
    static std::uint32_t trackID(const MP4BoxTree::Node& trak);
    // tkhd flags of a trak (0 when they cannot be read).
    static std::uint32_t trackFlags(const MP4BoxTree::Node& trak);

    // The enabled sound track the chapters belong to: the first `soun` track
    // whose tkhd has the enabled flag, else the first `soun` track.
    MP4BoxTree::Node* primaryAudioTrack();

    struct MediaTime {
        std::uint32_t timescale = 0;
        std::uint64_t duration = 0;
    };
    // The timescale and duration from a trak's mdhd.
    static std::optional<MediaTime> mediaTime(const MP4BoxTree::Node& trak);

    struct MovieHeader {
        int version = 0;
        std::uint64_t creationTime = 0;
        std::uint64_t modificationTime = 0;
        std::uint32_t timescale = 0;
        std::uint64_t duration = 0;
        std::uint32_t nextTrackID = 0;
    };
    std::optional<MovieHeader> movieHeader() const;
    // Sets mvhd's next_track_ID; false when mvhd is too short.
    bool setNextTrackID(std::uint32_t next);

private:
    MP4MoovRewriter::Mode putBack();

    QString path_;
    std::uint64_t fileSize_ = 0;
    QList<MP4BoxHeader> topLevel_;
    MP4MoovReader::MoovBuffer buffer_;
    MP4BoxTree::Node moov_;
};

} // namespace folivox
