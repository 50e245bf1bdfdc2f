// Relocation throughput against cp on the same file.
//
//   bench_container_relocate [folder] [megabytes]
//
// Builds a book of the given size (default 1024 MB) whose media is real data
// (no holes, so neither side can skip it), with moov at the end. Times
//   - `cp` alone (the copy sits in the page cache when it returns);
//   - `cp`, `sync` of the copy, `mv` over an existing book: the same durable
//     replacement the relocator makes, done with the shell's tools;
//   - FastStartRelocator::relocate, whole, and its streaming phase alone
//     (from the first piece to the last, taken from its fault-injection
//     points), which is the part comparable to `cp` alone. "Whole" ends when
//     the relocated book is on disk under its name; the kernel's freeing of
//     the replaced file's blocks goes on in the background after that.
// Each is run three times; the best run counts.
#include "container/mp4/FastStartRelocator.h"
#include "container/io/FaultInjection.h"
#include "container/mp4/MP4Bytes.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

using namespace folivox;

namespace {
QByteArray be32(std::uint32_t v)
{
    return MP4Bytes::be32Bytes(v);
}
QByteArray box(const char* type, const QByteArray& body)
{
    return be32(std::uint32_t(8 + body.size())) + QByteArray(type, 4) + body;
}

QByteArray moovFor(std::uint32_t mdatStart, std::uint64_t mdatSize)
{
    const std::uint32_t chunks = std::uint32_t(mdatSize / 32768);
    QByteArray stco = QByteArray(4, 0) + be32(chunks);
    for (std::uint32_t i = 0; i < chunks; ++i)
        stco += be32(mdatStart + i * 32768);
    return box("moov", box("trak", box("mdia", box("minf", box("stbl", box("stco", stco))))));
}

double seconds(const std::function<void()>& f)
{
    QElapsedTimer t;
    t.start();
    f();
    return double(t.nsecsElapsed()) / 1e9;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::tempPath();
    const std::uint64_t megabytes = argc > 2 ? std::uint64_t(std::atoll(argv[2])) : 1024;
    QTemporaryDir dir(folder + QStringLiteral("/folivox-bench-XXXXXX"));
    const QString master = dir.filePath(QStringLiteral("master.m4b"));
    const QString book = dir.filePath(QStringLiteral("book.m4b"));
    const QString copy = dir.filePath(QStringLiteral("copy.m4b"));

    const QByteArray ftyp = box("ftyp", QByteArray("M4A ") + be32(0) + "M4A isom");
    const std::uint64_t mdatSize = megabytes * 1048576 - 8;
    {
        QFile f(master);
        f.open(QIODevice::WriteOnly);
        f.write(ftyp + be32(std::uint32_t(mdatSize + 8)) + "mdat");
        QByteArray piece(4 * 1048576, Qt::Uninitialized);
        std::uint64_t left = mdatSize;
        while (left > 0) {
            QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(piece.data()), piece.size() / 4);
            const qint64 n = qint64(std::min<std::uint64_t>(left, std::uint64_t(piece.size())));
            f.write(piece.constData(), n);
            left -= std::uint64_t(n);
        }
        f.write(moovFor(std::uint32_t(ftyp.size() + 8), mdatSize));
    }
    const double size = double(QFile(master).size());

    // Before each timed run, everything dirty goes to disk so that no run
    // pays for the previous one's writeback.
    const auto settle = [] { QProcess::execute("sync", {}); };
    double cpBest = 1e9, replaceBest = 1e9, relocateBest = 1e9, streamBest = 1e9;
    const QString staged = dir.filePath(QStringLiteral("staged.m4b"));
    for (int i = 0; i < 3; ++i) {
        QFile::remove(copy);
        settle();
        cpBest = std::min(cpBest, seconds([&] { QProcess::execute("cp", {master, copy}); }));
        QFile::remove(copy);
        QProcess::execute("cp", {master, book});
        settle();
        replaceBest = std::min(replaceBest, seconds([&] {
                                   QProcess::execute("cp", {master, staged});
                                   QProcess::execute("sync", {staged});
                                   QProcess::execute("mv", {staged, book});
                               }));
        QFile::remove(book);
        QProcess::execute("cp", {master, book});
        settle();
        // From the start to the last piece written: reading the layout, the
        // moov and the streaming, without the sync and the put-back.
        QElapsedTimer clock;
        qint64 lastPiece = 0;
        FaultInjection::Scope marks([&](const QString& point) {
            if (point == QLatin1String("relocate.piece"))
                lastPiece = clock.nsecsElapsed();
        });
        clock.start();
        const double whole = seconds([&] {
            const auto o = FastStartRelocator::relocate(book);
            if (o.kind != FastStartRelocator::Outcome::Kind::relocated)
                std::fprintf(stderr, "relocation did not run\n");
        });
        relocateBest = std::min(relocateBest, whole);
        streamBest = std::min(streamBest, double(lastPiece) / 1e9);
    }
    const auto mbps = [&](double s) { return size / 1048576.0 / s; };
    std::printf("file: %.0f MB\n", size / 1048576.0);
    std::printf("cp:                      %.3f s  %5.0f MB/s\n", cpBest, mbps(cpBest));
    std::printf("cp + sync + mv:          %.3f s  %5.0f MB/s\n", replaceBest, mbps(replaceBest));
    std::printf("relocate, streaming:     %.3f s  %5.0f MB/s  (%.0f%% of cp)\n", streamBest, mbps(streamBest),
                100.0 * cpBest / streamBest);
    std::printf("relocate, whole:         %.3f s  %5.0f MB/s  (%.0f%% of cp + sync + mv, %.0f%% of cp)\n", relocateBest,
                mbps(relocateBest), 100.0 * replaceBest / relocateBest, 100.0 * cpBest / relocateBest);
    return 0;
}
