#pragma once

#include "core/chapters/ChapterInput.h"
#include "core/settings/ExportSettings.h"
#include "process/FormatProbe.h"

#include <QString>
#include <QUrl>

#include <optional>

namespace folivox {

// The per-chapter judgement of a multi-file (M4A or MP3) build: a chapter is
// copied when it is one whole source file already in the target format and
// no setting asks for a change; anything else is encoded.
class FolderPassthroughRule {
public:
    struct Verdict {
        enum class Kind {
            // The chapter starts at its file's beginning, but the file's
            // length is not known here: copy the file if it lasts
            // `rangeSeconds` (within a tenth of a second), else encode.
            copyIfWholeFile,
            // Encode; `reason` says why.
            refuse,
            // Copy the file as it is.
            copy,
        };

        Kind kind = Kind::refuse;
        QUrl url;                // the file to copy
        double rangeSeconds = 0; // copyIfWholeFile: the length the chapter takes
        QString reason;          // refuse: why, for the log

        static Verdict copyIfWholeFile(const QUrl& url, double rangeSeconds);
        static Verdict refuse(const QString& reason);
        static Verdict copy(const QUrl& url);

        bool operator==(const Verdict&) const = default;
    };

    // `source` is the format of the chapter's file (no value when unknown);
    // its duration, when positive, is the file's measured length and
    // decides whether the chapter takes all of it.
    static Verdict judge(const ChapterInput& chapter, const std::optional<FormatProbe>& source,
                         const ExportSettings& settings);

    // Whether the file is already what the output wants: an MP3 file with
    // MP3 audio for MP3 output; an MP4 file (.m4a, .m4b, .mp4) with audio of
    // the settings' AAC family for M4A (and M4B) output.
    static bool isTargetFormat(const QUrl& file, const FormatProbe& source, const ExportSettings& settings);
};

} // namespace folivox
