#include "cli/InspectCommand.h"

#include "cli/Console.h"
#include "cli/SignalCancellation.h"
#include "container/mp3/MP3IntegrityError.h"
#include "core/json/JsonSeconds.h"
#include "container/mp3/MP3IntegrityService.h"
#include "process/FFmpegWrapper.h"
#include "import/probe/FFprobeInspector.h"
#include "import/probe/InspectionError.h"
#include "import/probe/LibavAudioInspector.h"
#include "import/TrackLoadOutcome.h"
#include "platform/Log.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <memory>
#include <optional>

namespace folivox::cli {

namespace {

struct Inspection {
    QString path;
    std::optional<MediaProbe> probe;
    std::optional<AudioSourceFormat> format;
    std::optional<TrackLoadOutcome::FailureReason> reason;
    QString detail;
    std::optional<MP3IntegrityReport> integrity; // MP3s only
};

// The profile shown for a format: the AAC family by its codec name (after
// the bitrate rule and ffmpeg's view), anything else as libavcodec names it.
QString profileOf(const AudioSourceFormat& f, const MediaProbe& p)
{
    if (f.codec == u"aac-lc")
        return QStringLiteral("LC");
    if (f.codec == u"he-aac")
        return QStringLiteral("HE-AAC");
    if (f.codec == u"he-aacv2")
        return QStringLiteral("HE-AACv2");
    if (f.codec == u"xhe-aac")
        return QStringLiteral("xHE-AAC");
    return p.profileName;
}

QString coverType(const QByteArray& bytes)
{
    if (bytes.startsWith("\x89PNG"))
        return QStringLiteral("image/png");
    if (bytes.startsWith("\xFF\xD8"))
        return QStringLiteral("image/jpeg");
    if (bytes.startsWith("BM"))
        return QStringLiteral("image/bmp");
    return QStringLiteral("application/octet-stream");
}

QString timestamp(double seconds)
{
    const qint64 ms = static_cast<qint64>(seconds * 1000.0 + 0.5);
    return QString::asprintf("%02lld:%02lld:%02lld.%03lld", ms / 3600000, (ms / 60000) % 60, (ms / 1000) % 60,
                             ms % 1000);
}

Inspection inspectOne(const QString& path, const LibavAudioInspector& inspector, const FFprobeInspector& ffprobe)
{
    using Reason = TrackLoadOutcome::FailureReason;
    Inspection r;
    r.path = path;
    const QFileInfo info(path);
    if (!info.exists()) {
        r.reason = Reason::other;
        r.detail = QStringLiteral("No such file: ") + path;
        return r;
    }
    try {
        r.probe = inspector.probe(path);
        r.format = inspector.inspect(*r.probe);
    } catch (const InspectionError& e) {
        r.detail = e.description();
        switch (e.kind()) {
        case InspectionError::Kind::timeout:
            r.reason = Reason::timeout;
            break;
        case InspectionError::Kind::noStreamDescription:
            r.reason = Reason::zeroDuration;
            break;
        case InspectionError::Kind::noFormatDescription:
        case InspectionError::Kind::noAudioTrack:
            r.reason = info.size() == 0 ? Reason::zeroDuration : Reason::noAudioFound;
            break;
        default:
            r.reason = Reason::other;
            break;
        }
        return r;
    } catch (const std::exception& e) {
        r.reason = Reason::other;
        r.detail = QString::fromUtf8(e.what());
        return r;
    }
    if (r.format->duration <= 0) {
        // The container does not say; ffmpeg may know.
        try {
            r.format->duration = ffprobe.inspect(path).duration;
        } catch (const std::exception&) {
        }
        if (r.format->duration <= 0) {
            r.reason = Reason::zeroDuration;
            r.detail = QStringLiteral("Duration is zero");
        }
    }
    return r;
}

// Keys the container writes for itself, which say nothing about the book.
bool isContainerInternal(const QString& key)
{
    static const QStringList internal{QStringLiteral("handler_name"), QStringLiteral("vendor_id"),
                                      QStringLiteral("major_brand"),  QStringLiteral("minor_version"),
                                      QStringLiteral("compatible_brands"), QStringLiteral("itunsmpb"),
                                      QStringLiteral("itunnorm")};
    return internal.contains(key.toLower());
}

QJsonObject toJson(const Inspection& r)
{
    QJsonObject o;
    o.insert(QStringLiteral("path"), r.path);
    o.insert(QStringLiteral("readable"), !r.reason.has_value());
    if (r.reason) {
        o.insert(QStringLiteral("reason"), TrackLoadOutcome::reasonName(*r.reason));
        o.insert(QStringLiteral("message"), TrackLoadOutcome::reasonText(*r.reason));
        if (!r.detail.isEmpty())
            o.insert(QStringLiteral("detail"), r.detail);
        return o;
    }
    const MediaProbe& p = *r.probe;
    const AudioSourceFormat& f = *r.format;
    QJsonObject format;
    format.insert(QStringLiteral("codec"), f.codec);
    format.insert(QStringLiteral("codecLongName"), f.codecLongName);
    const QString profile = profileOf(f, p);
    if (!profile.isEmpty())
        format.insert(QStringLiteral("profile"), profile);
    format.insert(QStringLiteral("sampleRate"), f.sampleRate);
    format.insert(QStringLiteral("channels"), f.channels);
    if (f.bitrate)
        format.insert(QStringLiteral("bitrate"), *f.bitrate);
    format.insert(QStringLiteral("duration"), JsonSeconds::value(f.duration));
    format.insert(QStringLiteral("container"), p.container);
    o.insert(QStringLiteral("format"), format);

    QJsonObject tags;
    for (auto it = p.tags.constBegin(); it != p.tags.constEnd(); ++it) {
        if (!isContainerInternal(it.key()))
            tags.insert(it.key(), it.value());
    }
    o.insert(QStringLiteral("tags"), tags);

    QJsonArray chapters;
    for (const MediaChapterMark& m : p.chapters) {
        QJsonObject c;
        c.insert(QStringLiteral("title"), m.title);
        c.insert(QStringLiteral("start"), JsonSeconds::value(m.start));
        c.insert(QStringLiteral("end"), JsonSeconds::value(m.end));
        chapters.append(c);
    }
    o.insert(QStringLiteral("chapters"), chapters);

    QJsonObject cover;
    cover.insert(QStringLiteral("present"), !p.coverImage.isEmpty());
    if (!p.coverImage.isEmpty()) {
        cover.insert(QStringLiteral("mimeType"), coverType(p.coverImage));
        cover.insert(QStringLiteral("bytes"), static_cast<qint64>(p.coverImage.size()));
    }
    o.insert(QStringLiteral("cover"), cover);
    if (r.integrity) {
        QJsonObject integrity;
        integrity.insert(QStringLiteral("verdict"), enumName(r.integrity->verdict));
        integrity.insert(QStringLiteral("holes"), static_cast<int>(r.integrity->holes.size()));
        integrity.insert(QStringLiteral("missingSeconds"), JsonSeconds::value(r.integrity->missingSeconds()));
        integrity.insert(QStringLiteral("trueDuration"), JsonSeconds::value(r.integrity->trueDuration));
        o.insert(QStringLiteral("integrity"), integrity);
    }
    return o;
}

QString toText(const Inspection& r)
{
    const MediaProbe& p = *r.probe;
    const AudioSourceFormat& f = *r.format;
    QString t = r.path + u'\n';
    const QString profile = profileOf(f, p);
    t += QStringLiteral("  Codec:       %1 — %2%3\n")
             .arg(f.codec, f.codecLongName, profile.isEmpty() ? QString() : QStringLiteral(" (profile ") + profile + u')');
    t += QStringLiteral("  Sample rate: %1 Hz\n").arg(f.sampleRate);
    t += QStringLiteral("  Channels:    %1\n").arg(f.channels);
    t += QStringLiteral("  Bitrate:     %1\n")
             .arg(f.bitrate ? QString::number(*f.bitrate / 1000) + QStringLiteral(" kb/s") : QStringLiteral("unknown"));
    t += QStringLiteral("  Duration:    %1 (%2 s)\n").arg(timestamp(f.duration), QString::asprintf("%.3f", f.duration));
    t += QStringLiteral("  Container:   %1\n").arg(p.container);
    QString tagLines;
    for (auto it = p.tags.constBegin(); it != p.tags.constEnd(); ++it) {
        if (!isContainerInternal(it.key()))
            tagLines += QStringLiteral("    %1: %2\n").arg(it.key(), QString(it.value()).replace(u'\n', QStringLiteral(" / ")));
    }
    t += tagLines.isEmpty() ? QStringLiteral("  Tags:        none\n") : QStringLiteral("  Tags:\n") + tagLines;
    if (p.chapters.isEmpty()) {
        t += QStringLiteral("  Chapters:    none\n");
    } else {
        t += QStringLiteral("  Chapters:    %1\n").arg(p.chapters.size());
        for (int i = 0; i < p.chapters.size(); ++i)
            t += QStringLiteral("    %1. %2  %3\n").arg(QString::number(i + 1), timestamp(p.chapters[i].start), p.chapters[i].title);
    }
    t += p.coverImage.isEmpty()
        ? QStringLiteral("  Cover:       no\n")
        : QStringLiteral("  Cover:       yes (%1, %2 bytes)\n").arg(coverType(p.coverImage)).arg(p.coverImage.size());
    if (r.integrity) {
        t += QStringLiteral("  Integrity:   ") + enumName(r.integrity->verdict);
        if (!r.integrity->holes.empty())
            t += QStringLiteral(" (%1 holes, %2 s missing; see folivox check)")
                     .arg(r.integrity->holes.size())
                     .arg(r.integrity->missingSeconds(), 0, 'f', 3);
        t += u'\n';
    }
    return t;
}

} // namespace

QString InspectCommand::name() const
{
    return QStringLiteral("inspect");
}

QString InspectCommand::summary() const
{
    return QStringLiteral("show the format, tags and chapters of audio files");
}

QString InspectCommand::usage() const
{
    return QStringLiteral("Usage: folivox inspect [--json] [-v] FILE...\n\n"
                          "Shows each file's audio format (codec, profile, sample rate, channels, bitrate,\n"
                          "duration, container), its tags, embedded chapters and whether it has a cover;\n"
                          "for an MP3 also the verdict of its frame walk (see folivox check).\n"
                          "Files that can't be read are reported with their reason; the command then\n"
                          "exits with status 1.\n\n"
                          "Options:\n"
                          "  --json         print one JSON document on stdout\n"
                          "  -v, --verbose  echo the diagnostic log on stderr\n"
                          "  -h, --help     show this text\n");
}

int InspectCommand::run(const QStringList& args)
{
    QCommandLineParser parser;
    const QCommandLineOption json(QStringLiteral("json"));
    const QCommandLineOption verbose(QStringList{QStringLiteral("v"), QStringLiteral("verbose")});
    parser.addOption(json);
    parser.addOption(verbose);
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("audio files"), QStringLiteral("FILE..."));
    if (!parser.parse(QStringList{QStringLiteral("folivox inspect")} + args)) {
        Console::err(QStringLiteral("folivox inspect: ") + parser.errorText() + QStringLiteral("\n\n") + usage());
        return ExitUsage;
    }
    const QStringList files = parser.positionalArguments();
    if (files.isEmpty()) {
        Console::err(QStringLiteral("folivox inspect: no file given\n\n") + usage());
        return ExitUsage;
    }
    if (parser.isSet(verbose))
        Log::setVerbose(true);

    auto ffmpeg = std::make_shared<FFmpegWrapper>();
    auto ffprobe = std::make_shared<FFprobeInspector>(ffmpeg);
    const LibavAudioInspector inspector([ffprobe](const QString& p) { return ffprobe->inspect(p); });

    QList<Inspection> all;
    QList<Inspection> readable;
    QList<Inspection> unreadable;
    for (const QString& file : files) {
        if (SignalCancellation::cancelled())
            return ExitCancelled;
        Inspection r = inspectOne(QFileInfo(file).absoluteFilePath(), inspector, *ffprobe);
        r.path = file;
        if (!r.reason && r.format && r.format->codec == u"mp3") {
            // The frame walk's verdict; a file it cannot read keeps its other facts.
            try {
                r.integrity = MP3IntegrityService::scanFile(file, [] { return SignalCancellation::cancelled(); });
                // The frames say how long the file plays; the container's
                // figure is a byte-count estimate, or a header's frame count
                // that a cut file no longer has.
                if (const auto seconds = r.integrity ? r.integrity->playingSeconds() : std::nullopt)
                    r.format->duration = *seconds;
            } catch (const MP3IntegrityError& e) {
                Log::write(QStringLiteral("[Inspect] ") + e.description());
            }
        }
        all.append(r);
        (r.reason ? unreadable : readable).append(r);
    }
    if (SignalCancellation::cancelled())
        return ExitCancelled;

    if (parser.isSet(json)) {
        QJsonArray list;
        for (const Inspection& r : all)
            list.append(toJson(r));
        QJsonObject doc;
        doc.insert(QStringLiteral("files"), list);
        Console::out(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Indented)));
    } else {
        for (int i = 0; i < readable.size(); ++i)
            Console::out((i > 0 ? QStringLiteral("\n") : QString()) + toText(readable[i]));
        for (const Inspection& r : unreadable)
            Console::err(QStringLiteral("folivox inspect: %1: %2 (%3)\n")
                             .arg(r.path, TrackLoadOutcome::reasonText(*r.reason), r.detail));
    }
    return unreadable.isEmpty() ? ExitSuccess : ExitFailure;
}

} // namespace folivox::cli
