#pragma once

#include "build/BuildRequest.h"
#include "cli/Command.h"
#include "core/BookMetadataPatch.h"
#include "core/ExportSettings.h"
#include "core/TrackSortMode.h"
#include "export/settings/ExportPreset.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

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
        std::optional<ExportPreset> preset;
        std::optional<AudioCodec> codec;
        std::optional<int> bitrate;
        bool keepBitrate = false;
        std::optional<ChannelSetting> channels;
        std::optional<SampleRateOption> sampleRate;
        std::optional<PassthroughPolicy> passthrough;
        std::optional<double> splitHours;
        std::optional<int> splitSizeMB;
        bool snapToChapters = false;
        std::optional<QString> cover;
        std::optional<CoverSize> coverSize;
        std::optional<CoverQuality> coverQuality;
        // Tags given on the command line.
        BookMetadataPatch tags;
        std::optional<QString> chapters;
        bool noSidecar = false;
        bool skipUnreadable = false;
        bool repairDamaged = false;
        std::optional<TrackSortMode> sort;
        std::optional<int> jobs;
        std::optional<QString> logFile;
        bool json = false;
        bool quiet = false;
        bool verbose = false;
        bool force = false;
        std::optional<QString> book;
        std::optional<QString> library;
        bool dryRun = false;
    };

    QString name() const override;
    QString summary() const override;
    QString usage() const override;
    int run(const QStringList& args) override;

    // The options, or the usage error's text.
    static std::variant<Options, QString> parse(const QStringList& args);

    // The preset's settings (`base` without one) with every option given
    // written over them, for the given format.
    static ExportSettings settingsFrom(const Options& options, OutputFormat format, const ExportSettings& base = {});

    // The build the options ask for. Throws a usage BuildFailure when -o and
    // --format disagree.
    static BuildRequest requestFrom(const Options& options, const std::optional<ExportSettings>& base = std::nullopt);
};

} // namespace folivox::cli
