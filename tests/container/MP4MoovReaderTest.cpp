#include "MP4TestBoxes.h"

#include "container/mp4/MP4File.h"
#include "container/mp4/MP4MoovReader.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;
using RKind = MP4MoovReader::Error::Kind;

namespace {
class MP4MoovReaderTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path = dir.filePath("book.m4b");

    std::optional<RKind> readError(const QByteArray& bytes, QString* text = nullptr)
    {
        EXPECT_TRUE(writeBytes(path, bytes));
        return readErrorOfFile(text);
    }
    std::optional<RKind> readErrorOfFile(QString* text = nullptr)
    {
        try {
            MP4MoovReader::read(path);
        } catch (const MP4MoovReader::Error& e) {
            if (text)
                *text = e.description();
            return e.kind();
        }
        return std::nullopt;
    }
};
} // namespace

TEST_F(MP4MoovReaderTest, LoadsTheFirstMoovAndTellsWhetherItIsLast)
{
    const QByteArray moov = simpleMoov({16});
    const QByteArray head = box("ftyp", "M4A ") + box("mdat", QByteArray(40, 'a'));
    ASSERT_TRUE(writeBytes(path, head + moov + box("free", "zz")));
    auto b = MP4MoovReader::read(path);
    EXPECT_EQ(b.data, moov);
    EXPECT_EQ(b.fileOffset, std::uint64_t(head.size()));
    EXPECT_EQ(b.originalSize, std::uint64_t(moov.size()));
    EXPECT_FALSE(b.isLastBox);

    // The first moov wins, even when a second one follows.
    const QByteArray second = moovWith(box("free", "second"));
    ASSERT_TRUE(writeBytes(path, head + moov + second));
    b = MP4MoovReader::read(path);
    EXPECT_EQ(b.data, moov);
    EXPECT_FALSE(b.isLastBox);

    ASSERT_TRUE(writeBytes(path, head + moov));
    EXPECT_TRUE(MP4MoovReader::read(path).isLastBox);

    // Stored size 0: the moov runs to the end of the file.
    QByteArray open = moov;
    MP4Bytes::put32(open.data(), 0);
    ASSERT_TRUE(writeBytes(path, head + open));
    b = MP4MoovReader::read(path);
    EXPECT_TRUE(b.isLastBox);
    EXPECT_EQ(b.originalSize, std::uint64_t(moov.size()));
}

TEST_F(MP4MoovReaderTest, RefusesDamagedOrMoovlessFilesWithTheRightCase)
{
    QString text;
    EXPECT_EQ(readError(QByteArray(7, 'x'), &text), RKind::invalidBoxStructure);
    EXPECT_EQ(text, QStringLiteral("invalid MP4 box structure"));
    EXPECT_EQ(readError(box("free"), &text), RKind::moovNotFound);
    EXPECT_EQ(text, QStringLiteral("moov box not found in file"));
    // Fewer than 8 trailing bytes with no moov seen.
    EXPECT_EQ(readError(box("ftyp", "M4A ") + "abcde"), RKind::moovNotFound);
    // A box ahead of moov that claims more than the file holds.
    EXPECT_EQ(readError(box("ftyp", "M4A ") + u32(9999) + "mdat" + simpleMoov({0})), RKind::invalidBoxStructure);
    // A size-1 header whose 64-bit size is below 16.
    EXPECT_EQ(readError(box("ftyp", "M4A ") + u32(1) + "mdat" + u64(12) + simpleMoov({0})), RKind::invalidBoxStructure);
    // A size-1 header cut short by the end of the file: the file ran out.
    EXPECT_EQ(readError(box("ftyp", "M4A ") + u32(1) + "mdat" + "1234"), RKind::moovNotFound);
    // An open-ended box ahead of any moov swallows the rest.
    EXPECT_EQ(readError(box("ftyp", "M4A ") + u32(0) + "mdat" + simpleMoov({0})), RKind::moovNotFound);

    EXPECT_EQ(MP4MoovReader::Error(RKind::unsupportedLayout).description(),
              QStringLiteral("moov is not the last box — streaming rewrite required"));
    EXPECT_EQ(MP4MoovReader::Error(RKind::readFailed).description(), QStringLiteral("failed to read moov from file"));

    // A file that isn't there is an I/O failure, not a format one.
    EXPECT_THROW(MP4MoovReader::read(dir.filePath("missing.m4b")), MP4FileError);
}

TEST_F(MP4MoovReaderTest, AcceptsAMoovOfExactly50MiBAndRefusesOneByteMore)
{
    // Sparse files: the moov's bytes are holes on disk.
    const QByteArray head = box("ftyp", "M4A ");
    ASSERT_TRUE(writeBytes(path, head + u32(52428801) + "moov"));
    ASSERT_TRUE(resize(path, head.size() + 52428801));
    QString text;
    EXPECT_EQ(readErrorOfFile(&text), RKind::moovTooLarge);
    EXPECT_EQ(text, QStringLiteral("moov box exceeds safety limit: 52428801 bytes"));

    ASSERT_TRUE(writeBytes(path, head + u32(52428800) + "moov"));
    ASSERT_TRUE(resize(path, head.size() + 52428800));
    const auto b = MP4MoovReader::read(path);
    EXPECT_EQ(b.originalSize, 52428800u);
    EXPECT_EQ(b.data.size(), 52428800);
    EXPECT_TRUE(b.isLastBox);
}

TEST_F(MP4MoovReaderTest, ClosesItsHandleOnEveryPath)
{
    ASSERT_TRUE(writeBytes(path, box("ftyp", "M4A ") + simpleMoov({0})));
    const int before = openDescriptorCount();
    for (int i = 0; i < 20; ++i)
        MP4MoovReader::read(path);
    EXPECT_EQ(openDescriptorCount(), before);
    for (const QByteArray& bad : {QByteArray(7, 'x'), box("free"), box("ftyp") + u32(1) + "mdat" + u64(3)}) {
        ASSERT_TRUE(writeBytes(path, bad));
        for (int i = 0; i < 20; ++i)
            EXPECT_THROW(MP4MoovReader::read(path), MP4MoovReader::Error);
    }
    EXPECT_EQ(openDescriptorCount(), before);
}
