#include "cli/DemoCommand.h"

#include "build/BuildFailure.h"
#include "build/BuildOutputPlanner.h"
#include "build/BuildUseCase.h"
#include "cli/BuildResultPrinter.h"
#include "cli/Command.h"
#include "cli/ProgressReporter.h"
#include "cli/CancelOnSignal.h"
#include "cli/Console.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "platform/Error.h"
#include "platform/Log.h"

#include <QColor>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>

#include <cmath>

namespace folivox::cli {

QString DemoCommand::name() const
{
    return QStringLiteral("demo");
}

QString DemoCommand::summary() const
{
    return QStringLiteral("build a short sample book");
}

QString DemoCommand::usage() const
{
    return QStringLiteral("Usage: folivox demo [--json] [-q] [-v] [-o PATH]\n\n"
                          "Generates four short chapters of audio and a cover, and builds them into\n"
                          "\"Folivox Sample Book.m4b\" in the current directory (or PATH).\n\n"
                          "Options:\n"
                          "  -o, --output PATH  where the book goes\n"
                          "  --json             print the result as JSON on stdout\n"
                          "  -q, --quiet        no progress\n"
                          "  -v, --verbose      echo the diagnostic log on stderr\n"
                          "  -h, --help         show this text\n");
}

QStringList DemoCommand::chapterTitles()
{
    return {QStringLiteral("Opening"), QStringLiteral("The Long Road"), QStringLiteral("A Quiet Interlude"),
            QStringLiteral("Homecoming")};
}

QStringList DemoCommand::makeSampleBook(const QString& folder, double secondsPerChapter)
{
    const FFmpegWrapper ffmpeg;
    const QStringList titles = chapterTitles();
    const int frequencies[] = {330, 440, 523, 392};
    QStringList files;
    for (int i = 0; i < titles.size(); ++i) {
        const QString path = QDir(folder).filePath(QStringLiteral("%1 %2.mp3").arg(i + 1, 2, 10, QChar(u'0')).arg(titles[i]));
        // A tone with a gentle tremolo, so each chapter sounds like itself.
        const QStringList args{QStringLiteral("-f"),
                               QStringLiteral("lavfi"),
                               QStringLiteral("-i"),
                               QStringLiteral("sine=frequency=%1:sample_rate=44100:duration=%2")
                                   .arg(frequencies[i % 4])
                                   .arg(secondsPerChapter, 0, 'f', 3),
                               QStringLiteral("-af"),
                               QStringLiteral("tremolo=f=3:d=0.4"),
                               QStringLiteral("-ac"),
                               QStringLiteral("1"),
                               QStringLiteral("-metadata"),
                               QStringLiteral("title=") + titles[i],
                               QStringLiteral("-metadata"),
                               QStringLiteral("album=") + QString::fromLatin1(bookTitle),
                               QStringLiteral("-metadata"),
                               QStringLiteral("artist=") + QString::fromLatin1(bookAuthor),
                               QStringLiteral("-metadata"),
                               QStringLiteral("track=%1/%2").arg(i + 1).arg(titles.size()),
                               QStringLiteral("-c:a"),
                               QStringLiteral("libmp3lame"),
                               QStringLiteral("-b:a"),
                               QStringLiteral("64k"),
                               QStringLiteral("-y"),
                               path};
        const FFmpegResult r = ffmpeg.run(args, secondsPerChapter, CancellationToken::never());
        if (!r.succeeded())
            throw GenericError(QStringLiteral("Could not make the sample audio ") + QFileInfo(path).fileName()
                               + QStringLiteral(": ") + r.error.value_or(QString()));
        files << path;
    }

    // A cover: a warm gradient with a pale disc.
    QImage image(600, 600, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const double dx = x - 300.0;
            const double dy = y - 260.0;
            const bool disc = std::sqrt(dx * dx + dy * dy) < 150.0;
            const int r = disc ? 250 : 40 + y * 150 / 600;
            const int g = disc ? 232 : 70 + x * 60 / 600;
            const int b = disc ? 190 : 110;
            image.setPixel(x, y, qRgb(r, g, b));
        }
    }
    const QString cover = QDir(folder).filePath(QStringLiteral("cover.png"));
    if (!image.save(cover, "PNG"))
        throw GenericError(QStringLiteral("Could not write the sample cover ") + cover);
    return files;
}

QString DemoCommand::freeOutputPath(const QString& folder)
{
    const QString base = QString::fromLatin1(bookTitle);
    QString path = QDir(folder).absoluteFilePath(base + QStringLiteral(".m4b"));
    for (int n = 2; QFileInfo::exists(path); ++n)
        path = QDir(folder).absoluteFilePath(QStringLiteral("%1 %2.m4b").arg(base).arg(n));
    return path;
}

int DemoCommand::run(const QStringList& args)
{
    std::optional<QString> output;
    bool json = false;
    bool quiet = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == u"--json") {
            json = true;
        } else if (args[i] == u"-q" || args[i] == u"--quiet") {
            quiet = true;
        } else if (args[i] == u"-v" || args[i] == u"--verbose") {
            Log::setVerbose(true);
        } else if ((args[i] == u"-o" || args[i] == u"--output") && i + 1 < args.size()) {
            output = args[++i];
        } else {
            Console::err(QStringLiteral("folivox demo: unknown option '%1'\n").arg(args[i]) + usage());
            return ExitUsage;
        }
    }

    QTemporaryDir work(QDir::tempPath() + QStringLiteral("/folivox-demo-XXXXXX"));
    if (!work.isValid()) {
        Console::err(QStringLiteral("folivox demo: cannot make a temporary folder\n"));
        return ExitFailure;
    }
    if (!quiet && !json)
        Console::err(QStringLiteral("Generating a sample book: %1 chapters of tones and a cover…\n").arg(chapterTitles().size()));
    QStringList files;
    try {
        files = makeSampleBook(work.path());
    } catch (const Error& e) {
        Console::err(QStringLiteral("folivox demo: ") + e.description() + u'\n');
        return ExitFailure;
    }
    const QString target = !output                     ? freeOutputPath(QDir::currentPath())
                           : QFileInfo(*output).isDir() ? freeOutputPath(*output)
                                                        : BuildOutputPlanner::plan(output, QString::fromLatin1(bookTitle),
                                                                                   OutputFormat::m4b);
    BuildRequest request;
    request.inputs = {work.path()};
    request.tags.title = QString::fromLatin1(bookTitle);
    request.tags.author = QString::fromLatin1(bookAuthor);
    request.tags.narrator = QStringLiteral("A Sine Wave");
    request.tags.genre = QStringLiteral("Audiobook");
    request.tags.year = QStringLiteral("2025");
    request.coverPath = QDir(work.path()).filePath(QStringLiteral("cover.png"));
    request.settings.coverSize = CoverSize::px600;
    request.settings.cbrBitrateKbps = 64;
    request.settings.keepSourceBitrate = false;
    request.noSidecar = true;
    request.output = target;

    auto token = std::make_shared<ManualCancellationToken>();
    const CancelOnSignal cancelOnSignal(token);
    ProgressReporter progress = ProgressReporter::forConsole(quiet || json);
    BuildUseCase::Sinks sinks;
    sinks.progress = [&progress](const QString& phase, double fraction) { progress.update(phase, fraction); };
    int status = ExitSuccess;
    try {
        const BuildResult result = BuildUseCase().run(request, token, sinks);
        progress.finish();
        BuildResultPrinter::printSuccess(result, json);
    } catch (const BuildFailure& failure) {
        progress.finish();
        status = BuildResultPrinter::printFailure(failure, json, quiet);
    }
    if (status == ExitSuccess && !json && !quiet) {
        QString text = QStringLiteral("The sample book was made from:\n");
        for (const QString& f : files)
            text += QStringLiteral("  ") + QFileInfo(f).fileName() + u'\n';
        text += QStringLiteral("Listen to it: ") + target + u'\n';
        Console::out(text);
    }
    return status;
}

} // namespace folivox::cli
