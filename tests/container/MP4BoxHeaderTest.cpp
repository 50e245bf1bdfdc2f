#include "MP4TestBoxes.h"

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4MoovReader.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;
using Kind = MP4BoxHeader::ParseError::Kind;

namespace {
// Runs decode and returns the error kind thrown, checking its text.
template <typename F>
std::optional<Kind> refusal(F&& f, QString* text = nullptr)
{
    try {
        f();
    } catch (const MP4BoxHeader::ParseError& e) {
        if (text)
            *text = e.description();
        return e.kind();
    }
    return std::nullopt;
}
} // namespace

TEST(MP4BoxHeaderTest, DecodesCompactLargeAndOpenEndedForms)
{
    const QByteArray compact = u32(24) + "mdat";
    MP4BoxHeader h = MP4BoxHeader::decode(compact, 100, 200);
    EXPECT_EQ(h.type, QStringLiteral("mdat"));
    EXPECT_EQ(h.typeCode, MP4Bytes::fourCC("mdat"));
    EXPECT_EQ(h.offset, 100u);
    EXPECT_EQ(h.size, 24u);
    EXPECT_EQ(h.headerLength, 8u);
    EXPECT_FALSE(h.extendsToEnd);

    // The large form is accepted even when the value would fit in 32 bits.
    h = MP4BoxHeader::decode(u32(1) + "moov" + u64(40), 0, 40);
    EXPECT_EQ(h.size, 40u);
    EXPECT_EQ(h.headerLength, 16u);

    h = MP4BoxHeader::decode(u32(0) + "mdat", 10, 5000);
    EXPECT_TRUE(h.extendsToEnd);
    EXPECT_EQ(h.size, 4990u);
    EXPECT_EQ(h.headerLength, 8u);

    // Bytes outside printable ASCII become "?"; the code keeps them exactly.
    h = MP4BoxHeader::decode(u32(8) + "\xA9lan", 0, 8);
    EXPECT_EQ(h.type, QStringLiteral("?lan"));
    EXPECT_EQ(h.typeCode, 0xA96C616Eu);
}

TEST(MP4BoxHeaderTest, RefusesEachMalformedHeaderWithItsText)
{
    QString text;
    EXPECT_EQ(refusal([] { MP4BoxHeader::decode(u32(8) + "free", 9, 8); }, &text), Kind::offsetOutOfRange);
    EXPECT_EQ(text, QStringLiteral("box offset outside the buffer"));

    // Fewer than 8 bytes given, or fewer than 8 left before the limit.
    EXPECT_EQ(refusal([] { MP4BoxHeader::decode(QByteArray("\0\0\0\x08" "fre", 7), 0, 100); }, &text), Kind::truncatedHeader);
    EXPECT_EQ(text, QStringLiteral("truncated box header"));
    EXPECT_EQ(refusal([] { MP4BoxHeader::decode(u32(8) + "free", 0, 7); }), Kind::truncatedHeader);

    // Size 1 needs all 16 bytes, in the data and before the limit.
    EXPECT_EQ(refusal([] { MP4BoxHeader::decode(u32(1) + "mdat" + QByteArray(7, '\0'), 0, 100); }), Kind::truncatedHeader);
    EXPECT_EQ(refusal([] { MP4BoxHeader::decode(u32(1) + "mdat" + u64(16), 0, 15); }), Kind::truncatedHeader);

    // A 64-bit size below 16.
    EXPECT_EQ(refusal([] { MP4BoxHeader::decode(u32(1) + "mdat" + u64(15), 0, 100); }, &text), Kind::sizeSmallerThanHeader);
    EXPECT_EQ(text, QStringLiteral("box size 15 is smaller than its 16-byte header"));
    EXPECT_NO_THROW(MP4BoxHeader::decode(u32(1) + "mdat" + u64(16), 0, 100));

    // 32-bit sizes 2 to 7.
    for (std::uint32_t s = 2; s <= 7; ++s)
        EXPECT_EQ(refusal([s] { MP4BoxHeader::decode(u32(s) + "free", 0, 100); }), Kind::sizeSmallerThanHeader) << s;
    refusal([] { MP4BoxHeader::decode(u32(7) + "free", 0, 100); }, &text);
    EXPECT_EQ(text, QStringLiteral("box size 7 is smaller than its 8-byte header"));

    // Past the limit, and wrapping past 2^64.
    EXPECT_EQ(refusal([] { MP4BoxHeader::decode(u32(101) + "free", 0, 100); }, &text), Kind::sizeBeyondLimit);
    EXPECT_EQ(text, QStringLiteral("box size 101 exceeds the 100 bytes left in its container"));
    EXPECT_NO_THROW(MP4BoxHeader::decode(u32(100) + "free", 0, 100));
    EXPECT_EQ(refusal([] { MP4BoxHeader::decode(u32(1) + "mdat" + u64(UINT64_MAX), 16, UINT64_MAX); }), Kind::sizeBeyondLimit);
}

TEST(MP4BoxHeaderTest, DecodesAtBufferPositionsWithinBounds)
{
    const QByteArray buf = box("ftyp", "M4A ") + box("free") + box("mdat", "xyz");
    MP4BoxHeader h = MP4BoxHeader::decodeAt(buf, 12, buf.size());
    EXPECT_EQ(h.type, QStringLiteral("free"));
    EXPECT_EQ(h.offset, 12u);
    h = MP4BoxHeader::decodeAt(buf, 20, buf.size());
    EXPECT_EQ(h.size, 11u);
    EXPECT_EQ(refusal([&] { MP4BoxHeader::decodeAt(buf, -1, buf.size()); }), Kind::offsetOutOfRange);
    EXPECT_EQ(refusal([&] { MP4BoxHeader::decodeAt(buf, 0, buf.size() + 1); }), Kind::offsetOutOfRange);
    EXPECT_EQ(refusal([&] { MP4BoxHeader::decodeAt(buf, 20, 19); }), Kind::offsetOutOfRange);
    // The mdat does not fit when the enclosing range is cut short.
    EXPECT_EQ(refusal([&] { MP4BoxHeader::decodeAt(buf, 20, 30); }), Kind::sizeBeyondLimit);
    EXPECT_EQ(refusal([&] { MP4BoxHeader::decodeAt(buf, buf.size(), buf.size()); }), Kind::truncatedHeader);
}

TEST(MP4BoxHeaderTest, ListsTopLevelBoxesAndKeepsTheGoodPrefixOfAGarbledFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("a.m4b");
    // Third box claims more bytes than the file has.
    ASSERT_TRUE(writeBytes(path, box("ftyp", "M4A ") + box("free", "1234") + u32(5000) + "junk" + QByteArray(20, 'x')));
    {
        const MP4File f(path, MP4File::Access::read);
        const auto boxes = MP4BoxHeader::listTopLevel(f, f.size());
        ASSERT_EQ(boxes.size(), 2);
        EXPECT_EQ(boxes[0].type, QStringLiteral("ftyp"));
        EXPECT_EQ(boxes[1].offset, 12u);
        EXPECT_EQ(boxes[1].size, 12u);
    }
    // Fewer than 8 trailing bytes end the list quietly; a header at a file
    // offset reads at most what is there.
    ASSERT_TRUE(writeBytes(path, box("ftyp", "M4A ") + box("mdat", QByteArray(100, 'a')) + "tail"));
    const MP4File f(path, MP4File::Access::read);
    const auto boxes = MP4BoxHeader::listTopLevel(f, f.size());
    ASSERT_EQ(boxes.size(), 2);
    EXPECT_EQ(boxes[1].size, 108u);
    EXPECT_EQ(MP4BoxHeader::readAt(f, 12, f.size()).type, QStringLiteral("mdat"));
    EXPECT_EQ(refusal([&] { MP4BoxHeader::readAt(f, f.size() - 4, f.size()); }), Kind::truncatedHeader);
    EXPECT_EQ(refusal([&] { MP4BoxHeader::readAt(f, f.size() + 1, f.size()); }), Kind::offsetOutOfRange);
}
