#include "cli/LibraryCommand.h"

#include "cli/Console.h"
#include "cli/ProgressReporter.h"
#include "cli/SignalCancellation.h"
#include "core/json/JsonWriter.h"
#include "core/settings/SettingsFingerprint.h"
#include "process/ManualCancellationToken.h"
#include "library/BookIdPrefix.h"
#include "library/BuildStatus.h"
#include "library/LibraryAdder.h"
#include "library/files/LibraryLocation.h"
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"
#include "platform/Error.h"
#include "platform/Log.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <memory>

namespace folivox::cli {

namespace {

struct Options {
    QString subcommand;
    QStringList arguments;
    QString library;
    bool json = false;
    bool quiet = false;
};

QString clockText(double seconds)
{
    const qint64 s = static_cast<qint64>(std::llround(std::max(0.0, seconds)));
    return QStringLiteral("%1:%2:%3").arg(s / 3600).arg((s / 60) % 60, 2, 10, QChar(u'0')).arg(s % 60, 2, 10, QChar(u'0'));
}

QString idText(const QUuid& id)
{
    return LibraryPersistence::folderName(id);
}

void printJson(const QJsonObject& doc)
{
    Console::out(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Indented)));
}

int failure(const Options& o, const QString& message)
{
    if (o.json) {
        QJsonObject doc;
        doc.insert(QStringLiteral("error"), message);
        printJson(doc);
    }
    Console::err(QStringLiteral("folivox library: ") + message + u'\n');
    return ExitFailure;
}

QString titleOf(const LibraryBookSummary& s)
{
    return s.title.isEmpty() ? QStringLiteral("(unreadable record)") : s.title;
}

QJsonObject summaryJson(const LibraryBookSummary& s)
{
    QJsonObject o = s.toJson();
    o.insert(QStringLiteral("shortID"), BookIdPrefix::shortForm(s.id));
    o.insert(QStringLiteral("changedSinceBuild"), s.changedSinceBuild());
    return o;
}

QString recoveryText(LibraryPersistence::IndexRecovery r)
{
    switch (r) {
    case LibraryPersistence::IndexRecovery::none: return {};
    case LibraryPersistence::IndexRecovery::fromBackup: return QStringLiteral("fromBackup");
    case LibraryPersistence::IndexRecovery::rebuilt: return QStringLiteral("rebuilt");
    }
    return {};
}

void noteRecovery(const Options& o, LibraryPersistence& p)
{
    if (p.lastIndexRecovery() == LibraryPersistence::IndexRecovery::none || o.quiet)
        return;
    Console::err(p.lastIndexRecovery() == LibraryPersistence::IndexRecovery::fromBackup
                     ? QStringLiteral("folivox library: index.json could not be read; restored from index.json.bak "
                                      "and the book folders\n")
                     : QStringLiteral("folivox library: index.json could not be read; rebuilt from the book folders\n"));
}

// ---- list

int list(const Options& o, LibraryStore& store)
{
    store.load(false);
    noteRecovery(o, store.persistence());
    const auto books = store.summaries();
    if (o.json) {
        QJsonArray array;
        for (const LibraryBookSummary& s : books)
            array.append(summaryJson(s));
        QJsonObject doc;
        doc.insert(QStringLiteral("library"), store.persistence().rootURL());
        doc.insert(QStringLiteral("books"), array);
        if (const auto newer = store.newerLibraryVersion())
            doc.insert(QStringLiteral("newerLibraryVersion"), *newer);
        if (const QString r = recoveryText(store.persistence().lastIndexRecovery()); !r.isEmpty())
            doc.insert(QStringLiteral("indexRecovery"), r);
        printJson(doc);
        return ExitSuccess;
    }
    if (const auto newer = store.newerLibraryVersion())
        return failure(o, QStringLiteral("the library %1 was written by a newer version of Folivox (schema %2)")
                              .arg(store.persistence().rootURL())
                              .arg(*newer));
    QString text;
    for (const LibraryBookSummary& s : books) {
        QStringList flags;
        if (s.needsAttention)
            flags << QStringLiteral("needs attention");
        if (!s.builtAt)
            flags << QStringLiteral("not built");
        else if (s.changedSinceBuild())
            flags << QStringLiteral("changed since build");
        text += QStringLiteral("%1  %2%3  %4%5\n")
                    .arg(BookIdPrefix::shortForm(s.id), titleOf(s),
                         s.author ? QStringLiteral(" — ") + *s.author : QString(),
                         s.totalDuration ? clockText(*s.totalDuration) : QStringLiteral("-"),
                         flags.isEmpty() ? QString() : QStringLiteral("  [") + flags.join(QStringLiteral(", ")) + u']');
    }
    text += QStringLiteral("%1 book(s) in %2\n").arg(books.size()).arg(store.persistence().rootURL());
    Console::out(text);
    return ExitSuccess;
}

// ---- add

int add(const Options& o, LibraryStore& store)
{
    if (o.arguments.isEmpty()) {
        Console::err(QStringLiteral("folivox library add: no folder given\n"));
        return ExitUsage;
    }
    store.load(true);
    noteRecovery(o, store.persistence());
    auto token = std::make_shared<ManualCancellationToken>();
    SignalCancellation::install();
    const int signalId = SignalCancellation::onCancel([token] { token->cancel(); });
    ProgressReporter progress = ProgressReporter::forConsole(o.quiet || o.json);

    LibraryAdder adder(store);
    QJsonArray added, skipped, refused;
    int counts[3] = {0, 0, 0};
    adder.onProgress = [&progress](int done, int total, const QString&) {
        progress.update(QStringLiteral("Adding books"), total > 0 ? double(done) / total : 1.0);
    };
    adder.onOutcome = [&](const LibraryAdder::Outcome& r) {
        ++counts[static_cast<int>(r.kind)];
        QJsonObject j;
        j.insert(QStringLiteral("source"), r.source);
        if (r.bookID)
            j.insert(QStringLiteral("id"), idText(*r.bookID));
        if (!r.title.isEmpty())
            j.insert(QStringLiteral("title"), r.title);
        if (!r.reason.isEmpty())
            j.insert(QStringLiteral("reason"), r.reason);
        QString line;
        switch (r.kind) {
        case LibraryAdder::Outcome::Kind::added:
            j.insert(QStringLiteral("tracks"), r.tracks);
            j.insert(QStringLiteral("duration"), r.duration);
            j.insert(QStringLiteral("chapterSource"), r.chapterSource);
            added.append(j);
            line = QStringLiteral("added    %1  %2 (%3 tracks, %4, chapters from %5)\n")
                       .arg(BookIdPrefix::shortForm(*r.bookID), r.title)
                       .arg(r.tracks)
                       .arg(clockText(r.duration), r.chapterSource);
            break;
        case LibraryAdder::Outcome::Kind::skipped:
            skipped.append(j);
            line = QStringLiteral("skipped  %1: %2\n").arg(r.source, r.reason);
            break;
        case LibraryAdder::Outcome::Kind::refused:
            refused.append(j);
            line = QStringLiteral("refused  %1: %2\n").arg(r.source, r.reason);
            break;
        }
        if (!o.json) {
            if (progress.style() == ProgressReporter::Style::Bar)
                progress.finish();
            Console::out(line);
        }
    };
    QElapsedTimer clock;
    clock.start();
    adder.add(o.arguments, *token);
    progress.finish();
    SignalCancellation::removeCallback(signalId);
    const double seconds = double(clock.elapsed()) / 1000.0;
    const int books = counts[0] + counts[1] + counts[2];
    const double rate = seconds > 0 ? books / seconds : 0;
    if (o.json) {
        QJsonObject doc;
        doc.insert(QStringLiteral("library"), store.persistence().rootURL());
        doc.insert(QStringLiteral("added"), added);
        doc.insert(QStringLiteral("skipped"), skipped);
        doc.insert(QStringLiteral("refused"), refused);
        doc.insert(QStringLiteral("seconds"), seconds);
        doc.insert(QStringLiteral("booksPerSecond"), rate);
        doc.insert(QStringLiteral("cancelled"), token->isCancelled());
        printJson(doc);
    } else if (!o.quiet) {
        Console::err(QStringLiteral("%1 added, %2 skipped, %3 refused in %4 s (%5 books/s)\n")
                         .arg(counts[0])
                         .arg(counts[1])
                         .arg(counts[2])
                         .arg(QString::number(seconds, 'f', 2), QString::number(rate, 'f', 1)));
    }
    if (token->isCancelled()) {
        Console::err(QStringLiteral("folivox library add: cancelled\n"));
        return ExitCancelled;
    }
    return counts[2] > 0 ? ExitFailure : ExitSuccess;
}

// ---- show

QString tagsText(const BookMetadata& m)
{
    QString t;
    const auto line = [&t](const char* name, const std::optional<QString>& v) {
        if (v && !v->isEmpty())
            t += QStringLiteral("    %1: %2\n").arg(QLatin1String(name), QString(*v).replace(u'\n', QStringLiteral(" / ")));
    };
    line("title", m.title);
    line("author", m.author);
    line("narrator", m.narrator);
    line("series", m.seriesName);
    if (m.seriesIndex)
        line("series index", m.seriesIndex->text());
    line("year", m.year);
    line("genre", m.genre);
    line("language", m.language);
    line("summary", m.summary);
    line("description", m.description);
    line("comment", m.comment);
    line("publisher", m.publisher);
    line("copyright", m.copyright);
    line("sort title", m.sortTitle);
    line("sort author", m.sortAuthor);
    return t;
}

int show(const Options& o, LibraryStore& store)
{
    if (o.arguments.size() != 1) {
        Console::err(QStringLiteral("folivox library show: give one book ID\n"));
        return ExitUsage;
    }
    store.load(false);
    const QUuid id = store.resolve(o.arguments.first());
    const BookStateDTO state = store.loadState(id);
    store.refreshAttention(id, LibraryBookSummary::sourcesMissing(state));
    const LibraryBookSummary summary = store.summary(id).value_or(LibraryBookSummary::from(state, false, false));
    const QStringList reasons = BuildStatus::rebuildReasons(state);
    QStringList missingFiles;
    for (const Track& t : state.tracks)
        if (!QFileInfo::exists(t.url.toLocalFile()))
            missingFiles << t.url.toLocalFile();

    if (o.json) {
        BookStateDTO lean = state;
        const QByteArray cover = lean.metadata.coverImageData.value_or(QByteArray());
        lean.metadata.coverImageData.reset();
        for (Bookmark& b : lean.bookmarks)
            b.artworkData.reset();
        QJsonObject doc;
        doc.insert(QStringLiteral("summary"), summaryJson(summary));
        doc.insert(QStringLiteral("state"), lean.toJson());
        QJsonObject coverJson;
        coverJson.insert(QStringLiteral("present"), !cover.isEmpty());
        if (!cover.isEmpty())
            coverJson.insert(QStringLiteral("bytes"), static_cast<qint64>(cover.size()));
        doc.insert(QStringLiteral("cover"), coverJson);
        doc.insert(QStringLiteral("rebuildDue"), !reasons.isEmpty());
        doc.insert(QStringLiteral("rebuildReasons"), QJsonArray::fromStringList(reasons));
        doc.insert(QStringLiteral("missingSources"), QJsonArray::fromStringList(missingFiles));
        printJson(doc);
        return ExitSuccess;
    }

    double total = 0;
    for (const Track& t : state.tracks)
        total += t.duration;
    QString text = QStringLiteral("%1\n  ID:        %2\n  Source:    %3\n  Revision:  %4 (created %5, edited %6)\n"
                                  "  Length:    %7, %8 tracks, %9 chapters\n")
                       .arg(titleOf(summary), idText(id), summary.sourceHint)
                       .arg(state.revision)
                       .arg(state.createdAt.toString(Qt::ISODate), state.editedAt.toString(Qt::ISODate), clockText(total))
                       .arg(state.tracks.size())
                       .arg(state.bookmarks.size());
    text += QStringLiteral("  Cover:     %1\n").arg(state.metadata.coverImageData ? QStringLiteral("yes") : QStringLiteral("no"));
    text += QStringLiteral("  Settings:  %1 (fingerprint %2)\n").arg(state.settings.summary(), SettingsFingerprint::of(state.settings));
    if (summary.missingTags && !summary.missingTags->isEmpty())
        text += QStringLiteral("  Missing:   %1\n").arg(summary.missingTags->join(QStringLiteral(", ")));
    text += QStringLiteral("  Tags:\n") + tagsText(state.metadata);
    text += QStringLiteral("  Tracks:\n");
    for (size_t i = 0; i < state.tracks.size(); ++i)
        text += QStringLiteral("    %1. %2  %3%4\n")
                    .arg(i + 1)
                    .arg(clockText(state.tracks[i].duration), state.tracks[i].url.toLocalFile(),
                         missingFiles.contains(state.tracks[i].url.toLocalFile()) ? QStringLiteral("  (missing)") : QString());
    text += QStringLiteral("  Chapters:\n");
    double start = 0;
    for (size_t i = 0; i < state.bookmarks.size(); ++i) {
        text += QStringLiteral("    %1. %2  %3\n").arg(i + 1).arg(clockText(start), state.bookmarks[i].title);
        start += state.bookmarks[i].duration;
    }
    if (state.lastBuild) {
        const BuildRecord& b = *state.lastBuild;
        text += QStringLiteral("  Last build: %1, revision %2, %3, settings %4\n")
                    .arg(b.builtAt.toString(Qt::ISODate))
                    .arg(b.revision)
                    .arg(label(b.format), b.settingsFingerprint);
        for (const BuildRecord::Output& out : b.outputs)
            text += QStringLiteral("    %1 (%2 bytes)\n").arg(out.path).arg(out.size);
    } else {
        text += QStringLiteral("  Last build: never\n");
    }
    text += reasons.isEmpty() ? QStringLiteral("  Rebuild due: no\n")
                              : QStringLiteral("  Rebuild due: yes (%1)\n").arg(reasons.join(QStringLiteral("; ")));
    if (summary.needsAttention)
        text += QStringLiteral("  Needs attention: source files are missing\n");
    Console::out(text);
    return ExitSuccess;
}

// ---- remove, restore, empty-trash

int remove(const Options& o, LibraryStore& store)
{
    if (o.arguments.isEmpty()) {
        Console::err(QStringLiteral("folivox library remove: give at least one book ID\n"));
        return ExitUsage;
    }
    store.load(true);
    QList<QUuid> ids;
    for (const QString& text : o.arguments) {
        const QUuid id = store.resolve(text);
        if (!ids.contains(id))
            ids << id;
    }
    const std::vector<RemovedBook> removed = store.remove(ids);
    QJsonArray array;
    QString text;
    bool failed = false;
    for (const RemovedBook& r : removed) {
        QJsonObject j = r.toJson();
        array.append(j);
        if (r.restorable) {
            text += QStringLiteral("removed  %1  %2 (to the trash; 'folivox library restore %1' brings it back)\n")
                        .arg(BookIdPrefix::shortForm(r.summary.id), titleOf(r.summary));
        } else {
            failed = true;
            Console::err(QStringLiteral("folivox library: could not move %1 to the trash\n").arg(idText(r.summary.id)));
        }
    }
    if (o.json) {
        QJsonObject doc;
        doc.insert(QStringLiteral("removed"), array);
        printJson(doc);
    } else {
        Console::out(text);
    }
    return failed ? ExitFailure : ExitSuccess;
}

int restore(const Options& o, LibraryStore& store)
{
    if (o.arguments.size() != 1) {
        Console::err(QStringLiteral("folivox library restore: give one book ID\n"));
        return ExitUsage;
    }
    store.load(true);
    const QMap<QUuid, RemovedBook> trash = store.trash();
    const QUuid id = BookIdPrefix::resolve(o.arguments.first(), trash.keys(), [&trash](const QUuid& i) {
        return BookIdPrefix::shortForm(i) + u' ' + trash.value(i).summary.title;
    });
    const LibraryBookSummary s = store.restoreFromTrash(id);
    int place = 0;
    const auto all = store.summaries();
    for (size_t i = 0; i < all.size(); ++i)
        if (all[i].id == id)
            place = static_cast<int>(i) + 1;
    if (o.json) {
        QJsonObject doc;
        doc.insert(QStringLiteral("restored"), summaryJson(s));
        doc.insert(QStringLiteral("position"), place);
        printJson(doc);
    } else {
        Console::out(QStringLiteral("restored %1  %2 (at place %3 of %4)\n")
                         .arg(BookIdPrefix::shortForm(id), titleOf(s))
                         .arg(place)
                         .arg(all.size()));
    }
    return ExitSuccess;
}

int emptyTrash(const Options& o, LibraryStore& store)
{
    const int n = store.emptyTrash();
    if (o.json) {
        QJsonObject doc;
        doc.insert(QStringLiteral("deleted"), n);
        printJson(doc);
    } else {
        Console::out(QStringLiteral("deleted %1 book(s) from the trash\n").arg(n));
    }
    return ExitSuccess;
}

} // namespace

QString LibraryCommand::name() const
{
    return QStringLiteral("library");
}

QString LibraryCommand::summary() const
{
    return QStringLiteral("the library of books");
}

QString LibraryCommand::usage() const
{
    return QStringLiteral(
        "Usage: folivox library <command> [options]\n\n"
        "Keeps books between runs: add a folder once, come back to it, see what changed.\n\n"
        "Commands:\n"
        "  list [--json]             every book: ID, title, author, length, and whether it needs attention\n"
        "                            or changed since its last build\n"
        "  add FOLDER...             add books: a folder of audio is one book (disc folders such as CD1,\n"
        "                            Disc 2 belong to it), a tree of folders gives a book per leaf folder,\n"
        "                            an M4B file is a book of its own; a source already in the library\n"
        "                            is skipped\n"
        "  show ID [--json]          a book's tracks, chapters, tags, last build, and whether a rebuild is due\n"
        "  remove ID...              move books to the trash\n"
        "  restore ID                bring a book back from the trash, at its place in the list\n"
        "  empty-trash               delete the books in the trash for good\n\n"
        "An ID may be shortened to any prefix that fits one book only.\n\n"
        "Options:\n"
        "  --library DIR  the library folder (default: $FOLIVOX_LIBRARY, else Library in the\n"
        "                 application data folder)\n"
        "  --json         print one JSON document on stdout\n"
        "  -q, --quiet    no progress\n"
        "  -v, --verbose  echo the diagnostic log on stderr\n"
        "  -h, --help     show this text\n\n"
        "Exit status: 0 done, 1 failed (or a book was refused), 2 usage error, 130 cancelled.\n");
}

int LibraryCommand::run(const QStringList& args)
{
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    const QCommandLineOption library(QStringLiteral("library"), QString(), QStringLiteral("DIR"));
    const QCommandLineOption json(QStringLiteral("json"));
    const QCommandLineOption quiet(QStringList{QStringLiteral("q"), QStringLiteral("quiet")});
    const QCommandLineOption verbose(QStringList{QStringLiteral("v"), QStringLiteral("verbose")});
    parser.addOptions({library, json, quiet, verbose});
    if (!parser.parse(QStringList{QStringLiteral("folivox library")} + args)) {
        Console::err(QStringLiteral("folivox library: ") + parser.errorText() + QStringLiteral("\n\n") + usage());
        return ExitUsage;
    }
    Options o;
    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty()) {
        Console::err(usage());
        return ExitUsage;
    }
    o.subcommand = positional.first();
    o.arguments = positional.mid(1);
    o.library = LibraryLocation::root(parser.value(library));
    o.json = parser.isSet(json);
    o.quiet = parser.isSet(quiet);
    Log::setVerbose(parser.isSet(verbose));

    using Handler = int (*)(const Options&, LibraryStore&);
    Handler handler = nullptr;
    if (o.subcommand == u"list")
        handler = list;
    else if (o.subcommand == u"add")
        handler = add;
    else if (o.subcommand == u"show")
        handler = show;
    else if (o.subcommand == u"remove")
        handler = remove;
    else if (o.subcommand == u"restore")
        handler = restore;
    else if (o.subcommand == u"empty-trash")
        handler = emptyTrash;
    if (!handler) {
        Console::err(QStringLiteral("folivox library: unknown command '%1'\n\n").arg(o.subcommand) + usage());
        return ExitUsage;
    }
    try {
        auto persistence = std::make_shared<LibraryPersistence>(o.library);
        LibraryStore store(persistence);
        return handler(o, store);
    } catch (const Error& e) {
        return failure(o, e.description());
    }
}

} // namespace folivox::cli
