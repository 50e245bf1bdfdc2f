// MP3 integrity: how fast the frame walk reads, and what a repair costs.
//
//   cmake --build build --target bench_mp3_integrity folivox
//   build/bin/bench_mp3_integrity [rounds]
//
// 1. Scan: a 1 GB MP3 (128 kbps stereo pink noise, its frames repeated), read
//    from the page cache, scanned in process (memory-mapped) against
//    `cat FILE` to the null device, side by side in each round. Target: the
//    scan at least half as fast as cat.
// 2. Repair: the first 200 MB of it with 20 runs of garbage inserted, repaired
//    by FileRepairService (frame copy and one verifying decode), against the
//    frame copy alone, `ffmpeg -c:a copy` and a full ffmpeg re-encode at the
//    same bitrate. Then the same file with 4 runs of 5 frames whose data is
//    noise (headers intact, so they are copied but do not decode), repaired
//    by FileRepairService: the frame copy, a decode that fails, the decode
//    in process that finds the frames, the stretches re-encoded and spliced
//    in, and a last decode of the whole copy. (Before stretches were
//    re-encoded alone, this re-encoded the whole file.)
// Files live in a temporary folder under the temporary directory and are
// deleted at the end.

#include "container/mp3/MP3FileBytes.h"
#include "container/mp3/MP3FrameCopyWriter.h"
#include "container/mp3/MP3FrameScanner.h"
#include "container/mp3/MP3IntegrityService.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "import/repair/FileRepairService.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>
#include <vector>

#include "BenchSupport.h"

namespace {

using namespace folivox;
using namespace folivox::bench;

constexpr qint64 kScanBytes = 1000LL * 1000 * 1000;
constexpr qint64 kRepairBytes = 200LL * 1000 * 1000;

Result ffmpeg(const QStringList& args)
{
    return run(QStringLiteral("ffmpeg"), QStringList{QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"),
                                                     QStringLiteral("error"), QStringLiteral("-y")}
                                             + args);
}

// The audio frames of a short encode, repeated after its tag and Info frame
// until the file holds `bytes`; with holes, runs of garbage go in at even
// spacing.
bool makeFile(const QString& seed, const QString& path, qint64 bytes, int holes)
{
    QFile in(seed);
    if (!in.open(QIODevice::ReadOnly))
        return false;
    const QByteArray s = in.readAll();
    const auto* p = reinterpret_cast<const std::uint8_t*>(s.constData());
    const auto scan = MP3FrameScanner::scan(p, std::size_t(s.size()));
    if (!scan || scan->audioRuns.size() != 1 || !scan->infoFrameSpan)
        return false;
    const QByteArray head = s.left(qsizetype(scan->infoFrameSpan->end));
    const QByteArray audio = s.mid(qsizetype(scan->audioRuns[0].start),
                                   qsizetype(scan->audioRuns[0].end - scan->audioRuns[0].start));
    QFile out(path);
    if (!out.open(QIODevice::WriteOnly))
        return false;
    out.write(head);
    qint64 written = head.size();
    const qint64 spacing = holes > 0 ? bytes / (holes + 1) : bytes;
    qint64 nextHole = spacing;
    QByteArray junk(12345, 'x');
    while (written + audio.size() <= bytes) {
        out.write(audio);
        written += audio.size();
        if (holes > 0 && written >= nextHole) {
            out.write(junk);
            written += junk.size();
            nextHole += spacing;
        }
    }
    return out.error() == QFile::NoError;
}

// Overwrites everything after the first two bytes of side information in
// `runs` runs of `length` frames, spread evenly over the file: the frames are
// still found by the walk, but their data no longer decodes.
bool spoilFrames(const QString& path, int runs, int length)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    const MP3FileBytes bytes(path);
    const auto scan = MP3FrameScanner::scan(bytes.data(), bytes.size());
    if (!scan || scan->validFrameCount < std::int64_t(runs) * length * 4)
        return false;
    std::vector<std::pair<qint64, qint64>> frames; // offset, length
    for (const auto& run : scan->audioRuns) {
        for (std::size_t pos = run.start; pos < run.end;) {
            const auto h = MP3FrameHeader::decode(bytes.data() + pos, run.end - pos);
            if (!h)
                return false;
            frames.emplace_back(qint64(pos), h->frameLength);
            pos += std::size_t(h->frameLength);
        }
    }
    std::uint32_t x = 12345;
    for (int r = 0; r < runs; ++r) {
        const std::size_t first = frames.size() * std::size_t(2 * r + 1) / std::size_t(2 * runs);
        for (std::size_t k = first; k < first + std::size_t(length); ++k) {
            QByteArray noise(frames[k].second - 6, '\0');
            for (char& c : noise) {
                x = x * 1664525u + 1013904223u;
                c = char(x >> 24);
            }
            if (!file.seek(frames[k].first + 6) || file.write(noise) != noise.size())
                return false;
        }
    }
    return true;
}

QByteArray methodName(const std::optional<FileRepairService::Outcome>& out)
{
    if (!out)
        return "failed";
    QString text = FileRepairService::methodName(out->method);
    if (!out->regions.empty()) {
        qint64 frames = 0;
        for (const auto& r : out->regions)
            frames += r.frameCount;
        text += QStringLiteral(", %1 stretches, %2 frames re-encoded").arg(out->regions.size()).arg(frames);
    }
    return text.toUtf8();
}

double mbPerSecond(qint64 bytes, double seconds)
{
    return seconds > 0 ? double(bytes) / 1e6 / seconds : 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, QString::fromLocal8Bit(argv[1]).toInt()) : 3;
    QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/folivox-bench-mp3-XXXXXX"));
    if (!dir.isValid())
        return 1;
    const QString seed = dir.filePath(QStringLiteral("seed.mp3"));
    if (ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                QStringLiteral("anoisesrc=color=pink:duration=120:sample_rate=44100"), QStringLiteral("-ac"),
                QStringLiteral("2"), QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"),
                QStringLiteral("128k"), seed})
            .exitCode
        != 0) {
        std::fprintf(stderr, "ffmpeg could not make the seed file\n");
        return 1;
    }

    // 1. Scan against cat.
    const QString big = dir.filePath(QStringLiteral("big.mp3"));
    if (!makeFile(seed, big, kScanBytes, 0))
        return 1;
    const qint64 bigSize = QFileInfo(big).size();
    run(QStringLiteral("cat"), {big}); // into the page cache
    std::vector<double> cat, scan;
    qint64 frames = 0;
    for (int i = 0; i < rounds; ++i) {
        cat.push_back(run(QStringLiteral("cat"), {big}).seconds);
        QElapsedTimer clock;
        clock.start();
        const auto report = MP3IntegrityService::scanFile(big);
        scan.push_back(double(clock.nsecsElapsed()) / 1e9);
        frames = report ? report->validFrameCount : -1;
    }
    const double catS = median(cat), scanS = median(scan);
    std::printf("scan of %.0f MB (%lld frames), median of %d rounds:\n", double(bigSize) / 1e6,
                static_cast<long long>(frames), rounds);
    std::printf("  cat FILE >/dev/null   %7.3f s  %7.0f MB/s\n", catS, mbPerSecond(bigSize, catS));
    std::printf("  scan (mapped)         %7.3f s  %7.0f MB/s  = %.2f x cat (target >= 0.5)\n", scanS,
                mbPerSecond(bigSize, scanS), catS / scanS);
    {
        QElapsedTimer clock;
        clock.start();
        MP3IntegrityService::scanFile(big, {}, MP3FileBytes::Placement::remote);
        const double s = double(clock.nsecsElapsed()) / 1e9;
        std::printf("  scan (read, as on a network volume; over the 512 MiB limit, so only the size check) %.3f s\n",
                    s);
    }
    QFile::remove(big);

    // 2. Repair of a damaged 200 MB file.
    const QString damaged = dir.filePath(QStringLiteral("damaged.mp3"));
    if (!makeFile(seed, damaged, kRepairBytes, 20))
        return 1;
    const qint64 damagedSize = QFileInfo(damaged).size();
    run(QStringLiteral("cat"), {damaged});
    std::printf("repair of %.0f MB with 20 holes:\n", double(damagedSize) / 1e6);

    {
        QElapsedTimer clock;
        clock.start();
        const MP3FileBytes bytes(damaged);
        const auto s = MP3FrameScanner::scan(bytes.data(), bytes.size());
        const double scanned = double(clock.nsecsElapsed()) / 1e9;
        MP3FrameCopyWriter::write(bytes.data(), bytes.size(), *s, dir.filePath(QStringLiteral("copy.mp3")));
        const double total = double(clock.nsecsElapsed()) / 1e9;
        std::printf("  own frame copy (scan %.3f s + write)      %7.2f s  (%zu holes dropped)\n", scanned, total,
                    s->holes.size());
        QFile::remove(dir.filePath(QStringLiteral("copy.mp3")));
    }
    {
        FileRepairService service(std::make_shared<FFmpegWrapper>());
        ManualCancellationToken token;
        QElapsedTimer clock;
        clock.start();
        const auto out = service.repairTo(damaged, dir.filePath(QStringLiteral("repaired.mp3")), token);
        std::printf("  FileRepairService (copy + ffmpeg decode)  %7.2f s  method %s\n",
                    double(clock.nsecsElapsed()) / 1e9, methodName(out).constData());
        QFile::remove(dir.filePath(QStringLiteral("repaired.mp3")));
    }
    const Result copy = ffmpeg({QStringLiteral("-i"), damaged, QStringLiteral("-map"), QStringLiteral("0:a"),
                                QStringLiteral("-c:a"), QStringLiteral("copy"), dir.filePath(QStringLiteral("c.mp3"))});
    const auto copied = MP3IntegrityService::scanFile(dir.filePath(QStringLiteral("c.mp3")));
    std::printf("  ffmpeg -c:a copy                          %7.2f s  (exit %d; its copy: %lld frames, %zu holes)\n",
                copy.seconds, copy.exitCode, copied ? static_cast<long long>(copied->validFrameCount) : -1LL,
                copied ? copied->holes.size() : 0);
    QFile::remove(dir.filePath(QStringLiteral("c.mp3")));
    const Result reencode =
        ffmpeg({QStringLiteral("-i"), damaged, QStringLiteral("-map"), QStringLiteral("0:a"), QStringLiteral("-c:a"),
                QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("128k"),
                dir.filePath(QStringLiteral("r.mp3"))});
    std::printf("  ffmpeg re-encode (libmp3lame 128k)        %7.2f s  (exit %d)\n", reencode.seconds,
                reencode.exitCode);
    QFile::remove(dir.filePath(QStringLiteral("r.mp3")));

    // 3. The same file with frames that do not decode.
    if (!spoilFrames(damaged, 4, 5))
        return 1;
    run(QStringLiteral("cat"), {damaged});
    std::printf("repair of %.0f MB with 20 holes and 4 runs of 5 undecodable frames:\n", double(damagedSize) / 1e6);
    {
        FileRepairService service(std::make_shared<FFmpegWrapper>());
        ManualCancellationToken token;
        QElapsedTimer clock;
        clock.start();
        const auto out = service.repairTo(damaged, dir.filePath(QStringLiteral("repaired.mp3")), token);
        std::printf("  FileRepairService                         %7.2f s  method %s\n",
                    double(clock.nsecsElapsed()) / 1e9, methodName(out).constData());
    }
    return 0;
}
