// Wall time of a whole `folivox build` of a one-hour, 12-file MP3 book to an
// M4B in AAC-LC at 64 kbps mono, against one plain single-process ffmpeg
// encode of the same input with the same settings and encoder (the concat
// demuxer over the 12 files, "-ac 1 -c:a aac -b:a 64k", ipod muxer), timed
// side by side in one run. Folivox encodes the 12 chapters as parallel
// segments and joins them by stream copy; the single process is what a
// script would do.
//
//   cmake --build build --target bench_export_transcode folivox mp4tags mp4art mp4chaps
//   build/bin/bench_export_transcode [rounds]
//
// The generated book is kept in <temp>/folivox-bench-transcode between runs.
// The target on a 2-core machine is a ratio of at most 0.6.

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "BenchSupport.h"

namespace {

using namespace folivox::bench;

constexpr int kFiles = 12;
constexpr int kSecondsPerFile = 300;

// Speech-like enough for the encoder: a low tone under pink noise, a different
// pitch per chapter.
bool makeBook(const QString& folder)
{
    QDir().mkpath(folder);
    for (int i = 0; i < kFiles; ++i) {
        const QString path = QDir(folder).filePath(QStringLiteral("%1 Chapter.mp3").arg(i + 1, 2, 10, QChar(u'0')));
        if (QFileInfo(path).size() > 0)
            continue;
        std::fprintf(stderr, "generating %s\n", qPrintable(QFileInfo(path).fileName()));
        const QString graph = QStringLiteral("sine=frequency=%1:sample_rate=44100:duration=%2[s];"
                                             "anoisesrc=color=pink:amplitude=0.08:sample_rate=44100:duration=%2[n];"
                                             "[s][n]amix=inputs=2:normalize=0")
                                  .arg(140 + 15 * i)
                                  .arg(kSecondsPerFile);
        const Result r = run(QStringLiteral("ffmpeg"),
                             {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                              QStringLiteral("-y"), QStringLiteral("-filter_complex"), graph, QStringLiteral("-ac"),
                              QStringLiteral("1"), QStringLiteral("-c:a"), QStringLiteral("libmp3lame"),
                              QStringLiteral("-b:a"), QStringLiteral("64k"), path + QStringLiteral(".part.mp3")});
        if (r.exitCode != 0 || !QFile::rename(path + QStringLiteral(".part.mp3"), path)) {
            std::fprintf(stderr, "ffmpeg failed: %s\n", r.err.constData());
            return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, QString::fromLocal8Bit(argv[1]).toInt()) : 3;
    const QString folivox = folivoxBinary();
    if (folivox.isEmpty())
        return 1;
    const QString book = QDir::tempPath() + QStringLiteral("/folivox-bench-transcode");
    if (!makeBook(book))
        return 1;
    QTemporaryDir out(QDir::tempPath() + QStringLiteral("/folivox-bench-out-XXXXXX"));
    qputenv("FOLIVOX_HOME", out.filePath(QStringLiteral("home")).toUtf8());

    QString list;
    QStringList files = QDir(book).entryList({QStringLiteral("*.mp3")}, QDir::Files, QDir::Name);
    for (const QString& f : files)
        list += QStringLiteral("file '") + QDir(book).filePath(f).replace(u'\'', QStringLiteral("'\\''")) + QStringLiteral("'\n");
    const QString listPath = out.filePath(QStringLiteral("list.txt"));
    QFile lf(listPath);
    lf.open(QIODevice::WriteOnly);
    lf.write(list.toUtf8());
    lf.close();

    // Both contenders read the book from the page cache.
    for (const QString& f : files) {
        QFile in(QDir(book).filePath(f));
        if (in.open(QIODevice::ReadOnly))
            while (!in.read(1 << 20).isEmpty()) {
            }
    }
    std::printf("%d files, %d s of MP3 audio; %d cores; %d round(s)\n", int(files.size()), kFiles * kSecondsPerFile,
                QThread::idealThreadCount(), rounds);
    std::vector<double> folivoxTimes;
    std::vector<double> ffmpegTimes;
    for (int i = 0; i < rounds; ++i) {
        const QString a = out.filePath(QStringLiteral("folivox-%1.m4b").arg(i));
        const Result f = run(folivox, {QStringLiteral("build"), book, QStringLiteral("-o"), a, QStringLiteral("--bitrate"),
                                       QStringLiteral("64"), QStringLiteral("--channels"), QStringLiteral("mono"),
                                       QStringLiteral("--no-sidecar"), QStringLiteral("--quiet")});
        if (f.exitCode != 0) {
            std::fprintf(stderr, "folivox build failed: %s\n", f.err.constData());
            return 1;
        }
        const QString b = out.filePath(QStringLiteral("ffmpeg-%1.m4b").arg(i));
        const Result g = run(QStringLiteral("ffmpeg"),
                             {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                              QStringLiteral("-f"), QStringLiteral("concat"), QStringLiteral("-safe"), QStringLiteral("0"),
                              QStringLiteral("-i"), listPath, QStringLiteral("-vn"), QStringLiteral("-ac"),
                              QStringLiteral("1"), QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"),
                              QStringLiteral("64k"), QStringLiteral("-f"), QStringLiteral("ipod"), QStringLiteral("-y"), b});
        if (g.exitCode != 0) {
            std::fprintf(stderr, "ffmpeg failed: %s\n", g.err.constData());
            return 1;
        }
        std::printf("round %d: folivox build %.2f s   single ffmpeg %.2f s   ratio %.2f\n", i + 1, f.seconds, g.seconds,
                    f.seconds / g.seconds);
        folivoxTimes.push_back(f.seconds);
        ffmpegTimes.push_back(g.seconds);
        QFile::remove(a);
        QFile::remove(b);
    }
    const double ratio = median(folivoxTimes) / median(ffmpegTimes);
    std::printf("median: folivox build %.2f s, single ffmpeg %.2f s, ratio %.2f (target <= 0.60: %s)\n",
                median(folivoxTimes), median(ffmpegTimes), ratio, ratio <= 0.6 ? "met" : "NOT met");
    return 0;
}
