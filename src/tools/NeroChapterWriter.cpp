#include "tools/NeroChapterWriter.h"

#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4LanguageAtomWriter.h"
#include "tools/ToolError.h"

#include <cmath>

namespace folivox {

namespace {
constexpr std::uint32_t kUdta = MP4Bytes::fourCC("udta");
constexpr std::uint32_t kChpl = MP4Bytes::fourCC("chpl");
constexpr std::int64_t kUnitsPerMs = 10000; // 100 ns units
} // namespace

QByteArray NeroChapterWriter::payload(const QList<ChapterEntry>& chapters)
{
    const qsizetype count = std::min<qsizetype>(chapters.size(), maxChapters);
    QByteArray p = MP4Bytes::be32Bytes(0x01000000u);
    p += MP4Bytes::be32Bytes(0);
    p += char(count);
    for (qsizetype i = 0; i < count; ++i) {
        const ChapterEntry& c = chapters.at(i);
        p += MP4Bytes::be64Bytes(std::uint64_t(std::max<std::int64_t>(0, c.startMs)) * kUnitsPerMs);
        const QByteArray title = MP4LanguageAtomWriter::utf8Prefix(c.title, maxTitleBytes);
        p += char(title.size());
        p += title;
    }
    return p;
}

QList<ChapterEntry> NeroChapterWriter::parse(const QByteArray& p)
{
    QList<ChapterEntry> out;
    if (p.size() < 5)
        return out;
    qsizetype at = p.at(0) == 1 ? 8 : 4;
    if (at >= p.size())
        return out;
    const int count = static_cast<unsigned char>(p.at(at++));
    for (int i = 0; i < count; ++i) {
        if (at + 9 > p.size())
            break;
        const std::uint64_t units = MP4Bytes::be64(p.constData() + at);
        const qsizetype len = static_cast<unsigned char>(p.at(at + 8));
        at += 9;
        if (at + len > p.size())
            break;
        out.append(ChapterEntry{std::int64_t(std::llround(double(units) / kUnitsPerMs)), QString::fromUtf8(p.mid(at, len))});
        at += len;
    }
    return out;
}

void NeroChapterWriter::write(MP4BoxTree::Node& moov, const QList<ChapterEntry>& chapters)
{
    if (const MP4BoxTree::Node* existing = moov.child(kUdta); existing && !existing->isContainer)
        throw ToolError(ToolError::Kind::unsupported, QStringLiteral("the moov/udta box does not parse"));
    MP4BoxTree::Node& udta = moov.ensureChild(kUdta);
    udta.removeAll(kChpl);
    udta.append(MP4BoxTree::Node::leaf(kChpl, payload(chapters)));
}

bool NeroChapterWriter::remove(MP4BoxTree::Node& moov)
{
    MP4BoxTree::Node* udta = moov.child(kUdta);
    if (!udta || !udta->isContainer)
        return false;
    const bool had = udta->removeAll(kChpl) > 0;
    if (had && udta->children.empty())
        moov.removeAll(kUdta);
    return had;
}

QList<ChapterEntry> NeroChapterWriter::read(const MP4BoxTree::Node& moov)
{
    const MP4BoxTree::Node* udta = moov.child(kUdta);
    const MP4BoxTree::Node* chpl = udta && udta->isContainer ? udta->child(kChpl) : nullptr;
    if (!chpl || chpl->isContainer)
        return {};
    return parse(chpl->payload);
}

} // namespace folivox
