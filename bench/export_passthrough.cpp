// Throughput of a copy build: one AAC M4B of about 500 MB with nothing to
// change goes through `folivox build` (strategy passthroughEntireFile: the
// audio is copied, then tags, cover and chapters are written), against `cp`
// of the same file, side by side in one run. Both read the source from the
// page cache and write into the same folder.
//
//   cmake --build build --target bench_export_passthrough folivox mp4tags mp4art mp4chaps
//   build/bin/bench_export_passthrough [rounds]
//
// The generated book is kept in <temp>/folivox-bench-passthrough between
// runs. The target is at least 70% of cp's throughput.

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
    {
        QFile in(book);
        if (in.open(QIODevice::ReadOnly))
            while (!in.read(4 << 20).isEmpty()) {
            }
    }

    std::printf("source %.1f MB; %d round(s)\n", double(size) / 1e6, rounds);
    std::vector<double> cpTimes;
    std::vector<double> folivoxTimes;
    for (int i = 0; i < rounds; ++i) {
        const QString a = out.filePath(QStringLiteral("cp-%1.m4b").arg(i));
        const Result c = run(QStringLiteral("cp"), {book, a});
        const QString b = out.filePath(QStringLiteral("folivox-%1.m4b").arg(i));
        const Result f = run(folivox, {QStringLiteral("build"), book, QStringLiteral("-o"), b,
                                       QStringLiteral("--keep-bitrate"), QStringLiteral("--no-sidecar"),
                                       QStringLiteral("--quiet"), QStringLiteral("--title"), QStringLiteral("Large Book")});
        if (c.exitCode != 0 || f.exitCode != 0) {
            std::fprintf(stderr, "a copy failed: %s %s\n", c.err.constData(), f.err.constData());
            return 1;
        }
        std::printf("round %d: cp %.2f s (%.0f MB/s)   folivox build %.2f s (%.0f MB/s)   %.0f%% of cp\n", i + 1,
                    c.seconds, size / 1e6 / c.seconds, f.seconds, size / 1e6 / f.seconds, 100.0 * c.seconds / f.seconds);
        cpTimes.push_back(c.seconds);
        folivoxTimes.push_back(f.seconds);
        QFile::remove(a);
        QFile::remove(b);
    }
    const double share = median(cpTimes) / median(folivoxTimes);
    std::printf("median: cp %.0f MB/s, folivox build %.0f MB/s: %.0f%% of cp (target >= 70%%: %s)\n",
                size / 1e6 / median(cpTimes), size / 1e6 / median(folivoxTimes), 100.0 * share,
                share >= 0.7 ? "met" : "NOT met");
    return 0;
}
