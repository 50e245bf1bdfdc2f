// Tags, a cover and 100 chapters written into a 1 GB M4B by Folivox's own
// mp4tags, mp4art and mp4chaps (as the metadata writer runs them: tags,
// cover, QuickTime chapters, Nero chapters), beside one `ffmpeg -c copy`
// remux that writes the same metadata. Prints the time and the bytes written
// by each.
//
//   bench_metadata_write [folder] [sizeMB]
//
// The tools are taken from $FOLIVOX_TOOLS_DIR, else from this program's own
// folder (the build's bin/). The book's audio is a sparse hole described by
// real sample tables (one AAC sample description taken from a file ffmpeg
// encodes here, and 1024-byte samples in chunks of 64), so its moov has the
// size a real book of that length has. "Bytes written" is what the child
// processes sent towards storage (getrusage's block output of the reaped
// children); "bytes changed" compares the book with a sparse copy made
// before the run.
#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4MoovReader.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QBuffer>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

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
QByteArray fullBox(const char* type, const QByteArray& body)
{
    return box(type, QByteArray(4, '\0') + body);
}
QByteArray matrix()
{
    QByteArray m;
    for (std::uint32_t v : {0x00010000u, 0u, 0u, 0u, 0x00010000u, 0u, 0u, 0u, 0x40000000u})
        m += be32(v);
    return m;
}

// Bytes the reaped children have sent towards storage (pages they dirtied),
// from getrusage's block-output count of 512-byte units.
qint64 childBytesWritten()
{
    struct rusage usage {};
    getrusage(RUSAGE_CHILDREN, &usage);
    return qint64(usage.ru_oublock) * 512;
}

struct Run {
    int exitCode = -1;
    double seconds = 0;
    QByteArray err;
};

Run run(const QString& program, const QStringList& args)
{
    QElapsedTimer t;
    t.start();
    QProcess p;
    p.setStandardInputFile(QProcess::nullDevice());
    p.start(program, args);
    p.waitForFinished(-1);
    Run r;
    r.seconds = double(t.nsecsElapsed()) / 1e9;
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.err = p.readAllStandardError();
    return r;
}

bool must(const Run& r, const char* what)
{
    if (r.exitCode == 0)
        return true;
    std::fprintf(stderr, "%s failed: %s\n", what, r.err.constData());
    return false;
}

// The stsd of a short AAC file encoded by ffmpeg.
QByteArray aacSampleDescription(const QString& folder)
{
    const QString small = QDir(folder).filePath(QStringLiteral("small.m4a"));
    if (!must(run(QStringLiteral("ffmpeg"), {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                                            QStringLiteral("-y"), QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                            QStringLiteral("sine=duration=1"), QStringLiteral("-c:a"), QStringLiteral("aac"), small}),
              "ffmpeg (sample description)"))
        return {};
    MP4BoxTree::Node moov = MP4BoxTree::parse(MP4MoovReader::read(small).data);
    const MP4BoxTree::Node* stsd = MP4BoxTree::find(moov, {MP4Bytes::fourCC("trak"), MP4Bytes::fourCC("mdia"), MP4Bytes::fourCC("minf"),
                                                           MP4Bytes::fourCC("stbl"), MP4Bytes::fourCC("stsd")});
    return stsd ? MP4BoxTree::serialize(*stsd) : QByteArray();
}

// ftyp, a sparse mdat of `mediaBytes`, and a moov describing it as 1024-byte
// AAC samples at 44.1 kHz in chunks of 64 samples.
bool writeBook(const QString& path, const QByteArray& stsd, std::uint64_t mediaBytes)
{
    const std::uint32_t sampleSize = 1024;
    const std::uint32_t perChunk = 64;
    const std::uint32_t samples = std::uint32_t(mediaBytes / sampleSize);
    const std::uint32_t chunks = (samples + perChunk - 1) / perChunk;
    const QByteArray ftyp = box("ftyp", QByteArray("M4A ") + be32(512) + QByteArray("M4A isomiso2"));
    const bool largeMdat = 8 + mediaBytes > 0xFFFFFFFFu;
    const std::uint64_t mdatStart = std::uint64_t(ftyp.size()) + (largeMdat ? 16 : 8);
    const std::uint64_t durationMs = std::uint64_t(samples) * 1024 * 1000 / 44100;

    QByteArray stsz = be32(0) + be32(samples);
    stsz.reserve(8 + qsizetype(samples) * 4);
    const QByteArray one = be32(sampleSize);
    for (std::uint32_t i = 0; i < samples; ++i)
        stsz += one;
    const bool wide = mdatStart + mediaBytes > 0xFFFFFFFFu;
    QByteArray stco = be32(chunks);
    for (std::uint32_t c = 0; c < chunks; ++c) {
        const std::uint64_t offset = mdatStart + std::uint64_t(c) * perChunk * sampleSize;
        stco += wide ? MP4Bytes::be64Bytes(offset) : be32(std::uint32_t(offset));
    }
    const QByteArray stbl = box("stbl", stsd + fullBox("stts", be32(1) + be32(samples) + be32(1024))
                                            + fullBox("stsc", be32(1) + be32(1) + be32(perChunk) + be32(1))
                                            + fullBox("stsz", stsz) + fullBox(wide ? "co64" : "stco", stco));
    const QByteArray tkhd = fullBox("tkhd", be32(0) + be32(0) + be32(1) + be32(0) + be32(std::uint32_t(durationMs)) + QByteArray(8, 0)
                                                + QByteArray(4, 0) + QByteArray("\x01\x00\x00\x00", 4) + matrix() + be32(0) + be32(0));
    QByteArray tkhdEnabled = tkhd;
    tkhdEnabled[11] = 3; // enabled, in movie
    const QByteArray mdhd = fullBox("mdhd", be32(0) + be32(0) + be32(44100) + be32(samples * 1024) + QByteArray("\x55\xC4\0\0", 4));
    const QByteArray hdlr = fullBox("hdlr", be32(0) + "soun" + QByteArray(12, 0) + QByteArray("SoundHandler", 13));
    const QByteArray dinf = box("dinf", fullBox("dref", be32(1) + box("url ", be32(1))));
    const QByteArray minf = box("minf", fullBox("smhd", be32(0)) + dinf + stbl);
    const QByteArray trak = box("trak", tkhdEnabled + box("mdia", mdhd + hdlr + minf));
    const QByteArray mvhd = fullBox("mvhd", be32(0) + be32(0) + be32(1000) + be32(std::uint32_t(durationMs)) + be32(0x00010000)
                                                + QByteArray("\x01\x00", 2) + QByteArray(10, 0) + matrix() + QByteArray(24, 0) + be32(2));
    const QByteArray moov = box("moov", mvhd + trak);

    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const QByteArray head = largeMdat ? ftyp + be32(1) + QByteArray("mdat") + MP4Bytes::be64Bytes(16 + mediaBytes)
                                      : ftyp + be32(std::uint32_t(8 + mediaBytes)) + QByteArray("mdat");
    if (f.write(head) != head.size() || !f.resize(qint64(mdatStart + mediaBytes)) || !f.seek(qint64(mdatStart + mediaBytes)))
        return false;
    return f.write(moov) == moov.size();
}

// Bytes that differ between two files of possibly different length, plus
// the length added.
qint64 changedBytes(const QString& a, const QString& b)
{
    QFile fa(a), fb(b);
    if (!fa.open(QIODevice::ReadOnly) || !fb.open(QIODevice::ReadOnly))
        return -1;
    qint64 changed = 0;
    const qint64 piece = 8 << 20;
    for (;;) {
        const QByteArray x = fa.read(piece);
        const QByteArray y = fb.read(piece);
        if (x.isEmpty() && y.isEmpty())
            break;
        const qsizetype n = std::min(x.size(), y.size());
        if (x.left(n) != y.left(n))
            for (qsizetype i = 0; i < n; ++i)
                changed += x.at(i) != y.at(i);
        changed += std::abs(x.size() - y.size());
    }
    return changed;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    QTemporaryDir temp(args.size() > 1 ? QDir(args.at(1)).filePath(QStringLiteral("metadata-bench-XXXXXX"))
                                       : QDir::temp().filePath(QStringLiteral("metadata-bench-XXXXXX")));
    const std::uint64_t sizeMB = args.size() > 2 ? args.at(2).toULongLong() : 1024;
    if (!temp.isValid() || sizeMB == 0) {
        std::fprintf(stderr, "usage: bench_metadata_write [folder] [sizeMB]\n");
        return 2;
    }
    QString toolsDir = qEnvironmentVariable("FOLIVOX_TOOLS_DIR");
    if (toolsDir.isEmpty())
        toolsDir = QCoreApplication::applicationDirPath();
    const auto tool = [&](const char* name) { return QDir(toolsDir).filePath(QString::fromLatin1(name)); };
    for (const char* t : {"mp4tags", "mp4art", "mp4chaps"})
        if (!QFileInfo(tool(t)).isExecutable()) {
            std::fprintf(stderr, "%s not found in %s (build the tool targets)\n", t, qPrintable(toolsDir));
            return 1;
        }

    const QDir dir(temp.path());
    const QByteArray stsd = aacSampleDescription(temp.path());
    const QString book = dir.filePath(QStringLiteral("book.m4b"));
    if (stsd.isEmpty() || !writeBook(book, stsd, sizeMB << 20)) {
        std::fprintf(stderr, "could not build the test book\n");
        return 1;
    }
    const QString pristine = dir.filePath(QStringLiteral("pristine.m4b"));
    if (!must(run(QStringLiteral("cp"), {QStringLiteral("--sparse=always"), book, pristine}), "cp"))
        return 1;

    // The metadata: tags, a 600 px JPEG cover, 100 chapters.
    QImage image(600, 600, QImage::Format_RGB32);
    for (int y = 0; y < 600; ++y)
        for (int x = 0; x < 600; ++x)
            image.setPixel(x, y, qRgb(x % 256, y % 256, (x * y) % 256));
    const QString cover = dir.filePath(QStringLiteral("cover.jpg"));
    image.save(cover, "JPEG", 90);
    const QStringList tags{QStringLiteral("-song"), QStringLiteral("A Long Book"), QStringLiteral("-album"), QStringLiteral("A Long Book"),
                           QStringLiteral("-artist"), QStringLiteral("Some Author"), QStringLiteral("-albumartist"),
                           QStringLiteral("Some Author"), QStringLiteral("-writer"), QStringLiteral("Some Narrator"),
                           QStringLiteral("-year"), QStringLiteral("2024"), QStringLiteral("-genre"), QStringLiteral("Audiobook"),
                           QStringLiteral("-comment"), QStringLiteral("Benchmark"), QStringLiteral("-description"),
                           QStringLiteral("Short description"), QStringLiteral("-longdesc"), QStringLiteral("A longer summary."),
                           QStringLiteral("-copyright"), QStringLiteral("(c) 2024"), QStringLiteral("-type"), QStringLiteral("audiobook"),
                           QStringLiteral("-sortname"), QStringLiteral("Long Book, A"), QStringLiteral("-sortartist"),
                           QStringLiteral("Author, Some")};
    QFile meta(dir.filePath(QStringLiteral("metadata.txt")));
    QByteArray chapterList;
    QByteArray ffmeta = ";FFMETADATA1\ntitle=A Long Book\nalbum=A Long Book\nartist=Some Author\nalbum_artist=Some Author\n"
                        "composer=Some Narrator\ndate=2024\ngenre=Audiobook\ncomment=Benchmark\ndescription=Short description\n"
                        "synopsis=A longer summary.\ncopyright=(c) 2024\nmedia_type=2\nsort_name=Long Book, A\nsort_artist=Author, Some\n";
    const std::uint64_t durationMs = (sizeMB << 20) / 1024 * 1024 * 1000 / 44100;
    for (int i = 0; i < 100; ++i) {
        const std::uint64_t start = durationMs * std::uint64_t(i) / 100;
        const std::uint64_t end = durationMs * std::uint64_t(i + 1) / 100;
        chapterList += QStringLiteral("%1:%2:%3.%4 Chapter %5\n")
                           .arg(start / 3600000, 2, 10, QLatin1Char('0'))
                           .arg(start / 60000 % 60, 2, 10, QLatin1Char('0'))
                           .arg(start / 1000 % 60, 2, 10, QLatin1Char('0'))
                           .arg(start % 1000, 3, 10, QLatin1Char('0'))
                           .arg(i + 1)
                           .toUtf8();
        ffmeta += QStringLiteral("[CHAPTER]\nTIMEBASE=1/1000\nSTART=%1\nEND=%2\ntitle=Chapter %3\n").arg(start).arg(end).arg(i + 1).toUtf8();
    }
    if (!meta.open(QIODevice::WriteOnly) || meta.write(ffmeta) != ffmeta.size())
        return 1;
    meta.close();
    QFile list(dir.filePath(QStringLiteral("book.chapters.txt")));
    if (!list.open(QIODevice::WriteOnly) || list.write(chapterList) != chapterList.size())
        return 1;
    list.close();

    std::printf("book: %llu MB of audio (sparse), %.1f hours, moov %lld bytes\n", static_cast<unsigned long long>(sizeMB),
                double(durationMs) / 3600000.0, static_cast<long long>(MP4MoovReader::read(book).originalSize));

    // The tools, in the metadata writer's order.
    const qint64 ioBeforeTools = childBytesWritten();
    QElapsedTimer total;
    total.start();
    const Run t1 = run(tool("mp4tags"), tags + QStringList{book});
    const Run t2 = run(tool("mp4art"), {QStringLiteral("--add"), cover, book});
    const Run t3 = run(tool("mp4chaps"), {QStringLiteral("--import"), QStringLiteral("--chapter-qt"), book});
    const Run t4 = run(tool("mp4chaps"), {QStringLiteral("--import"), QStringLiteral("--chapter-nero"), book});
    const double toolSeconds = double(total.nsecsElapsed()) / 1e9;
    if (!must(t1, "mp4tags") || !must(t2, "mp4art") || !must(t3, "mp4chaps -Q") || !must(t4, "mp4chaps -N"))
        return 1;
    const qint64 toolBytes = childBytesWritten() - ioBeforeTools;
    const qint64 toolChanged = changedBytes(pristine, book);
    std::printf("tools: %.3f s (mp4tags %.3f, mp4art %.3f, mp4chaps qt %.3f, nero %.3f), bytes written %lld, bytes changed %lld\n",
                toolSeconds, t1.seconds, t2.seconds, t3.seconds, t4.seconds, static_cast<long long>(toolBytes), static_cast<long long>(toolChanged));

    // One ffmpeg remux of the pristine book with the same metadata.
    const QString remuxed = dir.filePath(QStringLiteral("remuxed.m4b"));
    const qint64 ioBeforeRemux = childBytesWritten();
    const Run remux = run(QStringLiteral("ffmpeg"),
                          {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"), QStringLiteral("-nostats"),
                           QStringLiteral("-i"), pristine, QStringLiteral("-i"), meta.fileName(), QStringLiteral("-i"), cover,
                           QStringLiteral("-map"), QStringLiteral("0:a:0"), QStringLiteral("-map"), QStringLiteral("2:v"),
                           QStringLiteral("-map_metadata"), QStringLiteral("1"), QStringLiteral("-map_chapters"), QStringLiteral("1"),
                           QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-disposition:v:0"),
                           QStringLiteral("attached_pic"), QStringLiteral("-f"), QStringLiteral("ipod"), QStringLiteral("-y"), remuxed});
    if (!must(remux, "ffmpeg remux"))
        return 1;
    QElapsedTimer syncTimer;
    syncTimer.start();
    const int fd = ::open(QFile::encodeName(remuxed).constData(), O_RDONLY);
    if (fd >= 0) {
        ::fdatasync(fd);
        ::close(fd);
    }
    const double syncSeconds = double(syncTimer.nsecsElapsed()) / 1e9;
    const qint64 remuxBytes = childBytesWritten() - ioBeforeRemux;
    std::printf("ffmpeg -c copy remux: %.3f s (+%.3f s to reach the disk), bytes written %lld, output %lld bytes\n", remux.seconds,
                syncSeconds, static_cast<long long>(remuxBytes), static_cast<long long>(QFileInfo(remuxed).size()));
    std::printf("speed-up: %.1fx (%.1fx counting the remux's sync); bytes written: %.0fx fewer\n", remux.seconds / toolSeconds,
                (remux.seconds + syncSeconds) / toolSeconds, double(std::max<qint64>(remuxBytes, QFileInfo(remuxed).size()))
                                                                / double(std::max<qint64>(1, std::max(toolBytes, toolChanged))));
    return 0;
}
