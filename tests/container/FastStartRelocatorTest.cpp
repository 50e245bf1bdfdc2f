#include "FolderGuards.h"
#include "MP4TestBoxes.h"

#include "container/mp4/FastStartRelocator.h"
#include "container/io/FaultInjection.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4MoovReader.h"
#include "platform/Log.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;
using Kind = FastStartRelocator::Outcome::Kind;
using Refusal = FastStartRelocator::Refusal;

namespace {
class FastStartRelocatorTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path = dir.filePath("book.m4b");
    const QByteArray ftyp = box("ftyp", "M4A " + u32(0) + "M4A isom");

    QStringList folderEntries() const { return QDir(dir.path()).entryList(QDir::Files | QDir::Hidden); }

    // ftyp, mdat with two chunks of payload, then moov with the given tables.
    QByteArray moovLast(const QByteArray& stblTables, QByteArray* mdatOut = nullptr)
    {
        const QByteArray mdat = box("mdat", QByteArray("chunk-one") + QByteArray("chunk-two"));
        if (mdatOut)
            *mdatOut = mdat;
        return ftyp + mdat + moovWith(trak(1, "soun", 0x15C7, stblTables));
    }
};
} // namespace

TEST_F(FastStartRelocatorTest, MovesMoovAheadOfMdatAndShiftsEveryChunkOffset)
{
    QByteArray mdat;
    const std::uint32_t first = std::uint32_t(ftyp.size() + 8);
    const QByteArray original = moovLast(stco({first, first + 9}) + co64({first + 9}), &mdat);
    ASSERT_TRUE(writeBytes(path, original + box("free", "tail")));
    ::chmod(QFile::encodeName(path).constData(), 0640);

    LogCapture log;
    const auto outcome = FastStartRelocator::relocate(path);
    ASSERT_EQ(outcome.kind, Kind::relocated);
    const QByteArray after = readBytes(path);
    EXPECT_EQ(after.size(), original.size() + 12);
    EXPECT_EQ(modeOf(path), 0640u);

    const auto moov = MP4MoovReader::read(path);
    EXPECT_EQ(moov.fileOffset, std::uint64_t(ftyp.size()));
    const std::uint32_t shift = std::uint32_t(moov.originalSize);
    // The media bytes sit where the shifted offsets say.
    const QByteArray expectedMoov = moovWith(trak(1, "soun", 0x15C7, stco({first + shift, first + 9 + shift}) + co64({first + 9 + shift})));
    EXPECT_EQ(moov.data, expectedMoov);
    EXPECT_EQ(after.mid(first + shift, 9), QByteArray("chunk-one"));
    EXPECT_EQ(after.mid(first + 9 + shift, 9), QByteArray("chunk-two"));
    EXPECT_EQ(after.right(12), box("free", "tail"));
    EXPECT_EQ(folderEntries(), QStringList{"book.m4b"});
    EXPECT_TRUE(log.contains(QStringLiteral("[FastStart] moov moved ahead of mdat for 'book.m4b'")));

    // Run again: already ahead, nothing written and no temp file.
    const auto again = FastStartRelocator::relocate(path);
    EXPECT_EQ(again.kind, Kind::alreadyAhead);
    EXPECT_EQ(readBytes(path), after);
}

TEST_F(FastStartRelocatorTest, RefusesWhatIsNotAnMP4WithoutALogLine)
{
    LogCapture log;
    ASSERT_TRUE(writeBytes(path, box("ftyp", "M4A " + u32(0))));
    auto o = FastStartRelocator::relocate(path);
    EXPECT_EQ(o.kind, Kind::refused);
    EXPECT_EQ(o.refusal, Refusal::notAnMP4);
    ASSERT_TRUE(writeBytes(path, ftyp + moovWith(trak(1, "soun", 0))));
    o = FastStartRelocator::relocate(path);
    EXPECT_EQ(o.refusal, Refusal::notAnMP4);
    ASSERT_TRUE(writeBytes(path, ftyp + box("mdat", "abc")));
    EXPECT_EQ(FastStartRelocator::relocate(path).refusal, Refusal::notAnMP4);
    EXPECT_EQ(log.count(QStringLiteral("[FastStart]")), 0);
}

TEST_F(FastStartRelocatorTest, OnlyTheMediaThatMovesHasItsOffsetsShifted)
{
    // Offsets that point behind the moov (media there stays where it is) are
    // left alone, however large; those into the mdat move by the moov's size.
    const std::uint32_t first = std::uint32_t(ftyp.size() + 8);
    for (const QByteArray& tables : {stco({first, 0xFFFFFFFFu}), co64({first, 0x7FFFFFFFFFFFFFF0ULL})}) {
        ASSERT_TRUE(writeBytes(path, moovLast(tables)));
        const auto o = FastStartRelocator::relocate(path);
        ASSERT_EQ(o.kind, Kind::relocated);
        const QByteArray moov = MP4MoovReader::read(path).data;
        const std::uint32_t moovSize = std::uint32_t(moov.size());
        if (tables.contains("stco")) {
            EXPECT_EQ(moov.right(8), u32(first + moovSize) + u32(0xFFFFFFFFu));
        } else {
            EXPECT_EQ(moov.right(16).left(8), QByteArray(4, '\0') + u32(first + moovSize));
            EXPECT_EQ(moov.right(8), QByteArray::fromHex("7FFFFFFFFFFFFFF0"));
        }
        EXPECT_EQ(folderEntries(), QStringList{"book.m4b"});
    }
    // The largest stco entry that still fits passes.
    const QByteArray probe = moovLast(stco({0}));
    const std::uint32_t moovSize = std::uint32_t(probe.size() - ftyp.size() - 26);
    ASSERT_TRUE(writeBytes(path, moovLast(stco({0xFFFFFFFFu - moovSize}))));
    EXPECT_EQ(FastStartRelocator::relocate(path).kind, Kind::relocated);
    EXPECT_EQ(MP4MoovReader::read(path).data.right(4), u32(0xFFFFFFFFu - moovSize));
}

TEST_F(FastStartRelocatorTest, RefusesAMoovOver200MiBBeforeReadingIt)
{
    const QByteArray head = ftyp + box("mdat", "abc");
    ASSERT_TRUE(writeBytes(path, head + u32(209715201) + "moov"));
    ASSERT_TRUE(resize(path, head.size() + 209715201));
    LogCapture log;
    const auto o = FastStartRelocator::relocate(path);
    EXPECT_EQ(o.refusal, Refusal::moovTooLarge);
    EXPECT_EQ(o.moovSize, 209715201u);
    EXPECT_TRUE(log.contains(QStringLiteral(
        "[FastStart] refused reason=moovTooLarge size=209715201 limit=209715200 file='book.m4b' — left in original order")));
}

TEST_F(FastStartRelocatorTest, ASourceThatGrowsOrShrinksWhileStreamingIsNotPutInPlace)
{
    const QByteArray original = moovLast(stco({30}));
    ASSERT_TRUE(writeBytes(path, original));
    {
        FaultInjection::Scope grow([this](const QString& point) {
            if (point == QLatin1String("relocate.moovWritten")) {
                QFile f(path);
                f.open(QIODevice::Append);
                f.write("late bytes");
            }
        });
        LogCapture log;
        const auto o = FastStartRelocator::relocate(path);
        EXPECT_EQ(o.refusal, Refusal::sizeMismatch);
        EXPECT_TRUE(log.contains(QStringLiteral("refused reason=sizeMismatch")));
    }
    EXPECT_EQ(readBytes(path), original + "late bytes");
    EXPECT_EQ(folderEntries(), QStringList{"book.m4b"});

    ASSERT_TRUE(writeBytes(path, original));
    {
        FaultInjection::Scope shrink([this](const QString& point) {
            if (point == QLatin1String("relocate.moovWritten"))
                resize(path, 30);
        });
        try {
            FastStartRelocator::relocate(path);
            FAIL() << "expected a short read";
        } catch (const FastStartRelocator::StreamError& e) {
            EXPECT_GT(e.expected(), e.got());
            EXPECT_TRUE(e.description().startsWith(QStringLiteral("short read")));
        }
    }
    EXPECT_EQ(folderEntries(), QStringList{"book.m4b"});
}

TEST_F(FastStartRelocatorTest, FallsBackToTheWorkFolderAndRefusesWhenNeitherPlaceTakesATempFile)
{
    const QString folder = dir.filePath("locked");
    QDir(dir.path()).mkdir("locked");
    const QString book = folder + "/book.m4b";
    QByteArray mdat;
    const QByteArray original = moovLast(stco({std::uint32_t(ftyp.size() + 8)}), &mdat);
    ASSERT_TRUE(writeBytes(book, original));
    FolderRefusingNewFiles lock(folder);
    if (!lock.ok())
        GTEST_SKIP() << "cannot make a folder refuse new files here";

    // The temp goes to FolivoxWork; the put-back then overwrites the book in place.
    auto o = FastStartRelocator::relocate(book);
    EXPECT_EQ(o.kind, Kind::relocated);
    EXPECT_EQ(MP4MoovReader::read(book).fileOffset, std::uint64_t(ftyp.size()));
    EXPECT_TRUE(readBytes(book).contains(mdat));

    // Neither beside the book nor in the temporary folder.
    ASSERT_TRUE(writeBytes(book, original));
    const QString lockedTemp = dir.filePath("locked-tmp");
    QDir(dir.path()).mkdir("locked-tmp");
    FolderRefusingNewFiles tempLock(lockedTemp);
    ASSERT_TRUE(tempLock.ok());
    const QByteArray savedTmp = qgetenv("TMPDIR");
    qputenv("TMPDIR", QFile::encodeName(lockedTemp));
    LogCapture log;
    o = FastStartRelocator::relocate(book);
    qputenv("TMPDIR", savedTmp);
    if (savedTmp.isEmpty())
        qunsetenv("TMPDIR");
    EXPECT_EQ(o.kind, Kind::refused);
    EXPECT_EQ(o.refusal, Refusal::noTempLocation);
    EXPECT_TRUE(log.contains(QStringLiteral("[FastStart] SKIPPED for 'book.m4b' — could not create a temp beside the book nor in "
                                            "the app's temp dir; moov left at the end")));
    EXPECT_EQ(readBytes(book), original);
}
