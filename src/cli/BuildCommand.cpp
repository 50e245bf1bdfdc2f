#include "cli/BuildCommand.h"

#include "cli/Console.h"
#include "cli/ProgressReporter.h"
#include "cli/SignalCancellation.h"
#include "container/MP4BoxTree.h"
#include "container/MP4MoovReader.h"
#include "export/DefaultExportService.h"
#include "export/DefaultMetadataWritingService.h"
#include "export/ExportPreset.h"
#include "export/ExportSettingsValidator.h"
#include "export/FFmpegWrapper.h"
#include "export/ManualCancellationToken.h"
#include "export/MultiFileExportStrategy.h"
#include "export/UserFacingError.h"
#include "import/ImportCoordinator.h"
#include "import/LibavAudioInspector.h"
#include "platform/Error.h"
#include "platform/Log.h"
#include "sidecars/SidecarApplyPolicy.h"
#include "sidecars/SidecarChapterFitter.h"
#include "sidecars/SidecarDiscoveryService.h"
#include "sidecars/SidecarParserRegistry.h"
#include "tools/IlstEditor.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace folivox::cli {

namespace {

struct TagOption {
    const char* name;
    std::optional<QString> BookMetadata::*field;
};

// The tag options other than --title and --series-index (which are not
// optional strings in BookMetadata).
const TagOption kTagOptions[] = {
    {"author", &BookMetadata::author},         {"narrator", &BookMetadata::narrator},
    {"series", &BookMetadata::seriesName},     {"year", &BookMetadata::year},
    {"genre", &BookMetadata::genre},           {"language", &BookMetadata::language},
    {"description", &BookMetadata::description}, {"summary", &BookMetadata::summary},
    {"comment", &BookMetadata::comment},       {"publisher", &BookMetadata::publisher},
    {"copyright", &BookMetadata::copyright},   {"sort-title", &BookMetadata::sortTitle},
    {"sort-author", &BookMetadata::sortAuthor},
};

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

QString clockText(double seconds)
{
    const qint64 s = static_cast<qint64>(std::llround(std::max(0.0, seconds)));
    return QStringLiteral("%1:%2:%3").arg(s / 3600).arg((s / 60) % 60, 2, 10, QChar(u'0')).arg(s % 60, 2, 10, QChar(u'0'));
}

// The first non-empty value of a track field, if every track that has one agrees on it.
std::optional<QString> agreed(const std::vector<Track>& tracks, std::optional<QString> Track::*field)
{
    std::optional<QString> value;
    for (const Track& t : tracks) {
        const auto& v = t.*field;
        if (!v || v->trimmed().isEmpty())
            continue;
        if (!value)
            value = v->trimmed();
        else if (*value != v->trimmed())
            return std::nullopt;
    }
    return value;
}

std::optional<QString> first(const std::vector<Track>& tracks, std::optional<QString> Track::*field)
{
    for (const Track& t : tracks) {
        const auto& v = t.*field;
        if (v && !v->trimmed().isEmpty())
            return v->trimmed();
    }
    return std::nullopt;
}

class SignalScope {
public:
    explicit SignalScope(std::shared_ptr<ManualCancellationToken> token)
    {
        SignalCancellation::install();
        id_ = SignalCancellation::onCancel([token] { token->cancel(); });
    }
    ~SignalScope() { SignalCancellation::removeCallback(id_); }
    SignalScope(const SignalScope&) = delete;
    SignalScope& operator=(const SignalScope&) = delete;

private:
    int id_ = 0;
};

// The picture embedded in a source file, or nothing. An MP4 file's items are
// read from its moov directly: libav would first index every sample of a
// long book (70 ms for a 500 MB one) to hand back the same picture.
QByteArray embeddedCover(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    if (ext == u"m4b" || ext == u"m4a" || ext == u"mp4") {
        try {
            MP4BoxTree::Node moov = MP4BoxTree::parse(MP4MoovReader::read(path).data);
            const QList<IlstEditor::Image> covers = IlstEditor(moov).covers();
            return covers.isEmpty() ? QByteArray() : covers.first().bytes;
        } catch (const std::exception&) {
            // Not a plain MP4 after all: let libav have a look.
        }
    }
    try {
        return LibavAudioInspector().probe(path).coverImage;
    } catch (const std::exception&) {
        return {};
    }
}

int failure(const QString& message)
{
    Console::err(QStringLiteral("folivox build: ") + message + u'\n');
    return ExitFailure;
}

} // namespace

QString BuildCommand::name() const
{
    return QStringLiteral("build");
}

QString BuildCommand::summary() const
{
    return QStringLiteral("build one book from audio files and folders");
}

QString BuildCommand::usage() const
{
    return QStringLiteral(
        "Usage: folivox build [options] INPUT...\n\n"
        "Builds one audiobook from audio files and folders.\n\n"
        "Output:\n"
        "  -o PATH                    the book (m4b) or the folder (m4a, mp3); default <Title>.m4b here\n"
        "  --format m4b|m4a|mp3       one chaptered M4B, or one file per chapter\n"
        "  --preset NAME              custom, highDetail, balanced, spaceSaver, iPodCompatibility\n"
        "  --codec aac-lc|he-aac\n"
        "  --bitrate KBPS | --keep-bitrate\n"
        "  --channels auto|mono|stereo\n"
        "  --sample-rate auto|22050|32000|44100|48000\n"
        "  --passthrough auto|force|disabled   copy the audio where nothing has to change\n"
        "  --split-hours N | --split-size-mb N [--snap-to-chapters]\n"
        "  --cover IMAGE  --cover-size original|1000|600  --cover-quality original|90|80|70|60\n\n"
        "Tags:\n"
        "  --title --author --narrator --series --series-index --year --genre --language\n"
        "  --description --summary --comment --publisher --copyright --sort-title --sort-author\n\n"
        "Chapters and order:\n"
        "  --chapters FILE            a chapter file to apply (cue, ffmetadata, mp4chaps, Audacity labels, ...)\n"
        "  --no-sidecar               ignore chapter files beside the audio\n"
        "  --sort auto|filename|trackNumber|title|dateModified\n\n"
        "Running:\n"
        "  -j N                       parallel encoding jobs\n"
        "  --log FILE                 write the build's diagnostic log here\n"
        "  --json                     print the result as JSON on stdout\n"
        "  --quiet                    no progress\n"
        "  --verbose                  echo the diagnostic log on stderr\n\n"
        "Exit status: 0 built, 1 failed, 2 usage error, 130 cancelled.\n");
}

std::variant<BuildCommand::Options, QString> BuildCommand::parse(const QStringList& args)
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
                             "sort", "log", "title", "series-index"})
        p.addOption(value(name, "VALUE"));
    for (const TagOption& t : kTagOptions)
        p.addOption(value(t.name, "VALUE"));
    for (const char* flag : {"keep-bitrate", "snap-to-chapters", "no-sidecar", "json", "quiet", "verbose"})
        p.addOption(QCommandLineOption(QString::fromLatin1(flag)));
    if (!p.parse(QStringList{QStringLiteral("folivox build")} + args))
        return p.errorText();

    Options o;
    o.inputs = p.positionalArguments();
    if (o.inputs.isEmpty())
        return QStringLiteral("no input files or folders given");
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
        if (!enumFromName<ExportPreset>(v))
            return bad("preset", v);
        o.preset = v;
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
        o.splitHours = positiveInt(p.value(QStringLiteral("split-hours")));
        if (!o.splitHours)
            return QStringLiteral("splitHours must be > 0 for split export");
    }
    if (p.isSet(QStringLiteral("split-size-mb"))) {
        o.splitSizeMB = positiveInt(p.value(QStringLiteral("split-size-mb")));
        if (!o.splitSizeMB)
            return QStringLiteral("splitSizeMB must be > 0 for split export");
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
        o.tagsGiven << QStringLiteral("title");
    }
    if (p.isSet(QStringLiteral("series-index"))) {
        const QString v = p.value(QStringLiteral("series-index"));
        o.tags.seriesIndex = SeriesIndex::parse(v);
        if (!o.tags.seriesIndex)
            return bad("series-index", v);
        o.tagsGiven << QStringLiteral("series-index");
    }
    for (const TagOption& t : kTagOptions) {
        if (p.isSet(QString::fromLatin1(t.name))) {
            o.tags.*(t.field) = p.value(QString::fromLatin1(t.name));
            o.tagsGiven << QString::fromLatin1(t.name);
        }
    }
    if (p.isSet(QStringLiteral("chapters")))
        o.chapters = p.value(QStringLiteral("chapters"));
    o.noSidecar = p.isSet(QStringLiteral("no-sidecar"));
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
    return o;
}

ExportSettings BuildCommand::settingsFrom(const Options& o)
{
    ExportSettings s;
    if (o.preset) {
        if (const auto preset = enumFromName<ExportPreset>(*o.preset))
            s = presetSettings(*preset);
    }
    if (o.format)
        s.outputFormat = *o.format;
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
    s.snapToChapters = o.snapToChapters;
    if (o.coverSize)
        s.coverSize = *o.coverSize;
    if (o.coverQuality)
        s.coverQuality = *o.coverQuality;
    return s;
}

BookMetadata BuildCommand::metadataFrom(const Options& o, const std::vector<Track>& tracks, const QString& fallbackTitle)
{
    BookMetadata m;
    m.title = first(tracks, &Track::album).value_or(QString());
    m.author = agreed(tracks, &Track::albumArtist);
    if (!m.author)
        m.author = agreed(tracks, &Track::artist);
    m.narrator = agreed(tracks, &Track::narrator);
    m.year = agreed(tracks, &Track::year);
    m.genre = agreed(tracks, &Track::genre);
    m.language = agreed(tracks, &Track::language);
    m.publisher = agreed(tracks, &Track::publisher);
    m.copyright = agreed(tracks, &Track::copyright);
    m.description = first(tracks, &Track::longDescription);
    if (!m.description)
        m.description = first(tracks, &Track::trackDescription);
    m.seriesName = agreed(tracks, &Track::seriesName);
    for (const Track& t : tracks) {
        if (t.seriesIndex) {
            m.seriesIndex = t.seriesIndex;
            break;
        }
    }
    m.sortTitle = agreed(tracks, &Track::sortTitleOverride);
    m.sortAuthor = agreed(tracks, &Track::sortAuthorOverride);
    m.sortAlbum = agreed(tracks, &Track::sortAlbumOverride);
    m.encodedWith = QStringLiteral("Folivox");

    if (o.tagsGiven.contains(QStringLiteral("title")))
        m.title = o.tags.title;
    if (o.tags.seriesIndex)
        m.seriesIndex = o.tags.seriesIndex;
    for (const TagOption& t : kTagOptions) {
        if (o.tags.*(t.field))
            m.*(t.field) = o.tags.*(t.field);
    }
    if (m.title.trimmed().isEmpty())
        m.title = fallbackTitle;
    return m;
}

std::vector<Bookmark> BuildCommand::bookmarksFromChapters(const std::vector<Track>& tracks,
                                                          const QList<NormalizedChapter>& chapters)
{
    return SidecarChapterFitter::bookmarks(tracks, chapters);
}

QString BuildCommand::defaultOutput(const QString& title, OutputFormat format, const QString& folder)
{
    const QString base = MultiFileExportStrategy::sanitizedTitle(title.isEmpty() ? QStringLiteral("Audiobook") : title);
    if (format == OutputFormat::m4b)
        return QDir(folder).absoluteFilePath(base + QStringLiteral(".m4b"));
    return QDir(folder).absoluteFilePath(base);
}

QString BuildCommand::outputPath(const std::optional<QString>& requested, const QString& title, OutputFormat format)
{
    if (!requested)
        return defaultOutput(title, format, QDir::currentPath());
    const QFileInfo info(*requested);
    if (format != OutputFormat::m4b)
        return info.absoluteFilePath();
    if (info.isDir())
        return defaultOutput(title, format, info.absoluteFilePath());
    return info.suffix().isEmpty() ? info.absoluteFilePath() + QStringLiteral(".m4b") : info.absoluteFilePath();
}

int BuildCommand::run(const QStringList& args)
{
    const auto parsed = parse(args);
    if (const QString* error = std::get_if<QString>(&parsed)) {
        Console::err(QStringLiteral("folivox build: ") + *error + QStringLiteral("\nRun 'folivox build --help' for the options.\n"));
        return ExitUsage;
    }
    const Options& o = std::get<Options>(parsed);
    Log::setVerbose(o.verbose);
    const ExportSettings settings = settingsFrom(o);
    try {
        ExportSettingsValidator::validate(settings);
    } catch (const Error& e) {
        Console::err(QStringLiteral("folivox build: ") + e.description() + u'\n');
        return ExitUsage;
    }

    QList<QUrl> inputs;
    for (const QString& input : o.inputs) {
        const QFileInfo info(input);
        if (!info.exists())
            return failure(QStringLiteral("no such file or folder: ") + input);
        inputs << QUrl::fromLocalFile(info.absoluteFilePath());
    }
    QByteArray cover;
    if (o.cover) {
        QFile file(*o.cover);
        if (!file.open(QIODevice::ReadOnly))
            return failure(QStringLiteral("cannot read the cover image ") + *o.cover + QStringLiteral(": ") + file.errorString());
        cover = file.readAll();
        if (QImage::fromData(cover).isNull())
            return failure(QStringLiteral("the cover ") + *o.cover + QStringLiteral(" is not an image Folivox can read"));
    }

    auto token = std::make_shared<ManualCancellationToken>();
    SignalScope signalScope(token);
    ProgressReporter progress = ProgressReporter::forConsole(o.quiet);
    const auto note = [&o](const QString& text) {
        if (!o.quiet)
            Console::err(text + u'\n');
    };

    // Import.
    auto ffmpeg = std::make_shared<FFmpegWrapper>();
    ImportCoordinator coordinator;
    if (o.sort)
        coordinator.trackSortMode = *o.sort;
    const QString importing = QStringLiteral("Importing files…");
    coordinator.onProgress = [&progress, &importing](int done, int total) {
        progress.update(importing, total > 0 ? double(done) / total : 0.0);
    };
    const ImportResult imported = coordinator.import(inputs, *token);
    if (token->isCancelled() || imported.status == ImportResult::Status::cancelled) {
        progress.finish();
        Console::err(QStringLiteral("folivox build: cancelled\n"));
        return ExitCancelled;
    }
    if (imported.status == ImportResult::Status::refused || imported.status == ImportResult::Status::busy) {
        progress.finish();
        return failure(imported.alert ? imported.alert->message : QStringLiteral("the files cannot be combined into one book"));
    }
    const std::vector<Track> tracks = coordinator.bookTracks();
    std::vector<Bookmark> bookmarks = coordinator.bookChapters();
    if (imported.report)
        note(imported.report->title + QStringLiteral(": ") + imported.report->message);
    if (tracks.empty() || imported.status == ImportResult::Status::nothingImported) {
        progress.finish();
        QStringList names;
        for (const auto& u : imported.outcome.unreadableFiles)
            names << QFileInfo(u.url.toLocalFile()).fileName() + QStringLiteral(" (")
                    + TrackLoadOutcome::reasonText(u.reason) + u')';
        return failure(names.isEmpty() ? QStringLiteral("no audio found in the inputs")
                                       : QStringLiteral("no audio could be read: ") + names.join(QStringLiteral(", ")));
    }

    // Chapters: a chapter file given or dropped with the audio, or one found beside it.
    std::optional<QString> chapterFile = o.chapters;
    if (!chapterFile && !imported.droppedSidecarFiles.isEmpty())
        chapterFile = imported.droppedSidecarFiles.first().toLocalFile();
    QString chapterSource = QStringLiteral("audio");
    if (chapterFile) {
        SidecarDiscoveryService discovery;
        QString text;
        try {
            text = discovery.readText(*chapterFile);
        } catch (const Error& e) {
            progress.finish();
            return failure(QStringLiteral("cannot read the chapter file ") + *chapterFile + QStringLiteral(": ") + e.description());
        }
        const auto result = SidecarParserRegistry::parse(text, QUrl::fromLocalFile(QFileInfo(*chapterFile).absoluteFilePath()));
        if (!result) {
            progress.finish();
            return failure(QStringLiteral("no chapters could be read from ") + *chapterFile);
        }
        // The same fitting `folivox chapters --audio` reports.
        const FittedSidecarChapters fitted = SidecarChapterFitter::fit(*result, SidecarChapterFitter::totalDurationMs(tracks));
        const QStringList notices = SidecarChapterFitter::notices(fitted, QFileInfo(*chapterFile).fileName());
        if (!fitted.isValid) {
            progress.finish();
            return failure(QStringLiteral("the chapters of %1 can't be applied: %2\n%3")
                               .arg(*chapterFile, fitted.firstProblem(), notices.join(u'\n')));
        }
        for (const QString& line : notices)
            note(line);
        bookmarks = SidecarChapterFitter::bookmarks(tracks, fitted.chapters);
        chapterSource = QFileInfo(*chapterFile).fileName();
    } else {
        QList<SidecarAudioInput> audio;
        for (const Track& t : tracks)
            audio.append({t.url, static_cast<std::int64_t>(std::llround(t.duration * 1000.0))});
        SidecarDiscoveryService discovery;
        const SidecarApplyPolicy::Decision decision = SidecarApplyPolicy::decide(discovery.discover(audio), o.noSidecar);
        Log::write(QStringLiteral("[Sidecar] ") + decision.reason);
        if (decision.shouldApply() && decision.match) {
            auto fromFile = SidecarChapterFitter::bookmarks(
                tracks, SidecarChapterFitter::fit(decision.match->parseResult, SidecarChapterFitter::totalDurationMs(tracks)).chapters);
            if (!fromFile.empty()) {
                bookmarks = std::move(fromFile);
                chapterSource = QFileInfo(decision.match->sidecarURL.toLocalFile()).fileName();
            }
        }
        if (decision.action != SidecarApplyPolicy::Action::ignore || decision.shouldApply())
            note(decision.reason);
    }

    // Tags, cover and the output.
    const QFileInfo firstInput(o.inputs.first());
    const QString fallbackTitle = firstInput.isDir() ? QDir(firstInput.absoluteFilePath()).dirName() : firstInput.completeBaseName();
    BookMetadata metadata = metadataFrom(o, tracks, fallbackTitle);
    if (cover.isEmpty())
        cover = embeddedCover(tracks.front().url.toLocalFile());
    if (!cover.isEmpty())
        metadata.coverImageData = cover;

    const QString output = outputPath(o.output, metadata.title, settings.outputFormat);
    if (settings.outputFormat != OutputFormat::m4b && QFileInfo(output).isFile())
        return failure(QStringLiteral("the output for %1 files must be a folder, and %2 is a file")
                           .arg(label(settings.outputFormat), output));

    // The build.
    DefaultExportService::Dependencies dependencies;
    dependencies.ffmpeg = ffmpeg;
    dependencies.metadataService = std::make_shared<DefaultMetadataWritingService>();
    dependencies.formatProbe = LibavAudioInspector::formatProbeFunction(ffmpeg);
    DefaultExportService service(dependencies);
    DefaultExportService::Request request;
    request.bookmarks = bookmarks;
    request.metadata = metadata;
    request.outputPath = output;
    request.settings = settings;
    request.allTracks = tracks;
    request.parallelJobs = o.jobs;
    if (o.logFile)
        request.logFile = QFileInfo(*o.logFile).absoluteFilePath();
    const ExportResult result = service.exportAndWait(request, token, [&progress](const ExportProgress& p) {
        progress.update(p.title, p.fraction);
    });
    progress.finish();

    if (result.cancelled() || SignalCancellation::cancelled()) {
        Console::err(QStringLiteral("folivox build: cancelled\n"));
        return ExitCancelled;
    }
    if (!result.succeeded()) {
        const ExportError error = result.error.value_or(ExportError::failedToWrite());
        const UserFacingError shown = UserFacingError::make(error, result.failureContext);
        Console::err(QStringLiteral("folivox build: ") + shown.fullText() + u'\n');
        if (!result.logFile.isEmpty() && !o.quiet)
            Console::err(QStringLiteral("The build log is at ") + result.logFile + u'\n');
        return ExitFailure;
    }

    const ExportOutcome& made = *result.outcome;
    double length = 0;
    for (const ExportedChapter& c : made.chapters)
        length += c.duration;
    if (o.json) {
        QJsonObject doc = made.toJson();
        doc.insert(QStringLiteral("title"), metadata.title);
        doc.insert(QStringLiteral("tracks"), static_cast<int>(tracks.size()));
        doc.insert(QStringLiteral("chapterSource"), chapterSource);
        doc.insert(QStringLiteral("duration"), length);
        doc.insert(QStringLiteral("settings"), settings.toJson());
        doc.insert(QStringLiteral("logFile"), result.logFile);
        Console::out(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Indented)));
    } else {
        QString text = QStringLiteral("Built %1\n  %2 chapters, %3, strategy %4")
                           .arg(made.outputPath)
                           .arg(made.chapters.size())
                           .arg(clockText(length), enumName(made.strategy));
        if (!made.reasons.isEmpty())
            text += QStringLiteral(" (") + made.reasons.join(QStringLiteral("; ")) + u')';
        text += u'\n';
        if (made.outputFiles.size() > 1) {
            for (const QString& f : made.outputFiles)
                text += QStringLiteral("  ") + f + u'\n';
        }
        Console::out(text);
    }
    return ExitSuccess;
}

} // namespace folivox::cli
