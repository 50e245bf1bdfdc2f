// Throughput of a copy build: one AAC M4B of about 500 MB with nothing to
// change (strategy passthroughEntireFile: the audio is copied, then tags and
// chapters are written and the output is put in place, synchronised to disk),
// against `cp` of the same file, side by side in one run. Both read the
// source from the page cache and write into the same folder.
//
// Three figures per round:
//   - the passthrough build itself, run in process by the export service on
//     a book that has been imported and whose format is known (as it is
//     once a book is open), against `cp` alone: the throughput target;
//   - the same against `cp` followed by `sync` of the copy, since the
//     build's output is on disk when it reports success and cp's is not;
//   - the whole `folivox build` command, import and format probes included.
//
//   cmake --build build --target bench_export_passthrough folivox mp4tags mp4art mp4chaps
//   build/bin/bench_export_passthrough [rounds]
//
// The generated book is kept in <temp>/folivox-bench-passthrough between
// runs. The target is at least 70% of cp's throughput.

#include "core/settings/ExportSettings.h"
#include "export/engine/DefaultExportService.h"
#include "export/metadata/DefaultMetadataWritingService.h"
#include "import/ImportCoordinator.h"
#include "import/probe/LibavAudioInspector.h"
#include "platform/Log.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "BenchSupport.h"

namespace {

using namespace folivox;
using namespace folivox::bench;

constexpr qint64 kTargetBytes = 500LL * 1000 * 1000;

Result ffmpeg(const QStringList& args)
{
    return run(QStringLiteral("ffmpeg"), QStringList{QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"),
                                                     QStringLiteral("error"), QStringLiteral("-y")}
                                             + args);
}

// Ten minutes of 128 kbps stereo AAC, looped by stream copy to 500 MB.
QString makeBook(const QString& folder)
{
    QDir().mkpath(folder);
    const QString book = QDir(folder).filePath(QStringLiteral("Large Book.m4b"));
    if (QFileInfo(book).size() >= kTargetBytes)
        return book;
    const QString piece = QDir(folder).filePath(QStringLiteral("piece.m4a"));
    std::fprintf(stderr, "generating the source book (once)\n");
    Result r = ffmpeg({QStringLiteral("-filter_complex"),
                       QStringLiteral("sine=frequency=180:sample_rate=44100:duration=600[s];"
                                      "anoisesrc=color=pink:amplitude=0.1:sample_rate=44100:duration=600[n];"
                                      "[s][n]amix=inputs=2:normalize=0"),
                       QStringLiteral("-ac"), QStringLiteral("2"), QStringLiteral("-c:a"), QStringLiteral("aac"),
                       QStringLiteral("-aac_coder"), QStringLiteral("fast"), QStringLiteral("-b:a"),
                       QStringLiteral("128k"), QStringLiteral("-f"), QStringLiteral("ipod"), piece});
    if (r.exitCode != 0) {
        std::fprintf(stderr, "ffmpeg failed: %s\n", r.err.constData());
        return {};
    }
    const int loops = int(kTargetBytes / std::max<qint64>(1, QFileInfo(piece).size()));
    const QString part = book + QStringLiteral(".part.m4b");
    r = ffmpeg({QStringLiteral("-stream_loop"), QString::number(loops), QStringLiteral("-i"), piece, QStringLiteral("-c"),
                QStringLiteral("copy"), QStringLiteral("-movflags"), QStringLiteral("+faststart"), QStringLiteral("-f"),
                QStringLiteral("ipod"), part});
    if (r.exitCode != 0 || !QFile::rename(part, book)) {
        std::fprintf(stderr, "ffmpeg failed: %s\n", r.err.constData());
        return {};
    }
    return book;
}

// The book as an open session holds it: imported, with each track's format
// probed and cached against the file's size and date.
bool importBook(const QString& book, std::vector<Track>& tracks, std::vector<Bookmark>& chapters)
{
    ImportCoordinator coordinator;
    const ImportResult imported = coordinator.import({QUrl::fromLocalFile(book)});
    if (imported.tracks.empty())
        return false;
    tracks = imported.tracks;
    chapters = imported.chapters;
    const FormatProbeFunction probe = LibavAudioInspector::formatProbeFunction(std::make_shared<FFmpegWrapper>());
    for (Track& t : tracks) {
        const std::optional<FormatProbe> f = probe(t.url.toLocalFile());
        if (!f)
            return false;
        const QFileInfo info(t.url.toLocalFile());
        t.cachedCodec = f->codec;
        t.cachedBitrate = f->bitrate;
        t.cachedSampleRate = f->sampleRate;
        t.cachedChannels = f->channels;
        t.cachedFileSize = quint64(info.size());
        t.cachedFileModificationDate = info.lastModified();
    }
    // Each chapter holds its own copies of the tracks it covers.
    for (Bookmark& b : chapters)
        for (Track& covered : b.tracks)
            for (const Track& t : tracks)
                if (t.url == covered.url)
                    covered = t;
    return true;
}

// One passthrough build in process; seconds, or a negative number on failure.
double exportOnce(const std::vector<Track>& tracks, const std::vector<Bookmark>& chapters, const QString& output)
{
    DefaultExportService::Dependencies dependencies;
    dependencies.ffmpeg = std::make_shared<FFmpegWrapper>();
    dependencies.metadataService = std::make_shared<DefaultMetadataWritingService>();
    dependencies.formatProbe = LibavAudioInspector::formatProbeFunction(dependencies.ffmpeg);
    DefaultExportService service(dependencies);
    DefaultExportService::Request request;
    request.bookmarks = chapters;
    request.metadata.title = QStringLiteral("Large Book");
    request.outputPath = output;
    request.settings.keepSourceBitrate = true;
    request.allTracks = tracks;
    QElapsedTimer clock;
    clock.start();
    const ExportResult result = service.exportAndWait(request, std::make_shared<ManualCancellationToken>());
    const double seconds = double(clock.elapsed()) / 1000.0;
    if (!result.succeeded() || result.outcome->strategy != ExportDecision::Strategy::passthroughEntireFile) {
        std::fprintf(stderr, "the in-process build failed or did not copy: %s\n",
                     qPrintable(result.error ? result.error->description() : QStringLiteral("wrong strategy")));
        return -1;
    }
    QString phases;
    for (const auto& [phase, phaseSeconds] : result.outcome->timings)
        phases += QStringLiteral(" %1=%2").arg(phase).arg(phaseSeconds, 0, 'f', 3);
    std::printf("  in-process phases:%s\n", qPrintable(phases));
    return seconds;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, QString::fromLocal8Bit(argv[1]).toInt()) : 3;
    const QString folivox = folivoxBinary();
    if (folivox.isEmpty())
        return 1;
    const QString book = makeBook(QDir::tempPath() + QStringLiteral("/folivox-bench-passthrough"));
    if (book.isEmpty())
        return 1;
    const qint64 size = QFileInfo(book).size();
    QTemporaryDir out(QDir::tempPath() + QStringLiteral("/folivox-bench-out-XXXXXX"));
    qputenv("FOLIVOX_HOME", out.filePath(QStringLiteral("home")).toUtf8());
    std::vector<Track> tracks;
    std::vector<Bookmark> chapters;
    if (!importBook(book, tracks, chapters)) {
        std::fprintf(stderr, "could not import %s\n", qPrintable(book));
        return 1;
    }
    {
        QFile in(book);
        if (in.open(QIODevice::ReadOnly))
            while (!in.read(4 << 20).isEmpty()) {
            }
    }

    std::printf("source %.1f MB; %d round(s)\n", double(size) / 1e6, rounds);
    std::vector<double> cpTimes, cpSyncTimes, exportTimes, commandTimes;
    for (int i = 0; i < rounds; ++i) {
        run(QStringLiteral("sync"), {});
        const QString a = out.filePath(QStringLiteral("cp-%1.m4b").arg(i));
        const Result c = run(QStringLiteral("cp"), {book, a});
        const Result s = run(QStringLiteral("sync"), {a});
        const QString e = out.filePath(QStringLiteral("export-%1.m4b").arg(i));
        run(QStringLiteral("sync"), {});
        const double exportSeconds = exportOnce(tracks, chapters, e);
        const QString b = out.filePath(QStringLiteral("folivox-%1.m4b").arg(i));
        run(QStringLiteral("sync"), {});
        const Result f = run(folivox, {QStringLiteral("build"), book, QStringLiteral("-o"), b,
                                       QStringLiteral("--keep-bitrate"), QStringLiteral("--no-sidecar"),
                                       QStringLiteral("--quiet"), QStringLiteral("--title"), QStringLiteral("Large Book")});
        if (c.exitCode != 0 || s.exitCode != 0 || f.exitCode != 0 || exportSeconds < 0) {
            std::fprintf(stderr, "a copy failed: %s %s\n", c.err.constData(), f.err.constData());
            return 1;
        }
        std::printf("round %d: cp %.3f s, cp+sync %.3f s | passthrough build %.3f s (%.0f MB/s) | folivox build "
                    "command %.3f s\n",
                    i + 1, c.seconds, c.seconds + s.seconds, exportSeconds, size / 1e6 / exportSeconds, f.seconds);
        cpTimes.push_back(c.seconds);
        cpSyncTimes.push_back(c.seconds + s.seconds);
        exportTimes.push_back(exportSeconds);
        commandTimes.push_back(f.seconds);
        QFile::remove(a);
        QFile::remove(e);
        QFile::remove(b);
    }
    const double cp = median(cpTimes);
    const double build = median(exportTimes);
    const double share = cp / build;
    std::printf("median: cp %.0f MB/s; passthrough build %.0f MB/s = %.0f%% of cp (target >= 70%%: %s), %.0f%% of "
                "cp+sync; folivox build command %.0f MB/s = %.0f%% of cp\n",
                size / 1e6 / cp, size / 1e6 / build, 100.0 * share, share >= 0.7 ? "met" : "NOT met",
                100.0 * median(cpSyncTimes) / build, size / 1e6 / median(commandTimes), 100.0 * cp / median(commandTimes));
    return 0;
}
