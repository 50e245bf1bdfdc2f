#pragma once

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4MoovReader.h"
#include "container/mp4/MP4MoovRewriter.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

namespace folivox {

// One edit of an MP4 file's `moov` by the mp4 tools. Opening checks that the
// file is an MP4 with a `moov` the tools can parse, and loads that box as a
// tree; the tools change the tree; commit() puts it back through
// MP4MoovRewriter, so the media is never rewritten and the file reads as the
// old or the new version at every instant. When there is no room around the
// moov for a second copy, the file is written anew beside itself (with room
// for later edits) and swapped in with one rename.
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

    // Where new media is meant to start when the edited moov's chunk
    // offsets are written (the file's size); commitAppending() moves them to
    // wherever the media lands.
    std::uint64_t appendOffset() const { return fileSize_; }

    // How the edit reached the file: only a new moov (and new media) written
    // into free space, or the whole file written anew and swapped in.
    enum class Route { moovOnly, wholeFile };

    // Writes the edited moov back. Does nothing (and returns no route) when
    // the tree serialises to the bytes that were loaded. Throws ToolError.
    std::optional<Route> commit();

    // Writes mediaBox (whole boxes, normally an `mdat` whose data the edited
    // moov points at as if it started at appendOffset()) together with the
    // moov: both land out of sight and appear with the one write that
    // retires the old moov, the chunk offsets moved to where the media went.
    Route commitAppending(const QByteArray& mediaBox);

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
    Route putBack(const QByteArray& media);

    QString path_;
    std::uint64_t fileSize_ = 0;
    QList<MP4BoxHeader> topLevel_;
    MP4MoovReader::MoovBuffer buffer_;
    MP4BoxTree::Node moov_;
};

} // namespace folivox
