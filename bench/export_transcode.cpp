// Wall time of a whole `folivox build` to an M4B in AAC-LC at 64 kbps mono,
// against one plain single-process ffmpeg encode of the same input with the
// same settings and encoder ("-ac 1 -c:a aac -b:a 64k", ipod muxer), timed
// side by side in one run, for two books: one hour in 12 MP3 files, and one
// hour in a single MP3 file with a chapter file of two chapters. Folivox cuts
// each book by time into frame-aligned slices, encodes them in parallel and
// joins them gaplessly by stream copy; the single process is what a script
// would do. Also prints the slice plan's critical path for 16 jobs (the
// busiest job's share of all the encoding): the target is at most 1/14.
//
//   cmake --build build --target bench_export_transcode folivox mp4tags mp4art mp4chaps
//   build/bin/bench_export_transcode [rounds]
//
// The generated book is kept in <temp>/folivox-bench-transcode between runs.
// The target on a 2-core machine is a ratio of at most 0.58 for both books.

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
#include "export/strategies/SlicePlanner.h"

namespace {

using namespace folivox::bench;

constexpr int kFiles = 12;
constexpr int kSecondsPerFile = 300;

// Speech-like enough for the encoder: a low tone under pink noise, a different
// pitch per chapter.
bool makeBook(const QString& folder, int files, int secondsPerFile)
{
    QDir().mkpath(folder);
    for (int i = 0; i < files; ++i) {
        const QString path = QDir(folder).filePath(QStringLiteral("%1 Chapter.mp3").arg(i + 1, 2, 10, QChar(u'0')));
        if (QFileInfo(path).size() > 0)
            continue;
        std::fprintf(stderr, "generating %s\n", qPrintable(QFileInfo(path).fileName()));
        const QString graph = QStringLiteral("sine=frequency=%1:sample_rate=44100:duration=%2[s];"
                                             "anoisesrc=color=pink:amplitude=0.08:sample_rate=44100:duration=%2[n];"
                                             "[s][n]amix=inputs=2:normalize=0")
                                  .arg(140 + 15 * i)
                                  .arg(secondsPerFile);
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

struct Book {
    QString name;
    QString folder;
    QStringList extraArgs; // for folivox build
};

// Times both contenders on one book; returns the median ratio, or a negative
// value on failure.
double timeBook(const Book& book, const QString& folivox, const QString& work, int rounds)
{
    QString list;
    const QStringList files = QDir(book.folder).entryList({QStringLiteral("*.mp3")}, QDir::Files, QDir::Name);
    for (const QString& f : files)
        list += QStringLiteral("file '") + QDir(book.folder).filePath(f).replace(u'\'', QStringLiteral("'\\''")) + QStringLiteral("'\n");
    const QString listPath = QDir(work).filePath(QStringLiteral("list.txt"));
    QFile lf(listPath);
    lf.open(QIODevice::WriteOnly);
    lf.write(list.toUtf8());
    lf.close();

    // Both contenders read the book from the page cache.
    for (const QString& f : files) {
        QFile in(QDir(book.folder).filePath(f));
        if (in.open(QIODevice::ReadOnly))
            while (!in.read(1 << 20).isEmpty()) {
            }
    }
    std::printf("%s: %d file(s), %d s of MP3 audio; %d cores; %d round(s)\n", qPrintable(book.name), int(files.size()),
                kFiles * kSecondsPerFile, QThread::idealThreadCount(), rounds);
    std::vector<double> folivoxTimes;
    std::vector<double> ffmpegTimes;
    for (int i = 0; i < rounds; ++i) {
        const QString a = QDir(work).filePath(QStringLiteral("folivox-%1.m4b").arg(i));
        QStringList args{QStringLiteral("build")};
        for (const QString& f : files)
            args << QDir(book.folder).filePath(f);
        args << QStringLiteral("-o") << a << QStringLiteral("--bitrate") << QStringLiteral("64") << QStringLiteral("--channels")
             << QStringLiteral("mono") << QStringLiteral("--quiet") << book.extraArgs;
        const Result f = run(folivox, args);
        if (f.exitCode != 0) {
            std::fprintf(stderr, "folivox build failed: %s\n", f.err.constData());
            return -1;
        }
        const QString b = QDir(work).filePath(QStringLiteral("ffmpeg-%1.m4b").arg(i));
        const Result g = run(QStringLiteral("ffmpeg"),
                             {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                              QStringLiteral("-f"), QStringLiteral("concat"), QStringLiteral("-safe"), QStringLiteral("0"),
                              QStringLiteral("-i"), listPath, QStringLiteral("-vn"), QStringLiteral("-ac"),
                              QStringLiteral("1"), QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"),
                              QStringLiteral("64k"), QStringLiteral("-f"), QStringLiteral("ipod"), QStringLiteral("-y"), b});
        if (g.exitCode != 0) {
            std::fprintf(stderr, "ffmpeg failed: %s\n", g.err.constData());
            return -1;
        }
        std::printf("  round %d: folivox build %.2f s   single ffmpeg %.2f s   ratio %.2f\n", i + 1, f.seconds, g.seconds,
                    f.seconds / g.seconds);
        folivoxTimes.push_back(f.seconds);
        ffmpegTimes.push_back(g.seconds);
        QFile::remove(a);
        QFile::remove(b);
    }
    const double ratio = median(folivoxTimes) / median(ffmpegTimes);
    std::printf("  median: folivox build %.2f s, single ffmpeg %.2f s, ratio %.2f (target <= 0.58: %s)\n",
                median(folivoxTimes), median(ffmpegTimes), ratio, ratio <= 0.58 ? "met" : "NOT met");
    // The plan the build makes for this book on a 16-job machine.
    folivox::SlicePlanner::Options options;
    options.jobs = 16;
    const auto plan = folivox::SlicePlanner::plan(std::int64_t(kFiles) * kSecondsPerFile * 44100, 44100, {}, options);
    const double path = plan.criticalPath(16);
    std::printf("  slice plan for 16 jobs: %d slices, critical path %.4f of the work (target <= %.4f: %s)\n",
                int(plan.slices.size()), path, 1.0 / 14, path <= 1.0 / 14 ? "met" : "NOT met");
    return ratio;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, QString::fromLocal8Bit(argv[1]).toInt()) : 3;
    const QString folivox = folivoxBinary();
    if (folivox.isEmpty())
        return 1;
    const QString root = QDir::tempPath() + QStringLiteral("/folivox-bench-transcode");
    const QString single = QDir::tempPath() + QStringLiteral("/folivox-bench-transcode-single");
    if (!makeBook(root, kFiles, kSecondsPerFile) || !makeBook(single, 1, kFiles * kSecondsPerFile))
        return 1;
    const QString chapters = QDir(single).filePath(QStringLiteral("chapters.txt"));
    QFile cf(chapters);
    cf.open(QIODevice::WriteOnly);
    cf.write("00:00:00.000 First half\n00:31:07.250 Second half\n");
    cf.close();
    QTemporaryDir out(QDir::tempPath() + QStringLiteral("/folivox-bench-out-XXXXXX"));
    qputenv("FOLIVOX_HOME", out.filePath(QStringLiteral("home")).toUtf8());

    const std::vector<Book> books{
        {QStringLiteral("twelve files"), root, {QStringLiteral("--no-sidecar")}},
        {QStringLiteral("one file, two chapters"), single, {QStringLiteral("--chapters"), chapters}},
    };
    bool ok = true;
    for (const Book& book : books)
        ok = timeBook(book, folivox, out.path(), rounds) >= 0 && ok;
    return ok ? 0 : 1;
}
