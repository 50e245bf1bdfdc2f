#include "cli/BuildOptionParser.h"

#include "build/BuildOutputPlanner.h"

#include <QCommandLineParser>

#include <cmath>

namespace folivox::cli {

namespace {


struct TagOption {
    const char* name;
    std::optional<QString> BookMetadataPatch::*field;
};

// The tag options other than --title and --series-index (which are not
// optional strings in BookMetadata).
const TagOption kTagOptions[] = {
    {"author", &BookMetadataPatch::author},         {"narrator", &BookMetadataPatch::narrator},
    {"series", &BookMetadataPatch::seriesName},     {"year", &BookMetadataPatch::year},
    {"genre", &BookMetadataPatch::genre},           {"language", &BookMetadataPatch::language},
    {"description", &BookMetadataPatch::description}, {"summary", &BookMetadataPatch::summary},
    {"comment", &BookMetadataPatch::comment},       {"publisher", &BookMetadataPatch::publisher},
    {"copyright", &BookMetadataPatch::copyright},   {"sort-title", &BookMetadataPatch::sortTitle},
    {"sort-author", &BookMetadataPatch::sortAuthor}, {"sort-album", &BookMetadataPatch::sortAlbum},
    {"sort-album-artist", &BookMetadataPatch::sortAlbumArtist},
};

std::optional<ExportPreset> presetNamed(const QString& text)
{
    for (const auto& [preset, name] : EnumNames<ExportPreset>::items) {
        if (text.compare(QLatin1String(name), Qt::CaseInsensitive) == 0)
            return preset;
    }
    return std::nullopt;
}

QStringList presetNames()
{
    QStringList names;
    for (const auto& item : EnumNames<ExportPreset>::items)
        names << QString::fromLatin1(item.second);
    return names;
}

// "-" is not a file: a book cannot be read from standard input or written
// to standard output, so it is refused where a path is expected.
std::optional<QString> dashPath(const BuildOptions& o)
{
    const QString dash = QStringLiteral("-");
    const auto refused = [](const char* what) {
        return QStringLiteral("'-' cannot be used as %1: Folivox reads and writes files, not standard input or output; "
                              "give a path").arg(QString::fromLatin1(what));
    };
    if (o.inputs.contains(dash))
        return refused("an input");
    if (o.output == dash)
        return refused("the output");
    if (o.cover == dash)
        return refused("the cover");
    if (o.chapters == dash)
        return refused("the chapter file");
    if (o.logFile == dash)
        return refused("the log file");
    return std::nullopt;
}

template<class T>
bool pick(const QString& text, std::initializer_list<std::pair<const char*, T>> choices, std::optional<T>& out)
{
    for (const auto& [name, value] : choices) {
        if (text == QLatin1String(name)) {
            out = value;
            return true;
        }
    }
    return false;
}

std::optional<int> positiveInt(const QString& text)
{
    bool ok = false;
    const int v = text.toInt(&ok);
    if (!ok || v <= 0)
        return std::nullopt;
    return v;
}

} // namespace

QString BuildOptionParser::usage()
{
    return QStringLiteral(
        "Usage: folivox build [options] INPUT...\n\n"
        "Builds one audiobook from audio files and folders.\n\n"
        "Output:\n"
        "  -o PATH                    the book (m4b) or the folder (m4a, mp3); default <Title>.m4b here;\n"
        "                             a name ending in .m4b sets --format m4b\n"
        "  --format m4b|m4a|mp3       one chaptered M4B, or one file per chapter\n"
        "  --preset NAME              custom, highDetail, balanced, spaceSaver, iPodCompatibility (any case)\n"
        "  --codec aac-lc|he-aac\n"
        "  --bitrate KBPS | --keep-bitrate\n"
        "  --channels auto|mono|stereo\n"
        "  --sample-rate auto|22050|32000|44100|48000\n"
        "  --passthrough auto|force|disabled   copy the audio where nothing has to change\n"
        "  --split-hours H | --split-size-mb N [--snap-to-chapters]   parts of H hours (1.5 is fine) or N MB\n"
        "  --cover IMAGE  --cover-size original|1000|600  --cover-quality original|90|80|70|60\n\n"
        "Tags:\n"
        "  --title --author --narrator --series --series-index --year --genre --language\n"
        "  --description --summary --comment --publisher --copyright --sort-title --sort-author\n"
        "  --sort-album --sort-album-artist   (default: as --sort-title and --sort-author)\n"
        "  See docs/TAGS.md for the atom or ID3 frame each one is written to.\n\n"
        "Library:\n"
        "  --book ID                  build a library book (its id or a unique start of it) instead of files;\n"
        "                             records the build on the book\n"
        "  --library DIR              the library (default: $FOLIVOX_LIBRARY, else Library/ in the app data folder)\n\n"
        "Chapters and order:\n"
        "  --chapters FILE            a chapter file to apply (cue, ffmetadata, mp4chaps, Audacity labels, ...)\n"
        "  --no-sidecar               ignore chapter files beside the audio\n"
        "  --skip-unreadable          build from the readable files and list the others\n"
        "                             (without it, any input that cannot be read fails the build)\n"
        "  --repair-damaged           build damaged MP3 sources from clean copies of their valid frames\n"
        "                             (MP3 sources are always checked; damage is reported either way)\n"
        "  --sort auto|filename|trackNumber|title|dateModified|given\n"
        "                             (given: files in the order they are named here)\n\n"
        "Running:\n"
        "  -j N                       parallel encoding jobs\n"
        "  --log FILE                 write the build's diagnostic log here\n"
        "  --json                     print the result as JSON on stdout\n"
        "  -f, --force                replace an existing output (without it, the build stops before any work)\n"
        "  --dry-run                  print the plan (inputs in order, chapters, strategy, output) and write nothing\n"
        "  -q, --quiet                no progress\n"
        "  -v, --verbose              echo the diagnostic log on stderr, with every child process's command line\n"
        "  -h, --help                 show this text\n\n"
        "Exit status: 0 built, 1 failed, 2 usage error, 130 cancelled.\n");
}

std::variant<BuildOptions, QString> BuildOptionParser::parse(const QStringList& args)
{
    QCommandLineParser p;
    p.setSingleDashWordOptionMode(QCommandLineParser::ParseAsCompactedShortOptions);
    const auto value = [](const char* name, const char* valueName) {
        return QCommandLineOption(QString::fromLatin1(name), QString(), QString::fromLatin1(valueName));
    };
    p.addOption(QCommandLineOption(QStringList{QStringLiteral("o"), QStringLiteral("output")}, QString(), QStringLiteral("PATH")));
    p.addOption(QCommandLineOption(QStringList{QStringLiteral("j"), QStringLiteral("jobs")}, QString(), QStringLiteral("N")));
    for (const char* name : {"format", "preset", "codec", "bitrate", "channels", "sample-rate", "passthrough",
                             "split-hours", "split-size-mb", "cover", "cover-size", "cover-quality", "chapters",
                             "sort", "log", "title", "series-index", "book", "library"})
        p.addOption(value(name, "VALUE"));
    for (const TagOption& t : kTagOptions)
        p.addOption(value(t.name, "VALUE"));
    for (const char* flag : {"keep-bitrate", "snap-to-chapters", "no-sidecar", "skip-unreadable", "repair-damaged", "json", "dry-run"})
        p.addOption(QCommandLineOption(QString::fromLatin1(flag)));
    p.addOption(QCommandLineOption(QStringList{QStringLiteral("q"), QStringLiteral("quiet")}));
    p.addOption(QCommandLineOption(QStringList{QStringLiteral("v"), QStringLiteral("verbose")}));
    p.addOption(QCommandLineOption(QStringList{QStringLiteral("f"), QStringLiteral("force")}));
    if (!p.parse(QStringList{QStringLiteral("folivox build")} + args))
        return p.errorText();

    BuildOptions o;
    o.inputs = p.positionalArguments();
    if (p.isSet(QStringLiteral("book")))
        o.book = p.value(QStringLiteral("book"));
    if (p.isSet(QStringLiteral("library")))
        o.library = p.value(QStringLiteral("library"));
    if (o.inputs.isEmpty() && !o.book)
        return QStringLiteral("no input files or folders given");
    if (!o.inputs.isEmpty() && o.book)
        return QStringLiteral("give input files and folders, or --book, not both");
    const auto bad = [](const char* option, const QString& v) {
        return QStringLiteral("invalid value for --%1: '%2'").arg(QString::fromLatin1(option), v);
    };
    if (p.isSet(QStringLiteral("o")))
        o.output = p.value(QStringLiteral("o"));
    if (p.isSet(QStringLiteral("format"))) {
        const QString v = p.value(QStringLiteral("format"));
        if (!pick<OutputFormat>(v, {{"m4b", OutputFormat::m4b}, {"m4a", OutputFormat::m4a}, {"mp3", OutputFormat::mp3}}, o.format))
            return bad("format", v);
    }
    if (p.isSet(QStringLiteral("preset"))) {
        const QString v = p.value(QStringLiteral("preset"));
        o.preset = presetNamed(v);
        if (!o.preset)
            return QStringLiteral("unknown preset '%1': choose one of %2").arg(v, presetNames().join(QStringLiteral(", ")));
    }
    if (p.isSet(QStringLiteral("codec"))) {
        const QString v = p.value(QStringLiteral("codec"));
        if (!pick<AudioCodec>(v, {{"aac-lc", AudioCodec::aacLC}, {"he-aac", AudioCodec::heAAC}}, o.codec))
            return bad("codec", v);
    }
    if (p.isSet(QStringLiteral("bitrate"))) {
        o.bitrate = positiveInt(p.value(QStringLiteral("bitrate")));
        if (!o.bitrate || *o.bitrate > 320)
            return bad("bitrate", p.value(QStringLiteral("bitrate")));
    }
    o.keepBitrate = p.isSet(QStringLiteral("keep-bitrate"));
    if (o.keepBitrate && o.bitrate)
        return QStringLiteral("--bitrate and --keep-bitrate cannot be used together");
    if (p.isSet(QStringLiteral("channels"))) {
        const QString v = p.value(QStringLiteral("channels"));
        if (!pick<ChannelSetting>(v, {{"auto", ChannelSetting::auto_}, {"mono", ChannelSetting::mono}, {"stereo", ChannelSetting::stereo}},
                                  o.channels))
            return bad("channels", v);
    }
    if (p.isSet(QStringLiteral("sample-rate"))) {
        const QString v = p.value(QStringLiteral("sample-rate"));
        if (!pick<SampleRateOption>(v, {{"auto", SampleRateOption::auto_}, {"22050", SampleRateOption::hz22050},
                                        {"32000", SampleRateOption::hz32000}, {"44100", SampleRateOption::hz44100},
                                        {"48000", SampleRateOption::hz48000}},
                                    o.sampleRate))
            return bad("sample-rate", v);
    }
    if (p.isSet(QStringLiteral("passthrough"))) {
        const QString v = p.value(QStringLiteral("passthrough"));
        if (!pick<PassthroughPolicy>(v, {{"auto", PassthroughPolicy::auto_}, {"force", PassthroughPolicy::force},
                                         {"disabled", PassthroughPolicy::disabled}},
                                     o.passthrough))
            return bad("passthrough", v);
    }
    if (p.isSet(QStringLiteral("split-hours"))) {
        bool ok = false;
        const double hours = p.value(QStringLiteral("split-hours")).toDouble(&ok);
        if (!ok || !std::isfinite(hours) || hours <= 0)
            return QStringLiteral("--split-hours must be greater than 0 (hours per part, e.g. 10 or 1.5), not '%1'")
                .arg(p.value(QStringLiteral("split-hours")));
        o.splitHours = hours;
    }
    if (p.isSet(QStringLiteral("split-size-mb"))) {
        o.splitSizeMB = positiveInt(p.value(QStringLiteral("split-size-mb")));
        if (!o.splitSizeMB)
            return QStringLiteral("--split-size-mb must be a whole number of megabytes greater than 0, not '%1'")
                .arg(p.value(QStringLiteral("split-size-mb")));
    }
    if (o.splitHours && o.splitSizeMB)
        return QStringLiteral("--split-hours and --split-size-mb cannot be used together");
    o.snapToChapters = p.isSet(QStringLiteral("snap-to-chapters"));
    if (p.isSet(QStringLiteral("cover")))
        o.cover = p.value(QStringLiteral("cover"));
    if (p.isSet(QStringLiteral("cover-size"))) {
        const QString v = p.value(QStringLiteral("cover-size"));
        if (!pick<CoverSize>(v, {{"original", CoverSize::original}, {"1000", CoverSize::px1000}, {"600", CoverSize::px600}},
                             o.coverSize))
            return bad("cover-size", v);
    }
    if (p.isSet(QStringLiteral("cover-quality"))) {
        const QString v = p.value(QStringLiteral("cover-quality"));
        if (!pick<CoverQuality>(v, {{"original", CoverQuality::original}, {"90", CoverQuality::q90}, {"80", CoverQuality::q80},
                                    {"70", CoverQuality::q70}, {"60", CoverQuality::q60}},
                                o.coverQuality))
            return bad("cover-quality", v);
    }
    if (p.isSet(QStringLiteral("title"))) {
        o.tags.title = p.value(QStringLiteral("title"));
    }
    if (p.isSet(QStringLiteral("series-index"))) {
        const QString v = p.value(QStringLiteral("series-index"));
        o.tags.seriesIndex = SeriesIndex::parse(v);
        if (!o.tags.seriesIndex)
            return bad("series-index", v);
    }
    for (const TagOption& t : kTagOptions) {
        if (p.isSet(QString::fromLatin1(t.name))) {
            o.tags.*(t.field) = p.value(QString::fromLatin1(t.name));
        }
    }
    if (p.isSet(QStringLiteral("chapters")))
        o.chapters = p.value(QStringLiteral("chapters"));
    o.noSidecar = p.isSet(QStringLiteral("no-sidecar"));
    o.skipUnreadable = p.isSet(QStringLiteral("skip-unreadable"));
    o.repairDamaged = p.isSet(QStringLiteral("repair-damaged"));
    if (p.isSet(QStringLiteral("sort"))) {
        const QString v = p.value(QStringLiteral("sort"));
        o.sort = trackSortModeFromString(v);
        if (!o.sort)
            return bad("sort", v);
    }
    if (p.isSet(QStringLiteral("j"))) {
        o.jobs = positiveInt(p.value(QStringLiteral("j")));
        if (!o.jobs)
            return QStringLiteral("invalid value for -j: '%1'").arg(p.value(QStringLiteral("j")));
    }
    if (p.isSet(QStringLiteral("log")))
        o.logFile = p.value(QStringLiteral("log"));
    o.json = p.isSet(QStringLiteral("json"));
    o.quiet = p.isSet(QStringLiteral("quiet"));
    o.verbose = p.isSet(QStringLiteral("verbose"));
    o.force = p.isSet(QStringLiteral("force"));
    o.dryRun = p.isSet(QStringLiteral("dry-run"));
    if (const auto dash = dashPath(o))
        return *dash;
    return o;
}

ExportSettings BuildOptionParser::settingsFrom(const BuildOptions& o, OutputFormat format, const ExportSettings& base)
{
    ExportSettings s = base;
    if (o.preset)
        s = presetSettings(*o.preset);
    s.outputFormat = format;
    if (o.codec)
        s.codec = *o.codec;
    if (o.bitrate) {
        s.cbrBitrateKbps = *o.bitrate;
        s.keepSourceBitrate = false;
    }
    if (o.keepBitrate)
        s.keepSourceBitrate = true;
    if (o.channels)
        s.channels = *o.channels;
    if (o.sampleRate)
        s.sampleRate = *o.sampleRate;
    if (o.passthrough)
        s.passthroughPolicy = *o.passthrough;
    if (o.splitHours) {
        s.splitMode = SplitMode::byDuration;
        s.splitHours = *o.splitHours;
    } else if (o.splitSizeMB) {
        s.splitMode = SplitMode::bySize;
        s.splitSizeMB = *o.splitSizeMB;
    }
    if (o.snapToChapters)
        s.snapToChapters = true;
    if (o.coverSize)
        s.coverSize = *o.coverSize;
    if (o.coverQuality)
        s.coverQuality = *o.coverQuality;
    return s;
}

BuildRequest BuildOptionParser::requestFrom(const BuildOptions& o, const std::optional<ExportSettings>& base)
{
    BuildRequest r;
    r.inputs = o.inputs;
    // A library book's own format counts as asked for, unless --format says otherwise.
    const std::optional<OutputFormat> asked = o.format ? o.format : base ? std::optional(base->outputFormat) : std::nullopt;
    r.settings = settingsFrom(o, BuildOutputPlanner::reconcileFormat(asked, o.output), base.value_or(ExportSettings()));
    r.tags = o.tags;
    r.coverPath = o.cover;
    r.chapterFile = o.chapters;
    r.noSidecar = o.noSidecar;
    r.sort = o.sort;
    r.output = o.output;
    r.parallelJobs = o.jobs;
    r.logFile = o.logFile;
    r.skipUnreadable = o.skipUnreadable;
    r.replaceExisting = o.force;
    r.repairDamaged = o.repairDamaged;
    // With no bitrate chosen (no --bitrate, --keep-bitrate or --preset), the
    // sources' own rate is the ceiling.
    r.capBitrateToSource = !o.bitrate && !o.keepBitrate && !o.preset && !base;
    return r;
}

} // namespace folivox::cli
