#pragma once

#include "container/MP4BoxTree.h"
#include "tools/ChapterListFile.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>

namespace folivox {

class MoovEditor;

// The QuickTime chapter track, the chapter form Apple's players read: a
// disabled text track with one sample per chapter, named by `tref/chap` in
// the enabled sound track. Its samples (a 16-bit length, the UTF-8 title and
// an `encd` box marking the text as UTF-8) are kept in one chunk, in an
// `mdat` the caller appends at the end of the file.
class ChapterTrackWriter {
public:
    // Titles longer than this many UTF-8 bytes are cut on a character boundary.
    static constexpr qsizetype maxTitleBytes = 1024;
    static constexpr std::uint32_t timescale = 1000;

    // One text sample.
    static QByteArray sample(const QString& title);

    // Removes every text track that a `tref/chap` names, and those
    // references; an emptied `chap` and `tref` go too. Returns how many
    // tracks were removed.
    static int remove(MoovEditor& editor);

    // Adds a chapter track for chapters (already normalised: sorted, first at
    // 0, each before durationMs) whose samples start at mediaOffset, the
    // first byte of the body of the returned `mdat`. The caller appends that
    // box at appendOffset() = mediaOffset - 8. Throws ToolError when the file
    // has no sound track.
    static QByteArray add(MoovEditor& editor, const QList<ChapterEntry>& chapters, std::int64_t durationMs,
                          std::uint64_t mdatOffset);

    // The chapters of the first text track named by a `tref/chap`, read from
    // the file's samples. Empty when there is none. Throws ToolError when a
    // sample lies outside the file.
    static QList<ChapterEntry> read(const MP4BoxTree::Node& moov, const QString& path);
};

} // namespace folivox
