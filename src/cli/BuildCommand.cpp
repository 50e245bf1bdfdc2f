#include "cli/BuildCommand.h"

#include "build/BuildFailure.h"
#include "build/BuildUseCase.h"
#include "build/LibraryBookBuild.h"
#include "cli/BuildOptionParser.h"
#include "cli/BuildResultPrinter.h"
#include "cli/CancelOnSignal.h"
#include "cli/Console.h"
#include "cli/ProgressReporter.h"
#include "library/files/LibraryLocation.h"
#include "platform/Log.h"
#include "process/ManualCancellationToken.h"

namespace folivox::cli {

namespace {

BookBuildInputs libraryBook(const BuildOptions& o)
{
    const QString root = LibraryLocation::root(o.library.value_or(QString()));
    try {
        return LibraryBookBuild::inputs(root, *o.book);
    } catch (const Error& e) {
        throw BuildFailure::failed(e.description(), root);
    }
}

void recordLibraryBuild(const BuildOptions& o, const BookBuildInputs& book, const BuildResult& result)
{
    const QString root = LibraryLocation::root(o.library.value_or(QString()));
    try {
        LibraryBookBuild::record(root, book.bookID, book.record(result.outcome.outputFiles));
    } catch (const Error& e) {
        // The book is built; only the library's note of it is missing.
        Console::err(QStringLiteral("folivox build: the book was built, but the library could not record it: ")
                     + e.description() + u'\n');
    }
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
    return BuildOptionParser::usage();
}

int BuildCommand::run(const QStringList& args)
{
    const bool json = args.contains(QStringLiteral("--json"));
    const auto parsed = BuildOptionParser::parse(args);
    if (const QString* error = std::get_if<QString>(&parsed))
        return BuildResultPrinter::printFailure(BuildFailure::usage(*error), json);
    const BuildOptions& o = std::get<BuildOptions>(parsed);
    Log::setVerbose(o.verbose);

    auto token = std::make_shared<ManualCancellationToken>();
    CancelOnSignal cancelOnSignal(token);
    ProgressReporter progress = ProgressReporter::forConsole(o.quiet);
    BuildUseCase::Sinks sinks;
    sinks.progress = [&progress](const QString& phase, double fraction) { progress.update(phase, fraction); };
    sinks.note = [&progress](const QString& text) {
        // Warnings reach the user even with --quiet: a file left out or a
        // chapter-file problem must never pass in silence.
        progress.finish();
        Console::err(text + u'\n');
    };
    sinks.info = [&progress, &o](const QString& text) {
        if (o.quiet)
            return;
        progress.finish();
        Console::err(text + u'\n');
    };
    sinks.started = [&progress](double bookSeconds) { progress.setMediaSeconds(bookSeconds); };
    try {
        // A library book brings its own tracks, chapters, tags and settings;
        // options given on the command line go over them.
        std::optional<BookBuildInputs> book;
        if (o.book)
            book = libraryBook(o);
        BuildRequest request = BuildOptionParser::requestFrom(o, book ? std::optional(book->settings) : std::nullopt);
        if (book)
            request.book = ImportedBook{book->tracks, book->bookmarks, book->metadata};
        if (o.dryRun) {
            const BuildPlan plan = BuildUseCase().preview(request, token, sinks);
            progress.finish();
            BuildResultPrinter::printPlan(plan, o.json);
            return ExitSuccess;
        }
        const BuildResult result = BuildUseCase().run(request, token, sinks);
        progress.finish();
        if (book)
            recordLibraryBuild(o, *book, result);
        BuildResultPrinter::printSuccess(result, o.json);
        return ExitSuccess;
    } catch (const BuildFailure& failure) {
        progress.finish();
        return BuildResultPrinter::printFailure(failure, o.json, o.quiet);
    }
}

} // namespace folivox::cli
