#include "cli/ChaptersCommand.h"

#include "core/json/JsonSeconds.h"

#include "cli/Console.h"
#include "container/mp3/MP3IntegrityService.h"
#include "import/probe/LibavAudioInspector.h"
#include "platform/Error.h"
#include "platform/Log.h"
#include "sidecars/apply/SidecarChapterFitter.h"
#include "sidecars/discovery/SidecarDiscoveryService.h"
#include "sidecars/discovery/SidecarMatchingService.h"
#include "sidecars/parsers/SidecarParserRegistry.h"
#include "sidecars/apply/SidecarValidationService.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

namespace folivox::cli {

namespace {

QString severityLabel(SidecarWarningSeverity s)
{
    return sidecarWarningSeverityRawValue(s);
}

QJsonArray warningsJson(const QList<SidecarWarning>& warnings)
{
    QJsonArray out;
    for (const auto& w : warnings) {
        QJsonObject o;
        o.insert(QStringLiteral("severity"), severityLabel(w.severity));
        o.insert(QStringLiteral("message"), w.message);
        if (w.lineNumber)
            o.insert(QStringLiteral("lineNumber"), *w.lineNumber);
        out.append(o);
    }
    return out;
}

QJsonArray chaptersJson(const QList<NormalizedChapter>& chapters)
{
    QJsonArray out;
    for (const auto& c : chapters) {
        QJsonObject o;
        o.insert(QStringLiteral("title"), c.title);
        o.insert(QStringLiteral("start"), JsonSeconds::value(static_cast<double>(c.startMs) / 1000.0));
        if (c.endMs)
            o.insert(QStringLiteral("end"), JsonSeconds::value(static_cast<double>(*c.endMs) / 1000.0));
        out.append(o);
    }
    return out;
}

QString warningsText(const QList<SidecarWarning>& warnings)
{
    QString out;
    for (const auto& w : warnings) {
        out += QStringLiteral("  %1").arg(severityLabel(w.severity));
        if (w.lineNumber)
            out += QStringLiteral(" (line %1)").arg(*w.lineNumber);
        out += QStringLiteral(": ") + w.message + u'\n';
    }
    return out;
}

QString chaptersText(const QList<NormalizedChapter>& chapters)
{
    QString out;
    const int width = static_cast<int>(QString::number(chapters.size()).size());
    const bool anyEnd = std::any_of(chapters.begin(), chapters.end(), [](const auto& c) { return c.endMs.has_value(); });
    for (qsizetype i = 0; i < chapters.size(); ++i) {
        const auto& c = chapters[i];
        out += QStringLiteral("  %1  %2").arg(i + 1, width).arg(SidecarValidationService::formatTime(c.startMs));
        if (anyEnd)
            out += QStringLiteral(" - %1").arg(c.endMs ? SidecarValidationService::formatTime(*c.endMs) : QString(), -11);
        out += QStringLiteral("  ") + c.title + u'\n';
    }
    return out;
}

// The chapters a build applies, in seconds, as `folivox build --json` lists them.
QJsonArray appliedJson(const FittedSidecarChapters& fitted)
{
    QJsonArray out;
    for (const auto& c : fitted.chapters) {
        QJsonObject o;
        o.insert(QStringLiteral("title"), c.title);
        o.insert(QStringLiteral("start"), JsonSeconds::value(static_cast<double>(c.startMs) / 1000.0));
        if (c.endMs)
            o.insert(QStringLiteral("duration"), JsonSeconds::value(static_cast<double>(*c.endMs - c.startMs) / 1000.0));
        out.append(o);
    }
    return out;
}

QString appliedText(const FittedSidecarChapters& fitted)
{
    QString out;
    const int width = static_cast<int>(QString::number(fitted.chapters.size()).size());
    for (qsizetype i = 0; i < fitted.chapters.size(); ++i) {
        const auto& c = fitted.chapters[i];
        out += QStringLiteral("  %1  %2").arg(i + 1, width).arg(SidecarValidationService::formatTime(c.startMs));
        if (c.endMs)
            out += QStringLiteral(" - %1").arg(SidecarValidationService::formatTime(*c.endMs), -11);
        out += QStringLiteral("  ") + c.title + u'\n';
    }
    return out;
}

} // namespace

ChaptersCommand::ChaptersCommand(DurationProbe probe) : probe_(std::move(probe)) {}

QString ChaptersCommand::usage() const
{
    return QStringLiteral(
        "Usage: folivox chapters [--json] [-v] FILE [--audio AUDIO...]\n\n"
        "Parses a chapter file (cue sheet, FFmetadata, Matroska XML or simple chapters,\n"
        "mp4chaps text, Audacity labels, plain text) and shows its format, chapters and\n"
        "warnings with their severity and line. With audio files, the chapters are also\n"
        "validated against the audio's total length and scored against the audio.\n\n"
        "Options:\n"
        "  --audio AUDIO  an audio file the chapters belong to (repeatable; further\n"
        "                 files may follow it)\n"
        "  --json         print one JSON document on stdout\n"
        "  -v, --verbose  echo the diagnostic log on stderr\n"
        "  -h, --help     show this text\n");
}

std::optional<std::int64_t> ChaptersCommand::audioDuration(const QString& path)
{
    // Read in process with libavformat: no child process per audio file.
    try {
        const MediaProbe probe = LibavAudioInspector().probe(path);
        double seconds = probe.duration;
        if (probe.codecName == u"mp3") {
            // The frames say how long an MP3 plays; the container's figure
            // may be a byte-count estimate.
            if (const auto report = MP3IntegrityService::scanFile(path); report && report->playingSeconds())
                seconds = *report->playingSeconds();
        }
        if (!std::isfinite(seconds) || seconds <= 0)
            return std::nullopt;
        return static_cast<std::int64_t>(std::llround(seconds * 1000.0));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

int ChaptersCommand::run(const QStringList& args)
{
    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption jsonOption(QStringLiteral("json"));
    const QCommandLineOption audioOption(QStringLiteral("audio"), QString(), QStringLiteral("AUDIO"));
    const QCommandLineOption verboseOption(QStringList{QStringLiteral("v"), QStringLiteral("verbose")});
    parser.addOption(jsonOption);
    parser.addOption(audioOption);
    parser.addOption(verboseOption);
    if (!parser.parse(QStringList{QStringLiteral("folivox chapters")} + args)) {
        Console::err(QStringLiteral("folivox chapters: ") + parser.errorText() + QStringLiteral("\n\n") + usage());
        return ExitUsage;
    }
    QStringList positional = parser.positionalArguments();
    QStringList audioPaths = parser.values(audioOption);
    if (positional.isEmpty()) {
        Console::err(QStringLiteral("folivox chapters: no chapter file given\n\n") + usage());
        return ExitUsage;
    }
    const QString file = positional.takeFirst();
    if (!positional.isEmpty()) {
        if (audioPaths.isEmpty()) {
            Console::err(QStringLiteral("folivox chapters: one chapter file at a time; give audio files with --audio\n"));
            return ExitUsage;
        }
        audioPaths += positional;
    }
    const bool json = parser.isSet(jsonOption);
    if (parser.isSet(verboseOption))
        Log::setVerbose(true);

    SidecarDiscoveryService discovery;
    QString text;
    try {
        text = discovery.readText(file);
    } catch (const Error& e) {
        Console::err(QStringLiteral("folivox chapters: ") + e.description() + u'\n');
        return ExitFailure;
    }
    const QUrl url = QUrl::fromLocalFile(QFileInfo(file).absoluteFilePath());
    const auto selection = SidecarParserRegistry::select(text, url);
    if (!selection.parser) {
        Console::err(QStringLiteral("folivox chapters: %1: not a chapter file in any known format\n").arg(file));
        return ExitFailure;
    }
    const SidecarParseResult parsed = selection.parser->parse(text, url);

    // Audio: every file must exist; an unreadable length leaves the total unknown.
    QList<QUrl> audioURLs;
    std::int64_t totalMs = 0;
    bool totalKnown = !audioPaths.isEmpty();
    for (const QString& a : audioPaths) {
        const QFileInfo fi(a);
        if (!fi.isFile()) {
            Console::err(QStringLiteral("folivox chapters: audio file not found: %1\n").arg(a));
            return ExitFailure;
        }
        audioURLs << QUrl::fromLocalFile(fi.absoluteFilePath());
        const auto d = probe_ ? probe_(fi.absoluteFilePath()) : std::nullopt;
        if (!d) {
            totalKnown = false;
            Console::err(QStringLiteral("folivox chapters: could not read the length of %1; "
                                        "chapters are not checked against it\n")
                             .arg(a));
        } else {
            totalMs += *d;
        }
    }
    if (!totalKnown)
        totalMs = 0;

    std::optional<SidecarValidationResult> validation;
    std::optional<FittedSidecarChapters> fitted;
    std::optional<SidecarMatchResult> match;
    if (!audioURLs.isEmpty()) {
        validation = SidecarValidationService().validate(parsed.format, parsed.chapters, totalMs);
        // What a build with this file and this audio applies.
        fitted = SidecarChapterFitter::fit(parsed, totalMs);
        match = SidecarMatchingService().bestMatch(parsed, validation->chapters, audioURLs, totalMs);
    }

    if (json) {
        QJsonObject o;
        o.insert(QStringLiteral("file"), QFileInfo(file).absoluteFilePath());
        o.insert(QStringLiteral("format"), sidecarFormatRawValue(parsed.format));
        o.insert(QStringLiteral("formatName"), sidecarFormatDisplayName(parsed.format));
        o.insert(QStringLiteral("formatConfidence"), selection.score);
        o.insert(QStringLiteral("chapters"), chaptersJson(parsed.chapters));
        o.insert(QStringLiteral("warnings"), warningsJson(parsed.warnings));
        if (parsed.referencedAudioFile)
            o.insert(QStringLiteral("referencedAudioFile"), *parsed.referencedAudioFile);
        if (validation) {
            QJsonObject audio;
            QJsonArray files;
            for (const QUrl& u : audioURLs)
                files.append(u.toLocalFile());
            audio.insert(QStringLiteral("files"), files);
            if (totalKnown)
                audio.insert(QStringLiteral("duration"), JsonSeconds::value(static_cast<double>(totalMs) / 1000.0));
            o.insert(QStringLiteral("audio"), audio);
            QJsonObject v;
            v.insert(QStringLiteral("isValid"), validation->isValid);
            v.insert(QStringLiteral("chapters"), chaptersJson(validation->chapters));
            v.insert(QStringLiteral("warnings"), warningsJson(validation->warnings));
            o.insert(QStringLiteral("validation"), v);
            o.insert(QStringLiteral("applied"), appliedJson(*fitted));
            QJsonObject m;
            if (match->audioURL)
                m.insert(QStringLiteral("audio"), match->audioURL->toLocalFile());
            m.insert(QStringLiteral("score"), match->score);
            m.insert(QStringLiteral("layers"), QJsonArray::fromStringList(match->matchLayers.names()));
            m.insert(QStringLiteral("confidence"), sidecarMatchConfidenceRawValue(match->confidence));
            o.insert(QStringLiteral("match"), m);
        }
        Console::out(QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Indented)));
    } else {
        QString out = QStringLiteral("%1: %2, %3 chapter(s)\n")
                          .arg(QFileInfo(file).fileName(), sidecarFormatDisplayName(parsed.format))
                          .arg(parsed.chapters.size());
        if (parsed.referencedAudioFile)
            out += QStringLiteral("Names audio file: %1\n").arg(*parsed.referencedAudioFile);
        out += chaptersText(parsed.chapters);
        if (!parsed.warnings.isEmpty())
            out += QStringLiteral("Warnings:\n") + warningsText(parsed.warnings);
        if (validation) {
            out += QStringLiteral("Audio: %1 file(s), %2\n")
                       .arg(audioURLs.size())
                       .arg(totalKnown ? SidecarValidationService::formatTime(totalMs) : QStringLiteral("length unknown"));
            out += QStringLiteral("Validation: %1, %2 chapter(s)\n")
                       .arg(validation->isValid ? QStringLiteral("valid") : QStringLiteral("not valid"))
                       .arg(validation->chapters.size());
            out += warningsText(validation->warnings);
            if (fitted->isValid)
                out += QStringLiteral("Applied to the audio:\n") + appliedText(*fitted);
            const QStringList layers = match->matchLayers.names();
            out += QStringLiteral("Match: score %1 (%2), confidence %3")
                       .arg(match->score)
                       .arg(layers.isEmpty() ? QStringLiteral("no evidence") : layers.join(QStringLiteral(", ")),
                            sidecarMatchConfidenceRawValue(match->confidence));
            if (match->audioURL)
                out += QStringLiteral(", audio %1").arg(QFileInfo(match->audioURL->toLocalFile()).fileName());
            out += u'\n';
        }
        Console::out(out);
    }

    if (parsed.chapters.isEmpty()) {
        Console::err(QStringLiteral("folivox chapters: no chapters found in %1\n").arg(file));
        return ExitFailure;
    }
    if (fitted && !fitted->isValid) {
        const QString why = fitted->firstProblem();
        Console::err(QStringLiteral("folivox chapters: the chapters of %1 do not fit the audio: %2\n").arg(file, why));
        return ExitFailure;
    }
    return ExitSuccess;
}

} // namespace folivox::cli
