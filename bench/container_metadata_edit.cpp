// A tag edit on a 2 GB M4B: how long it takes and how many bytes it writes,
// for a moov at the end of the file (a new copy behind or ahead of it, the
// old one freed) and a moov in front of the media with no room around it
// (the file written anew with room behind the moov).
//
//   bench_container_metadata_edit [folder] [runs]
//
// The media is a sparse hole of 2 GB, so the figures are those of the moov
// work alone, which is what a tag edit costs.
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4LanguageAtomWriter.h"
#include "container/mp4/MP4MoovReader.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

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

// A moov like a long audiobook's: one AAC track whose chunks of ~32 KB
// cover the media, so stco holds tens of thousands of entries.
QByteArray bookMoov(std::uint64_t mdatStart, std::uint64_t mdatSize, std::uint32_t chunkBytes)
{
    const std::uint32_t chunks = std::uint32_t(mdatSize / chunkBytes);
    QByteArray stco = be32(0) + be32(chunks);
    QByteArray stsz = be32(0) + be32(0) + be32(chunks * 32);
    for (std::uint32_t i = 0; i < chunks; ++i)
        stco += be32(std::uint32_t(mdatStart + std::uint64_t(i) * chunkBytes));
    const QByteArray stbl = box("stbl", fullBox("stsd", be32(0)) + box("stts", QByteArray(16, 0)) + box("stsc", QByteArray(20, 0))
                                            + box("stsz", stsz.left(12)) + box("stco", stco));
    const QByteArray mdhd = fullBox("mdhd", be32(0) + be32(0) + be32(44100) + be32(0) + QByteArray("\x55\xC4\x00\x00", 4));
    const QByteArray hdlr = fullBox("hdlr", be32(0) + "soun" + QByteArray(13, 0));
    const QByteArray trak = box("trak", fullBox("tkhd", QByteArray(80, 0)) + box("mdia", mdhd + hdlr + box("minf", stbl)));
    const QByteArray ilst = box("ilst", box("\xA9too", box("data", be32(1) + be32(0) + "Lavf59")));
    const QByteArray meta = fullBox("meta", fullBox("hdlr", be32(0) + "mdirappl" + QByteArray(9, 0)) + ilst);
    return box("moov", fullBox("mvhd", QByteArray(96, 0)) + trak + box("udta", meta));
}

std::uint64_t bytesWritten()
{
    std::ifstream io("/proc/self/io");
    std::string key;
    std::uint64_t value = 0;
    while (io >> key >> value)
        if (key == "wchar:")
            return value;
    return 0;
}

struct Figures {
    std::vector<double> ms;
    std::uint64_t maxWritten = 0;
    std::uint64_t moovSize = 0;
};

Figures run(const QString& path, const QByteArray& layout, std::uint64_t totalSize, int runs, bool moovLast)
{
    Figures f;
    for (int i = 0; i < runs; ++i) {
        {
            QFile file(path);
            file.open(QIODevice::WriteOnly | QIODevice::Truncate);
            file.write(layout);
            file.close();
        }
        if (!moovLast)
            ::truncate(QFile::encodeName(path).constData(), off_t(totalSize));
        f.moovSize = MP4MoovReader::read(path).originalSize;
        // Alternate the text so every run changes the file.
        const QString language = (i % 2) ? QStringLiteral("English") : QStringLiteral("Deutsch");
        const std::uint64_t before = bytesWritten();
        QElapsedTimer t;
        t.start();
        MP4LanguageAtomWriter::write(path, language, QStringLiteral("eng"));
        f.ms.push_back(double(t.nsecsElapsed()) / 1e6);
        f.maxWritten = std::max(f.maxWritten, bytesWritten() - before);
    }
    return f;
}

void report(const char* name, Figures f)
{
    std::sort(f.ms.begin(), f.ms.end());
    std::printf("%-28s moov=%llu bytes  written(max)=%llu bytes (%.2fx moov)  ms: median=%.2f max=%.2f  runs=%zu\n", name,
                static_cast<unsigned long long>(f.moovSize), static_cast<unsigned long long>(f.maxWritten), double(f.maxWritten) / double(f.moovSize),
                f.ms[f.ms.size() / 2], f.ms.back(), f.ms.size());
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::tempPath();
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 20;
    QTemporaryDir dir(folder + QStringLiteral("/folivox-bench-XXXXXX"));
    const QString path = dir.filePath(QStringLiteral("book.m4b"));
    const std::uint64_t mdatSize = 2000000000ULL;
    const QByteArray ftyp = box("ftyp", QByteArray("M4B ") + be32(0) + "M4B isom");

    // moov last: ftyp, mdat (a hole), moov.
    const QByteArray moovA = bookMoov(std::uint64_t(ftyp.size()) + 8, mdatSize, 32768);
    QByteArray last = ftyp + be32(std::uint32_t(8 + mdatSize)) + "mdat";
    {
        QFile file(path);
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(last);
        file.close();
        ::truncate(QFile::encodeName(path).constData(), off_t(ftyp.size() + 8 + mdatSize));
        QFile tail(path);
        tail.open(QIODevice::Append);
        tail.write(moovA);
    }
    // For the repeated runs only the moov changes: rewrite it at the end each time.
    Figures lastFig;
    for (int i = 0; i < runs; ++i) {
        ::truncate(QFile::encodeName(path).constData(), off_t(ftyp.size() + 8 + mdatSize));
        QFile tail(path);
        tail.open(QIODevice::Append);
        tail.write(moovA);
        tail.close();
        lastFig.moovSize = std::uint64_t(moovA.size());
        const std::uint64_t before = bytesWritten();
        QElapsedTimer t;
        t.start();
        MP4LanguageAtomWriter::write(path, (i % 2) ? QStringLiteral("English") : QStringLiteral("Deutsch"), QStringLiteral("eng"));
        lastFig.ms.push_back(double(t.nsecsElapsed()) / 1e6);
        lastFig.maxWritten = std::max(lastFig.maxWritten, bytesWritten() - before);
    }
    const std::uint64_t fileSize = std::uint64_t(QFile(path).size());
    report("moov last", lastFig);

    // moov in front with no free space: ftyp, moov, mdat (a hole to the end).
    const QByteArray moovB = bookMoov(std::uint64_t(ftyp.size()) + std::uint64_t(moovA.size()) + 8, mdatSize, 32768);
    const QByteArray front = ftyp + moovB + be32(std::uint32_t(8 + mdatSize)) + "mdat";
    report("moov in front, no room", run(path, front, std::uint64_t(ftyp.size() + moovB.size()) + 8 + mdatSize, runs, false));
    std::printf("file size: %llu bytes\n", static_cast<unsigned long long>(fileSize));
    return 0;
}
