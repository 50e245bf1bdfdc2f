#include "cli/UpdateCommand.h"

#include "cli/BuildOptionParser.h"
#include "cli/Console.h"
#include "cli/ProgressReporter.h"
#include "cli/SignalCancellation.h"
#include "core/chapters/ChapterSnapshot.h"
#include "import/probe/LibavAudioInspector.h"
#include "inplace/DefaultInPlaceEligibilityService.h"
#include "inplace/DefaultInPlaceUpdateService.h"
#include "inplace/InPlaceUpdateController.h"
#include "library/files/LibraryLocation.h"
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "sidecars/parsers/SidecarParserRegistry.h"

#include <QCollator>
#include <QCommandLineParser>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QUrl>

#include <condition_variable>
#include <mutex>

namespace folivox::cli {

namespace {

// The tag options of `folivox build`, read by BuildOptionParser::parse.
const char* const kTagOptions[] = {"title",   "author",  "narrator", "series",    "series-index", "year",      "genre",
                                   "language", "description", "summary", "comment", "publisher", "copyright", "sort-title",
                                   "sort-author", "sort-album", "sort-album-artist"};

// What the update is about to do, found before anything is written.
struct Plan {
    InPlaceUpdateMode mode;
    BookMetadata metadata;          // only the fields to write hold values
    QList<ChapterInfo> chapters;    // single file: the chapters to write
    QList<ChapterSnapshot> fileChapters;
    QList<ChapterSnapshot> wantedChapters;
    QStringList oldTitles;          // the chapter titles the files have now
    QList<IneligibilityReason> reasons;
};

void outLine(const QString& text)
{
    Console::out(text + u'\n');
}

void errLine(const QString& text)
{
    Console::err(text + u'\n');
}

class UsageError {
public:
    QString text;
};

class Failure {
public:
    QString text;
};

QStringList audioFilesIn(const QString& folder)
{
    QStringList out;
    const QDir dir(folder);
    for (const QString& n : dir.entryList(QDir::Files | QDir::NoDotAndDotDot))
        if (inPlaceSourceFormatFor(n))
            out << dir.absoluteFilePath(n);
    QCollator collator(QLocale(QLocale::English));
    collator.setNumericMode(true);
    std::sort(out.begin(), out.end(), [&](const QString& a, const QString& b) { return collator.compare(a, b) < 0; });
    return out;
}

QString readText(const QString& path, const char* option)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        throw UsageError{QStringLiteral("cannot read the %1 file '%2': %3").arg(QString::fromLatin1(option), path, f.errorString())};
    return QString::fromUtf8(f.readAll());
}

// The chapters the files have: a single file's embedded marks, or one
// chapter per file.
QList<ChapterSnapshot> chaptersOnDisk(const QStringList& files, QStringList& titles)
{
    const LibavAudioInspector inspector;
    QList<ChapterSnapshot> out;
    if (files.size() == 1) {
        const MediaProbe probe = inspector.probe(files.first());
        for (const MediaChapterMark& m : probe.chapters) {
            out << ChapterSnapshot{m.title, m.start, m.end - m.start, std::nullopt, std::nullopt};
            titles << m.title;
        }
        return out;
    }
    double start = 0;
    for (const QString& f : files) {
        const MediaProbe probe = inspector.probe(f);
        const QString title = probe.tag({"title"}).value_or(QFileInfo(f).completeBaseName());
        out << ChapterSnapshot{title, start, probe.duration, std::nullopt, std::nullopt};
        titles << title;
        start += probe.duration;
    }
    return out;
}

Plan planFor(const UpdateCommand::Options& o)
{
    Plan plan;
    QStringList files;
    BookMetadata base;
    base.title.clear();
    std::optional<QList<ChapterSnapshot>> bookChapters;
    if (o.book) {
        auto persistence = std::make_shared<LibraryPersistence>(LibraryLocation::root(o.library.value_or(QString())));
        LibraryStore store(persistence);
        store.load();
        const QUuid id = store.resolve(*o.book);
        const BookStateDTO state = store.loadState(id);
        if (!state.lastBuild || state.lastBuild->outputs.empty())
            throw Failure{QStringLiteral("the book has not been built yet: there is nothing to update in place")};
        for (const BuildRecord::Output& out : state.lastBuild->outputs)
            files << out.path;
        const BookBuildInputs inputs = store.buildInputs(id);
        base = inputs.metadata;
        QList<ChapterSnapshot> now;
        double start = 0;
        for (const Bookmark& b : inputs.bookmarks) {
            now << ChapterSnapshot{b.title, start, b.duration, std::nullopt, std::nullopt};
            start += b.duration;
        }
        bookChapters = now;
    } else {
        const QFileInfo info(*o.target);
        if (info.isDir())
            files = audioFilesIn(info.absoluteFilePath());
        else
            files << info.absoluteFilePath();
        if (files.isEmpty())
            throw Failure{QStringLiteral("'%1' holds no M4B, M4A, MP3, FLAC, Ogg or AIFF files").arg(*o.target)};
    }
    plan.metadata = o.tags.applied(base);
    if (!o.tags.title && !o.book)
        plan.metadata.title.clear();

    plan.reasons = DefaultInPlaceEligibilityService::checkFiles(files);
    const bool readable = plan.reasons.isEmpty() || (!plan.reasons.contains(IneligibilityReason::fileNotFound)
                                                      && !plan.reasons.contains(IneligibilityReason::unsupportedFormat));
    if (readable)
        plan.fileChapters = chaptersOnDisk(files, plan.oldTitles);
    plan.wantedChapters = bookChapters.value_or(plan.fileChapters);

    if (o.chapters) {
        const QString text = readText(*o.chapters, "chapters");
        const auto parsed = SidecarParserRegistry::parse(text, QUrl::fromLocalFile(QFileInfo(*o.chapters).absoluteFilePath()));
        if (!parsed || parsed->chapters.isEmpty())
            throw UsageError{QStringLiteral("'%1' is not a chapter file Folivox can read").arg(*o.chapters)};
        QList<ChapterSnapshot> wanted;
        const double total = plan.fileChapters.isEmpty() ? 0 : plan.fileChapters.last().startTime + plan.fileChapters.last().duration;
        for (qsizetype i = 0; i < parsed->chapters.size(); ++i) {
            const NormalizedChapter& c = parsed->chapters.at(i);
            const double start = c.startMs / 1000.0;
            double end = c.endMs ? *c.endMs / 1000.0
                                 : (i + 1 < parsed->chapters.size() ? parsed->chapters.at(i + 1).startMs / 1000.0 : total);
            wanted << ChapterSnapshot{c.title, start, end - start, std::nullopt, std::nullopt};
        }
        plan.wantedChapters = wanted;
    }
    if (o.chapterTitles) {
        QStringList titles;
        for (const QString& line : readText(*o.chapterTitles, "chapter-titles").split(u'\n'))
            if (!line.trimmed().isEmpty())
                titles << line.trimmed();
        if (titles.size() != plan.wantedChapters.size())
            throw UsageError{QStringLiteral("'%1' has %2 titles, but the book has %3 chapters")
                                 .arg(*o.chapterTitles)
                                 .arg(titles.size())
                                 .arg(plan.wantedChapters.size())};
        for (qsizetype i = 0; i < titles.size(); ++i)
            plan.wantedChapters[i].title = titles.at(i);
    }

    if (readable) {
        if (const auto r = DefaultInPlaceEligibilityService::compareChapters(plan.fileChapters, plan.wantedChapters, 1)) {
            plan.reasons << *r;
            std::sort(plan.reasons.begin(), plan.reasons.end());
        }
    }
    if (!plan.reasons.isEmpty())
        return plan;

    InPlaceEligibilityRequest request{plan.fileChapters, plan.wantedChapters, 1, files};
    const InPlaceEligibility eligibility = DefaultInPlaceEligibilityService().evaluate(request);
    plan.reasons = eligibility.reasons;
    if (!eligibility.isEligible)
        return plan;
    plan.mode = *eligibility.mode;
    const bool titlesChanged = o.chapters || o.chapterTitles || o.book;
    if (plan.mode.kind == InPlaceUpdateMode::Kind::singleFile && titlesChanged) {
        for (const ChapterSnapshot& c : plan.wantedChapters)
            plan.chapters << ChapterInfo{c.title, c.startTime, std::nullopt};
    }
    if (plan.mode.kind == InPlaceUpdateMode::Kind::multipleFiles && !titlesChanged) {
        // Without new titles each file keeps its own.
        for (qsizetype i = 0; i < plan.mode.files.size(); ++i)
            plan.mode.files[i].chapterTitle = plan.oldTitles.value(i);
    }
    return plan;
}

QJsonObject changesJson(const UpdateCommand::Options& o, const Plan& plan)
{
    QJsonObject tags = o.tags.toJson();
    tags.remove(QStringLiteral("coverImageData"));
    QJsonObject out{{QStringLiteral("tags"), tags}};
    if (o.cover)
        out.insert(QStringLiteral("cover"), QFileInfo(*o.cover).absoluteFilePath());
    if (o.removeCover)
        out.insert(QStringLiteral("removeCover"), true);
    QJsonArray titles;
    for (qsizetype i = 0; i < plan.wantedChapters.size(); ++i) {
        const QString was = plan.oldTitles.value(i);
        const QString now = plan.wantedChapters.at(i).title;
        if (was != now)
            titles.append(QJsonObject{{QStringLiteral("index"), int(i + 1)}, {QStringLiteral("from"), was}, {QStringLiteral("to"), now}});
    }
    out.insert(QStringLiteral("chapterTitles"), titles);
    return out;
}

void printChanges(const QJsonObject& changes)
{
    const QJsonObject tags = changes.value(QStringLiteral("tags")).toObject();
    for (auto it = tags.begin(); it != tags.end(); ++it)
        outLine(QStringLiteral("  %1: %2").arg(it.key(), it.value().isString() ? it.value().toString() : it.value().toVariant().toString()));
    if (changes.contains(QStringLiteral("cover")))
        outLine(QStringLiteral("  cover: ") + changes.value(QStringLiteral("cover")).toString());
    if (changes.value(QStringLiteral("removeCover")).toBool())
        outLine(QStringLiteral("  cover: removed"));
    for (const QJsonValue& v : changes.value(QStringLiteral("chapterTitles")).toArray()) {
        const QJsonObject c = v.toObject();
        outLine(QStringLiteral("  chapter %1: '%2' -> '%3'")
                         .arg(c.value(QStringLiteral("index")).toInt())
                         .arg(c.value(QStringLiteral("from")).toString(), c.value(QStringLiteral("to")).toString()));
    }
}

} // namespace

QString UpdateCommand::name() const
{
    return QStringLiteral("update");
}

QString UpdateCommand::summary() const
{
    return QStringLiteral("rewrite a finished book's tags in place");
}

QString UpdateCommand::usage() const
{
    return QStringLiteral(
        "Usage: folivox update FILE|FOLDER [options]\n"
        "       folivox update --book ID [--library DIR] [options]\n"
        "Rewrites the tags, cover and chapter titles of a finished book without\n"
        "rebuilding it. Every file is backed up first; a failure or Ctrl-C puts\n"
        "every file back. A FOLDER holds the per-chapter files of one book.\n"
        "Options:\n"
        "  --title --author --narrator --series --series-index --year --genre --language\n"
        "  --description --summary --comment --publisher --copyright --sort-title\n"
        "  --sort-author --sort-album --sort-album-artist VALUE\n"
        "                            tags to write (as in build)\n"
        "  --chapter-titles FILE     new chapter titles, one a line, in order\n"
        "  --chapters FILE           a chapter file whose times match the book's\n"
        "  --cover IMAGE             a new cover (JPEG or PNG)\n"
        "  --remove-cover            take the cover out\n"
        "  --book ID                 a library book's last build\n"
        "  --dry-run                 show what would change and write nothing\n"
        "  --json                    print one JSON document\n"
        "  -q, --quiet               no progress\n"
        "  -v, --verbose             echo the log\n"
        "  -h, --help                show this text\n");
}

std::variant<UpdateCommand::Options, QString> UpdateCommand::parse(const QStringList& args)
{
    QCommandLineParser p;
    const auto value = [](const char* name) { return QCommandLineOption(QString::fromLatin1(name), QString(), QStringLiteral("VALUE")); };
    for (const char* name : kTagOptions)
        p.addOption(value(name));
    for (const char* name : {"chapter-titles", "chapters", "cover", "book", "library"})
        p.addOption(value(name));
    for (const char* flag : {"remove-cover", "json", "dry-run"})
        p.addOption(QCommandLineOption(QString::fromLatin1(flag)));
    p.addOption(QCommandLineOption(QStringList{QStringLiteral("q"), QStringLiteral("quiet")}));
    p.addOption(QCommandLineOption(QStringList{QStringLiteral("v"), QStringLiteral("verbose")}));
    if (!p.parse(QStringList{QStringLiteral("folivox update")} + args))
        return p.errorText();

    Options o;
    const QStringList positional = p.positionalArguments();
    if (p.isSet(QStringLiteral("book")))
        o.book = p.value(QStringLiteral("book"));
    if (p.isSet(QStringLiteral("library")))
        o.library = p.value(QStringLiteral("library"));
    if (positional.size() > 1)
        return QStringLiteral("give one FILE or FOLDER");
    if (positional.isEmpty() && !o.book)
        return QStringLiteral("no FILE or FOLDER given");
    if (!positional.isEmpty() && o.book)
        return QStringLiteral("give a FILE or FOLDER, or --book, not both");
    if (!positional.isEmpty())
        o.target = positional.first();

    // The tag values are read and checked exactly as `folivox build` does.
    QStringList tagArgs;
    for (const char* name : kTagOptions)
        if (p.isSet(QString::fromLatin1(name)))
            tagArgs << QStringLiteral("--") + QString::fromLatin1(name) << p.value(QString::fromLatin1(name));
    const auto build = BuildOptionParser::parse(tagArgs + QStringList{QStringLiteral("update-target")});
    if (const QString* error = std::get_if<QString>(&build))
        return *error;
    o.tags = std::get<BuildOptions>(build).tags;

    if (p.isSet(QStringLiteral("chapter-titles")))
        o.chapterTitles = p.value(QStringLiteral("chapter-titles"));
    if (p.isSet(QStringLiteral("chapters")))
        o.chapters = p.value(QStringLiteral("chapters"));
    if (p.isSet(QStringLiteral("cover")))
        o.cover = p.value(QStringLiteral("cover"));
    o.removeCover = p.isSet(QStringLiteral("remove-cover"));
    if (o.cover && o.removeCover)
        return QStringLiteral("--cover and --remove-cover cannot be used together");
    o.json = p.isSet(QStringLiteral("json"));
    o.dryRun = p.isSet(QStringLiteral("dry-run"));
    o.quiet = p.isSet(QStringLiteral("q"));
    o.verbose = p.isSet(QStringLiteral("v"));
    return o;
}

int UpdateCommand::run(const QStringList& args)
{
    if (args.contains(QStringLiteral("-h")) || args.contains(QStringLiteral("--help"))) {
        outLine(usage());
        return ExitSuccess;
    }
    const auto parsed = parse(args);
    if (const QString* error = std::get_if<QString>(&parsed)) {
        errLine(QStringLiteral("folivox update: ") + *error);
        errLine(QStringLiteral("Try 'folivox update --help'."));
        return ExitUsage;
    }
    const Options o = std::get<Options>(parsed);
    Log::setVerbose(o.verbose);
    const auto fail = [&](const QString& text, const QJsonObject& extra = {}) {
        if (o.json) {
            QJsonObject doc = extra;
            doc.insert(QStringLiteral("error"), text);
            outLine(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Compact)));
        }
        errLine(QStringLiteral("folivox update: ") + text);
        return int(ExitFailure);
    };

    Plan plan;
    try {
        if (o.cover && !QFileInfo(*o.cover).isFile())
            throw UsageError{QStringLiteral("the cover '%1' does not exist").arg(*o.cover)};
        plan = planFor(o);
        if (o.cover) {
            QFile f(*o.cover);
            if (!f.open(QIODevice::ReadOnly))
                throw Failure{QStringLiteral("cannot read the cover '%1'").arg(*o.cover)};
            plan.metadata.coverImageData = f.readAll();
        } else {
            plan.metadata.coverImageData.reset(); // a library book's cover stays unless asked
        }
    } catch (const UsageError& e) {
        errLine(QStringLiteral("folivox update: ") + e.text);
        return ExitUsage;
    } catch (const Failure& e) {
        return fail(e.text);
    } catch (const Error& e) {
        return fail(e.description());
    }

    if (!plan.reasons.isEmpty()) {
        QJsonArray names;
        QStringList lines;
        for (IneligibilityReason r : plan.reasons) {
            names.append(ineligibilityReasonName(r));
            lines << QStringLiteral("  %1: %2").arg(ineligibilityReasonName(r), ineligibilityReasonText(r));
        }
        if (!o.json)
            errLine(QStringLiteral("folivox update: the book can't be updated in place:\n") + lines.join(u'\n'));
        return o.json ? fail(QStringLiteral("the book can't be updated in place"), {{QStringLiteral("reasons"), names}})
                      : int(ExitFailure);
    }

    const QStringList files = plan.mode.paths();
    const QJsonObject changes = changesJson(o, plan);
    QJsonArray fileArray;
    for (const QString& f : files)
        fileArray.append(f);
    if (o.dryRun) {
        if (o.json) {
            outLine(QString::fromUtf8(QJsonDocument(QJsonObject{{QStringLiteral("dryRun"), true},
                                                                     {QStringLiteral("files"), fileArray},
                                                                     {QStringLiteral("changes"), changes}})
                                               .toJson(QJsonDocument::Compact)));
        } else {
            outLine(QStringLiteral("Would update %1 file(s) (nothing written):").arg(files.size()));
            for (const QString& f : files)
                outLine(QStringLiteral("  ") + f);
            printChanges(changes);
        }
        return ExitSuccess;
    }

    ProgressReporter progress = ProgressReporter::forConsole(o.quiet || o.json);
    InPlaceUpdateController controller(std::make_shared<DefaultInPlaceUpdateService>());
    std::mutex mutex;
    std::condition_variable finished;
    std::optional<InPlaceUpdateController::Outcome> outcome;
    InPlaceUpdateOptions updateOptions;
    updateOptions.removeCover = o.removeCover;
    SignalCancellation::install();
    const int cancelId = SignalCancellation::onCancel([&controller] { controller.cancel(); });
    const bool started = controller.start(
        plan.metadata, plan.chapters, plan.mode,
        [&progress](const QString& key, double fraction) {
            const QString phase = key.section(u'.', 2).replace(u'.', u' ');
            progress.update(phase, fraction);
        },
        updateOptions,
        [&](const InPlaceUpdateController::Outcome& out) {
            std::lock_guard lock(mutex);
            outcome = out;
            finished.notify_all();
        });
    if (!started)
        return fail(QStringLiteral("another in-place update is running"));
    {
        std::unique_lock lock(mutex);
        finished.wait(lock, [&] { return outcome.has_value(); });
    }
    controller.wait();
    SignalCancellation::removeCallback(cancelId);
    progress.finish();

    const InPlaceUpdateController::Outcome& out = *outcome;
    QJsonObject doc{{QStringLiteral("files"), fileArray}, {QStringLiteral("changes"), changes}};
    if (!out.backupURL.isEmpty())
        doc.insert(QStringLiteral("backup"), out.backupURL);
    const QString backupLine = out.backupURL.isEmpty() ? QString() : QStringLiteral("Backup: ") + out.backupURL;
    switch (out.kind) {
    case InPlaceUpdateController::Outcome::Kind::completed:
        if (o.json) {
            doc.insert(QStringLiteral("outcome"), QStringLiteral("completed"));
            outLine(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Compact)));
        } else {
            outLine(QStringLiteral("Updated %1 file(s):").arg(files.size()));
            for (const QString& f : files)
                outLine(QStringLiteral("  ") + f);
            printChanges(changes);
            outLine(backupLine);
        }
        return ExitSuccess;
    case InPlaceUpdateController::Outcome::Kind::cancelled: {
        QString text = out.allRestored ? QStringLiteral("cancelled; every file was put back from its backup")
                                       : QStringLiteral("cancelled; some files could not be put back");
        if (out.recovery)
            text += QStringLiteral(" (a complete copy of '%1' is at %2)")
                        .arg(QFileInfo(out.recovery->targetPath()).fileName(), out.recovery->preservedCopyPath());
        if (o.json) {
            doc.insert(QStringLiteral("outcome"), QStringLiteral("cancelled"));
            doc.insert(QStringLiteral("allRestored"), out.allRestored);
            outLine(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Compact)));
        }
        errLine(QStringLiteral("folivox update: ") + text);
        if (!backupLine.isEmpty())
            errLine(backupLine);
        return ExitCancelled;
    }
    case InPlaceUpdateController::Outcome::Kind::failed: {
        QString text = out.error;
        if (!out.backupURL.isEmpty())
            text += out.allRestored ? QStringLiteral(" (every file was put back from its backup)")
                                    : QStringLiteral(" (some files could not be put back; see the backup)");
        doc.insert(QStringLiteral("outcome"), QStringLiteral("failed"));
        const int code = fail(text, doc);
        if (!backupLine.isEmpty())
            errLine(backupLine);
        return code;
    }
    }
    return ExitFailure;
}

} // namespace folivox::cli
