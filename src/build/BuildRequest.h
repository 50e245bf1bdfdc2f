#pragma once

#include "build/ImportedBook.h"
#include "core/book/BookMetadataPatch.h"
#include "core/settings/ExportSettings.h"
#include "core/book/TrackSortMode.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// Everything one build is asked to do, whoever asks (the command line, the
// queue, the window): the inputs, the settings, the tags and cover given by
// the user, the chapter file and where the book goes.
struct BuildRequest {
    // Files and folders as the user gave them, in that order.
    QStringList inputs;
    // Or a book imported earlier: built as it stands, no import.
    std::optional<ImportedBook> book;
    ExportSettings settings;
    // Tags given by the user; they win over what the files say.
    BookMetadataPatch tags;
    // An image file for the cover.
    std::optional<QString> coverPath;
    // A chapter file to apply; without one, a chapter file among the inputs
    // or, unless noSidecar, one found beside the audio that fits it.
    std::optional<QString> chapterFile;
    bool noSidecar = false;
    std::optional<TrackSortMode> sort;
    // The output as the user named it: a file, a folder, or nothing (the
    // book's title in the current folder).
    std::optional<QString> output;
    std::optional<int> parallelJobs;
    std::optional<QString> logFile;
    // Build from the readable files when some inputs cannot be read, and
    // list the rest, instead of failing.
    bool skipUnreadable = false;
    // Replace a file (or per-chapter files) already at the output; without
    // it, an existing output fails the build before any work.
    bool replaceExisting = false;
    // Build damaged MP3 sources from clean copies (their valid frames, made
    // in the work folder; the sources are not changed).
    bool repairDamaged = false;
    // The user chose no bitrate: never encode above the sources' own rate
    // (a 64 kb/s MP3 book does not become a 128 kb/s AAC book twice its size).
    bool capBitrateToSource = false;
};

} // namespace folivox
