#pragma once

#include "container/mp4/MP4BoxTree.h"
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
// `mdat` that MoovEditor::commitAppending() writes together with the moov.
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
    // 0, each before durationMs) whose samples lie in the returned `mdat`,
    // as if that box started at mdatOffset (the editor's appendOffset(),
    // which commitAppending() expects). Throws ToolError when the file has no
    // sound track.
    static QByteArray add(MoovEditor& editor, const QList<ChapterEntry>& chapters, std::int64_t durationMs,
                          std::uint64_t mdatOffset);

    // The chapters of the first text track named by a `tref/chap`, read from
    // the file's samples. Empty when there is none. Throws ToolError when a
    // sample lies outside the file.
    static QList<ChapterEntry> read(const MP4BoxTree::Node& moov, const QString& path);
};

} // namespace folivox
