#pragma once

#include "core/settings/ExportSettings.h"

#include <QString>

#include <optional>

namespace folivox {

// Where a build writes, decided and checked before any audio work, so that a
// name the file system cannot take or a folder that is not there fails at
// once with the user's own path in the message.
class BuildOutputPlanner {
public:
    // The format a build makes: the one asked for, or the one -o's extension
    // names (".m4b" an M4B; ".m4a"/".mp3" the per-chapter formats). Throws a
    // usage BuildFailure when the two disagree, or when -o names a file with an
    // extension that no book format has ("notes.txt").
    static OutputFormat reconcileFormat(std::optional<OutputFormat> asked, const std::optional<QString>& output);

    // "<Title>.m4b" (a folder "<Title>" for M4A and MP3) in `folder`, the
    // title made safe for a file name.
    static QString defaultOutput(const QString& title, OutputFormat format, const QString& folder);

    // The absolute path a build writes, given -o (absent: the title in the
    // current folder; a folder: the title inside it; for an M4B, a path
    // that does not end in ".m4b" gets it).
    static QString plan(const std::optional<QString>& requested, const QString& title, OutputFormat format);

    // Checks a planned output before any work: its name has no line break or
    // control character and fits the file system together with the names
    // derived from it, its folder exists and is a folder, and nothing that is
    // not a regular file (or, for per-chapter formats, a folder) stands at it.
    // Throws BuildFailure naming the path.
    static void check(const QString& path, OutputFormat format);

    // Whether a build would replace something at the output: an M4B file,
    // or M4A/MP3 files in a per-chapter output folder. Throws BuildFailure
    // naming it when something stands there and replacing is not allowed.
    static bool checkReplace(const QString& path, OutputFormat format, bool replaceExisting);

    // The longest name the build derives from an output name ("<name>.chapters.txt",
    // "<name> - Part 12.m4b"), in bytes.
    static qsizetype longestDerivedNameBytes(const QString& fileName, OutputFormat format);
};

} // namespace folivox
