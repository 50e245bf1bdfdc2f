#pragma once

#include "cli/Command.h"
#include "core/BookMetadata.h"
#include "core/Bookmark.h"
#include "core/ExportSettings.h"
#include "core/NormalizedChapter.h"
#include "core/Track.h"
#include "core/TrackSortMode.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <variant>
#include <vector>

namespace folivox::cli {

// `folivox build [options] INPUT...`: files and folders in, one book out.
// Imports the inputs, applies a chapter file (--chapters, one dropped among
// the inputs, or one found beside the audio that fits it well), takes the
// settings from a preset and the options, runs the export with a progress bar
// on stderr and prints what it made (--json: one JSON document on stdout).
// Ctrl-C or SIGTERM cancels: children stop, no partial output is left, a file
// that stood at the output before is untouched, and the exit status is 130.
class BuildCommand : public Command {
public:
    // Everything the options say, checked.
    struct Options {
        QStringList inputs;
        std::optional<QString> output;
        std::optional<OutputFormat> format;
        std::optional<QString> preset;
        std::optional<AudioCodec> codec;
        std::optional<int> bitrate;
        bool keepBitrate = false;
        std::optional<ChannelSetting> channels;
        std::optional<SampleRateOption> sampleRate;
        std::optional<PassthroughPolicy> passthrough;
        std::optional<int> splitHours;
        std::optional<int> splitSizeMB;
        bool snapToChapters = false;
        std::optional<QString> cover;
        std::optional<CoverSize> coverSize;
        std::optional<CoverQuality> coverQuality;
        // Tags given on the command line, by option name ("title", "author", ...).
        BookMetadata tags;
        QStringList tagsGiven;
        std::optional<QString> chapters;
        bool noSidecar = false;
        std::optional<TrackSortMode> sort;
        std::optional<int> jobs;
        std::optional<QString> logFile;
        bool json = false;
        bool quiet = false;
        bool verbose = false;
    };

    QString name() const override;
    QString summary() const override;
    QString usage() const override;
    int run(const QStringList& args) override;

    // The options, or the usage error's text.
    static std::variant<Options, QString> parse(const QStringList& args);

    // The preset's settings (a new ExportSettings without one) with every
    // option written over them.
    static ExportSettings settingsFrom(const Options& options);

    // The book's tags: the options first, then what the tracks' tags agree
    // on (album as title, album artist or artist as author, ...), then the
    // folder's name as the title.
    static BookMetadata metadataFrom(const Options& options, const std::vector<Track>& tracks,
                                     const QString& fallbackTitle);

    // Chapters on the book's timeline (milliseconds from the start of the
    // first track) as bookmarks over the tracks: each starts in the track
    // that holds its start and runs on into the following tracks.
    static std::vector<Bookmark> bookmarksFromChapters(const std::vector<Track>& tracks,
                                                       const QList<NormalizedChapter>& chapters);

    // "<Title>.m4b" (a folder "<Title>" for M4A and MP3) in `folder`, the
    // title made safe for a file name.
    static QString defaultOutput(const QString& title, OutputFormat format, const QString& folder);
    // Where a build writes, given -o (absent, a folder, or a path without
    // extension, which for an M4B gets ".m4b").
    static QString outputPath(const std::optional<QString>& requested, const QString& title, OutputFormat format);
};

} // namespace folivox::cli
