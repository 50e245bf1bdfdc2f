#include "cli/CheckCommand.h"

#include "cli/Console.h"
#include "cli/ProgressReporter.h"
#include "cli/SignalCancellation.h"
#include "container/mp3/MP3IntegrityError.h"
#include "container/mp3/MP3IntegrityService.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "import/repair/FileRepairService.h"
#include "import/TrackOrdering.h"
#include "platform/Log.h"

#include <QCommandLineParser>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <memory>
#include <optional>
#include <set>

namespace folivox::cli {

namespace {

struct RepairResult {
    QString path;
    std::optional<FileRepairService::Method> method;
    qint64 bytes = 0;
    std::vector<MP3ReencodedRegion> regions;
    QString error; // empty on success
};

struct Checked {
    QString path; // as the user named it (or as found in a folder)
    std::optional<MP3IntegrityReport> report;
    QString error; // could not be checked
    std::optional<RepairResult> repair;

    bool couldNotCheck() const { return !report || report->verdict == MP3IntegrityVerdict::unknown; }
};

QString clock(double seconds)
{
    const qint64 ms = qint64(seconds * 1000.0 + 0.5);
    return QString::asprintf("%02lld:%02lld:%02lld.%03lld", ms / 3600000, (ms / 60000) % 60, (ms / 1000) % 60,
                             ms % 1000);
}

QString secondsText(double s)
{
    return QString::asprintf("%.3f s", s);
}

// Files as given, folders as every *.mp3 below them in natural order.
QStringList expand(const QStringList& inputs, QList<Checked>& missing)
{
    QStringList files;
    const QCollator collator = TrackOrdering::makeCollator();
    for (const QString& input : inputs) {
        const QFileInfo info(input);
        if (info.isDir()) {
            QStringList found;
            QDirIterator it(input, {QStringLiteral("*.mp3"), QStringLiteral("*.MP3"), QStringLiteral("*.Mp3")},
                            QDir::Files, QDirIterator::Subdirectories);
            while (it.hasNext())
                found << it.next();
            found.removeDuplicates();
            std::sort(found.begin(), found.end(),
                      [&collator](const QString& a, const QString& b) { return collator.compare(a, b) < 0; });
            if (found.isEmpty()) {
                Checked c;
                c.path = input;
                c.error = QStringLiteral("no MP3 files in this folder");
                missing << c;
            }
            files << found;
        } else {
            files << input;
        }
    }
    return files;
}

QJsonObject toJson(const Checked& c)
{
    QJsonObject o;
    o.insert(QStringLiteral("path"), c.path);
    if (!c.report) {
        o.insert(QStringLiteral("error"), c.error);
        return o;
    }
    const MP3IntegrityReport& r = *c.report;
    o.insert(QStringLiteral("verdict"), enumName(r.verdict));
    o.insert(QStringLiteral("fileSize"), r.fileSize);
    o.insert(QStringLiteral("validFrameCount"), r.validFrameCount);
    o.insert(QStringLiteral("trueDuration"), r.trueDuration);
    if (r.claimedDuration) {
        o.insert(QStringLiteral("claimedDuration"), *r.claimedDuration);
        o.insert(QStringLiteral("claimedBy"), r.claimedBy.value_or(QString()));
    }
    if (r.sampleRate)
        o.insert(QStringLiteral("sampleRate"), *r.sampleRate);
    if (r.bitrateKbps)
        o.insert(QStringLiteral("bitrateKbps"), *r.bitrateKbps);
    QJsonArray holes;
    for (const MP3IntegrityHole& h : r.holes)
        holes.append(h.toJson());
    o.insert(QStringLiteral("holes"), holes);
    o.insert(QStringLiteral("missingSeconds"), r.missingSeconds());
    o.insert(QStringLiteral("trailingBytes"), r.trailingBytes);
    if (c.repair) {
        QJsonObject rep;
        rep.insert(QStringLiteral("path"), c.repair->path);
        if (c.repair->error.isEmpty()) {
            rep.insert(QStringLiteral("method"), FileRepairService::methodName(*c.repair->method));
            rep.insert(QStringLiteral("bytes"), c.repair->bytes);
            if (c.repair->method == FileRepairService::Method::partialReencode) {
                QJsonArray regions;
                for (const MP3ReencodedRegion& region : c.repair->regions)
                    regions.append(region.toJson());
                rep.insert(QStringLiteral("reencodedRegions"), regions);
            }
        } else {
            rep.insert(QStringLiteral("error"), c.repair->error);
        }
        o.insert(QStringLiteral("repair"), rep);
    }
    return o;
}

QString toText(const Checked& c)
{
    if (!c.report)
        return c.path + QStringLiteral(": could not be checked — ") + c.error + u'\n';
    const MP3IntegrityReport& r = *c.report;
    QString t = c.path + QStringLiteral(": ") + enumName(r.verdict);
    if (r.verdict == MP3IntegrityVerdict::unknown)
        t += QStringLiteral(" — no MP3 frames found");
    else if (!r.holes.empty())
        t += QStringLiteral(" — %1 hole%2, %3 missing")
                 .arg(r.holes.size())
                 .arg(r.holes.size() == 1 ? "" : "s")
                 .arg(secondsText(r.missingSeconds()));
    t += u'\n';
    if (r.verdict != MP3IntegrityVerdict::unknown) {
        t += QStringLiteral("  duration %1").arg(clock(r.trueDuration));
        if (r.claimedDuration) {
            const double diff = *r.claimedDuration - r.trueDuration;
            t += QStringLiteral(", %1 claims %2").arg(r.claimedBy.value_or(QString()), clock(*r.claimedDuration));
            if (std::abs(diff) >= 0.0005)
                t += QStringLiteral(" (%1 %2)").arg(secondsText(std::abs(diff)), diff > 0 ? "more" : "less");
        }
        t += u'\n';
    }
    int n = 0;
    for (const MP3IntegrityHole& h : r.holes)
        t += QStringLiteral("  hole %1: byte %2, %3 bytes, at %4, %5 missing\n")
                 .arg(++n)
                 .arg(h.byteOffset)
                 .arg(h.byteLength)
                 .arg(clock(h.startTime), secondsText(h.missingSeconds));
    if (r.trailingBytes > 0)
        t += QStringLiteral("  trailing bytes: %1\n").arg(r.trailingBytes);
    if (c.repair) {
        if (c.repair->error.isEmpty()) {
            const auto method = *c.repair->method;
            const QString how = method == FileRepairService::Method::frameCopy ? QStringLiteral("frames copied")
                : method == FileRepairService::Method::partialReencode
                ? QStringLiteral("frames copied, %1 stretch%2 re-encoded")
                      .arg(c.repair->regions.size())
                      .arg(c.repair->regions.size() == 1 ? "" : "es")
                : QStringLiteral("re-encoded");
            t += QStringLiteral("  repaired copy: %1 (%2, %3 bytes)\n").arg(c.repair->path, how).arg(c.repair->bytes);
            for (const MP3ReencodedRegion& region : c.repair->regions)
                t += QStringLiteral("    re-encoded %1 to %2: frames %3 to %4, %5 did not decode\n")
                         .arg(clock(region.startTime), clock(region.startTime + region.duration))
                         .arg(region.firstFrame)
                         .arg(region.firstFrame + region.frameCount - 1)
                         .arg(region.undecodableFrames);
        } else
            t += QStringLiteral("  repair failed: %1\n").arg(c.repair->error);
    }
    return t;
}

} // namespace

QString CheckCommand::name() const
{
    return QStringLiteral("check");
}

QString CheckCommand::summary() const
{
    return QStringLiteral("check MP3 files for damage");
}

QString CheckCommand::usage() const
{
    return QStringLiteral(
        "Usage: folivox check [--json] [--repair DIR] [-f] [-q] [-v] FILE|FOLDER...\n\n"
        "Walks the frames of each MP3 (folders: every .mp3 below them) and reports its\n"
        "verdict (clean, damaged, unknown), its true duration against the duration its\n"
        "Xing/VBRI header or TLEN tag claims, every hole (byte offset, length, time,\n"
        "missing seconds) and bytes after the last frame; then a summary line.\n\n"
        "Options:\n"
        "  --repair DIR  write a clean copy of every file with holes into DIR (made if\n"
        "                missing): its valid frames as they are, and only the\n"
        "                stretches whose frames do not decode re-encoded, frame for\n"
        "                frame; the files themselves are never changed\n"
        "  -f, --force   replace a file of the same name in DIR\n"
        "  --json        print one JSON document on stdout\n"
        "  -q, --quiet   no progress on stderr\n"
        "  -v, --verbose echo the diagnostic log on stderr\n"
        "  -h, --help    show this text\n\n"
        "Exit status: 0 all clean; 3 damage found (all files checked, all repairs\n"
        "written); 1 a file could not be checked or a repair failed; 2 usage error;\n"
        "130 cancelled.\n");
}

int CheckCommand::run(const QStringList& args)
{
    QCommandLineParser parser;
    const QCommandLineOption json(QStringLiteral("json"));
    const QCommandLineOption repair(QStringLiteral("repair"), QString(), QStringLiteral("DIR"));
    const QCommandLineOption force(QStringList{QStringLiteral("f"), QStringLiteral("force")});
    const QCommandLineOption quiet(QStringList{QStringLiteral("q"), QStringLiteral("quiet")});
    const QCommandLineOption verbose(QStringList{QStringLiteral("v"), QStringLiteral("verbose")});
    parser.addOptions({json, repair, force, quiet, verbose});
    if (!parser.parse(QStringList{QStringLiteral("folivox check")} + args)) {
        Console::err(QStringLiteral("folivox check: ") + parser.errorText() + QStringLiteral("\n\n") + usage());
        return ExitUsage;
    }
    const QStringList inputs = parser.positionalArguments();
    if (inputs.isEmpty()) {
        Console::err(QStringLiteral("folivox check: no file or folder given\n\n") + usage());
        return ExitUsage;
    }
    if (parser.isSet(verbose))
        Log::setVerbose(true);
    const bool asJson = parser.isSet(json);

    std::optional<QString> repairDir;
    if (parser.isSet(repair)) {
        const QString dir = parser.value(repair);
        if (QFileInfo(dir).exists() && !QFileInfo(dir).isDir()) {
            Console::err(QStringLiteral("folivox check: %1 is not a folder\n").arg(dir));
            return ExitUsage;
        }
        if (!QDir().mkpath(dir)) {
            Console::err(QStringLiteral("folivox check: cannot make the folder %1\n").arg(dir));
            return ExitFailure;
        }
        repairDir = QDir(dir).absolutePath();
    }

    auto token = std::make_shared<ManualCancellationToken>();
    SignalCancellation::install();
    const int callback = SignalCancellation::onCancel([token] { token->cancel(); });
    struct Unregister {
        int id;
        ~Unregister() { SignalCancellation::removeCallback(id); }
    } unregister{callback};
    const std::function<bool()> cancelled = [token] { return token->isCancelled(); };

    QList<Checked> results;
    const QStringList files = expand(inputs, results);
    ProgressReporter progress = ProgressReporter::forConsole(parser.isSet(quiet));
    std::unique_ptr<FileRepairService> repairs;
    std::set<QString> written;
    for (qsizetype i = 0; i < files.size(); ++i) {
        if (token->isCancelled())
            return ExitCancelled;
        progress.update(QStringLiteral("Checking ") + QFileInfo(files[i]).fileName(), double(i) / files.size());
        Checked c;
        c.path = files[i];
        try {
            c.report = MP3IntegrityService::scanFile(files[i], cancelled);
            if (!c.report)
                return ExitCancelled;
        } catch (const MP3IntegrityError& e) {
            c.error = e.description();
        }
        if (repairDir && c.report && !c.report->holes.empty()) {
            RepairResult r;
            r.path = QDir(*repairDir).filePath(QFileInfo(files[i]).fileName());
            const QString canonicalSource = QFileInfo(files[i]).canonicalFilePath();
            if (QFileInfo(r.path).canonicalFilePath() == canonicalSource) {
                r.error = QStringLiteral("the copy would replace %1 itself").arg(files[i]);
            } else if (written.count(r.path)) {
                r.error = QStringLiteral("another file's repaired copy already has the name %1").arg(r.path);
            } else if (QFileInfo::exists(r.path) && !parser.isSet(force)) {
                r.error = QStringLiteral("%1 exists (use --force to replace it)").arg(r.path);
            } else {
                if (!repairs)
                    repairs = std::make_unique<FileRepairService>(std::make_shared<FFmpegWrapper>());
                progress.update(QStringLiteral("Repairing ") + QFileInfo(files[i]).fileName(),
                                double(i) / files.size());
                LogCapture log;
                const auto outcome = repairs->repairTo(files[i], r.path, *token, c.report->bitrateKbps
                                                           ? std::optional<int>(*c.report->bitrateKbps * 1000)
                                                           : std::nullopt,
                                                       c.report->trueDuration);
                if (token->isCancelled())
                    return ExitCancelled;
                if (outcome) {
                    r.method = outcome->method;
                    r.bytes = outcome->bytes;
                    r.regions = outcome->regions;
                    written.insert(r.path);
                } else {
                    // The service's last line says why.
                    const QStringList lines = log.lines();
                    r.error = lines.isEmpty() ? QStringLiteral("repair failed") : lines.last();
                }
            }
            c.repair = r;
        }
        results << c;
    }
    progress.update(QStringLiteral("Checked"), 1.0);
    progress.finish();

    int clean = 0, damaged = 0, unchecked = 0, repairFailures = 0;
    double missing = 0;
    for (const Checked& c : results) {
        if (c.couldNotCheck())
            ++unchecked;
        else if (c.report->verdict == MP3IntegrityVerdict::damaged)
            ++damaged;
        else
            ++clean;
        if (c.report)
            missing += c.report->missingSeconds();
        if (c.repair && !c.repair->error.isEmpty())
            ++repairFailures;
    }
    const int status = unchecked > 0 || repairFailures > 0 ? int(ExitFailure)
        : damaged > 0                                      ? ExitDamageFound
                                                           : int(ExitSuccess);
    if (asJson) {
        QJsonArray list;
        for (const Checked& c : results)
            list.append(toJson(c));
        QJsonObject summary;
        summary.insert(QStringLiteral("files"), int(results.size()));
        summary.insert(QStringLiteral("clean"), clean);
        summary.insert(QStringLiteral("damaged"), damaged);
        summary.insert(QStringLiteral("couldNotCheck"), unchecked);
        summary.insert(QStringLiteral("repairFailures"), repairFailures);
        summary.insert(QStringLiteral("missingSeconds"), missing);
        summary.insert(QStringLiteral("exitStatus"), status);
        QJsonObject doc;
        doc.insert(QStringLiteral("files"), list);
        doc.insert(QStringLiteral("summary"), summary);
        Console::out(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Indented)));
    } else {
        QString text;
        for (const Checked& c : results)
            text += toText(c);
        text += QStringLiteral("%1 file%2: %3 clean, %4 damaged, %5 could not be checked; %6 missing in all")
                    .arg(results.size())
                    .arg(results.size() == 1 ? "" : "s")
                    .arg(clean)
                    .arg(damaged)
                    .arg(unchecked)
                    .arg(secondsText(missing));
        if (repairFailures > 0)
            text += QStringLiteral("; %1 repair%2 failed").arg(repairFailures).arg(repairFailures == 1 ? "" : "s");
        Console::out(text + u'\n');
    }
    return status;
}

} // namespace folivox::cli
