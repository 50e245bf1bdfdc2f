#pragma once

#include <QStringList>
#include <QTextStream>

#include <cstdint>
#include <optional>

namespace folivox {

class MoovEditor;

// The mp4chaps program: chapters of an MP4.
//   -i, --import   reads "<file without extension>.chapters.txt" and replaces
//                  the chapters of the chosen kind with it
//   -r, --remove   removes the chapters of the chosen kind
//   -l, --list     prints the chapters of the chosen kind
//   -x, --export   writes the chapters to "<file without extension>.chapters.txt"
//                  (never over an existing file)
//   -Q, --chapter-qt    QuickTime chapter track
//   -N, --chapter-nero  Nero `chpl`
//   -A, --chapter-any   both (the default)
// Imported chapters are ordered, those at or after the end of the audio are
// dropped and the first starts at 0. The QuickTime track keeps every
// chapter; Nero keeps the first 255.
class ChapsCommand {
public:
    // Returns the exit status: 0 success, 1 a file failed, 2 usage.
    static int run(const QStringList& arguments, QTextStream& out, QTextStream& err);

    // The length of the presentation in milliseconds: the enabled sound
    // track's tkhd duration over the movie timescale, else its mdhd duration.
    static std::optional<std::int64_t> audioDurationMs(MoovEditor& editor);
};

} // namespace folivox
