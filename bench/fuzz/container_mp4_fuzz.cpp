// Fuzzes the MP4 reading side: header decoding, the top-level listing, moov
// loading and rewrite planning on a file, and the in-memory walks of the
// patchers and the box tree over whatever moov comes out.
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4ChapterTrackLanguagePatcher.h"
#include "container/mp4/MP4ChunkOffsets.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4LanguageAtomWriter.h"
#include "container/mp4/MP4MoovReader.h"
#include "container/mp4/MP4MoovRewriter.h"
#include "container/mp4/MP4StsdChannelPatcher.h"
#include "platform/Error.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

using namespace folivox;

namespace {
// One in-memory file reused by every run, reached by path like a real one.
int memoryFile()
{
    static const int fd = ::memfd_create("folivox-fuzz", MFD_CLOEXEC);
    return fd;
}

void check(bool condition)
{
    if (!condition)
        std::abort();
}

void decodeHeaders(const QByteArray& bytes)
{
    // Every position of the buffer, bounded by the buffer and by a limit
    // taken from the data.
    const qsizetype limit = bytes.isEmpty() ? 0 : qsizetype(std::uint8_t(bytes[0])) % (bytes.size() + 1);
    for (qsizetype pos = 0; pos < bytes.size() && pos < 64; ++pos) {
        for (qsizetype end : {bytes.size(), limit}) {
            try {
                const MP4BoxHeader h = MP4BoxHeader::decodeAt(bytes, pos, end);
                check(h.headerLength == 8 || h.headerLength == 16);
                check(h.size >= h.headerLength);
                check(std::uint64_t(pos) + h.size <= std::uint64_t(end));
            } catch (const MP4BoxHeader::ParseError&) {
            }
        }
    }
    if (bytes.size() >= 8) {
        try {
            MP4BoxHeader::decode(bytes, 0xFFFFFFFFFFFFFFF0ULL, UINT64_MAX);
        } catch (const MP4BoxHeader::ParseError&) {
        }
    }
}

void walkMoov(QByteArray moov)
{
    try {
        MP4ChapterTrackLanguagePatcher::trackLanguageFields(moov);
    } catch (const MP4ChapterTrackLanguagePatcher::PatchError&) {
    }
    for (const auto& d : MP4StsdChannelPatcher::decide(moov))
        if (d.patch)
            check(d.patch->offset >= 0 && d.patch->offset + 2 <= moov.size());
    MP4ChunkOffsets::findInRange(moov, 0, UINT64_MAX);
    {
        QByteArray shifted = moov;
        try {
            MP4ChunkOffsets::shift(shifted, 0, shifted.size(), 4096);
        } catch (const MP4BoxHeader::ParseError&) {
        }
        check(shifted.size() == moov.size());
    }
    try {
        const MP4BoxTree::Node root = MP4BoxTree::parse(moov);
        const QByteArray out = MP4BoxTree::serialize(root);
        check(std::uint64_t(out.size()) == root.size());
        const MP4BoxTree::Node again = MP4BoxTree::parse(out);
        check(MP4BoxTree::serialize(again) == out);
    } catch (const MP4BoxHeader::ParseError&) {
    }
    const qsizetype before = moov.size();
    const auto grown = MP4LanguageAtomWriter::placeLanguageAtom(moov, 0, QStringLiteral("English"));
    if (grown)
        check(moov.size() == before + *grown);
    MP4LanguageAtomWriter::placeFreeformAtom(moov, 0, {QStringLiteral("LANGUAGE"), QStringLiteral("eng"), 64});
    MP4LanguageAtomWriter::setAudioLanguage(moov, 0, QStringLiteral("eng"));
}

void readFile(const QByteArray& bytes)
{
    const int fd = memoryFile();
    if (fd < 0 || ::ftruncate(fd, 0) != 0 || ::pwrite(fd, bytes.constData(), size_t(bytes.size()), 0) != bytes.size())
        return;
    const QString path = QStringLiteral("/proc/self/fd/%1").arg(fd);
    try {
        const MP4File file(path, MP4File::Access::read);
        const auto boxes = MP4BoxHeader::listTopLevel(file, file.size());
        std::uint64_t expected = 0;
        for (const auto& b : boxes) {
            check(b.offset == expected);
            expected += b.size;
        }
        check(expected <= std::uint64_t(bytes.size()));
    } catch (const Error&) {
    }
    try {
        MP4MoovReader::MoovBuffer moov = MP4MoovReader::read(path);
        check(std::uint64_t(moov.data.size()) == moov.originalSize);
        walkMoov(moov.data);
        // Plan a grown and a shrunk moov against the same file.
        for (int change : {9, -8}) {
            MP4MoovReader::MoovBuffer edited = moov;
            if (change > 0)
                edited.data.append(QByteArray(change, '\0'));
            else if (edited.data.size() > 16)
                edited.data.chop(-change);
            try {
                const auto plan = MP4MoovRewriter::plan(edited, path);
                // The new copy never overlaps the live moov.
                if (plan.mode == MP4MoovRewriter::Mode::front)
                    check(plan.unitEnd() + 8 <= plan.buffer.fileOffset);
                else
                    check(plan.unitOffset >= plan.buffer.fileOffset + plan.buffer.originalSize + 8);
            } catch (const Error&) {
            }
        }
    } catch (const Error&) {
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size)
{
    if (size > 1 << 20)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    decodeHeaders(bytes);
    readFile(bytes);
    // The input itself as a moov buffer, for the walks that never see a file.
    QByteArray asMoov = QByteArray("\0\0\0\0moov", 8) + bytes;
    const auto total = std::uint32_t(asMoov.size());
    asMoov[0] = char(total >> 24);
    asMoov[1] = char(total >> 16);
    asMoov[2] = char(total >> 8);
    asMoov[3] = char(total);
    walkMoov(asMoov);
    return 0;
}
