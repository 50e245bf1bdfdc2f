#include "MP4TestBoxes.h"

#include "container/io/FileRangeCopier.h"
#include "container/mp4/MP4File.h"
#include "platform/Error.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <stdexcept>

using namespace folivox;
using namespace folivox::test;

namespace {
// Bytes that differ at every offset within a long stretch, so a piece
// landing one byte off shows.
QByteArray pattern(qsizetype size)
{
    QByteArray b(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        b[i] = char((i * 131 + i / 4093) % 251);
    return b;
}

constexpr qsizetype kSource = qsizetype(FileRangeCopier::pieceSize) * 2 + 12345;
} // namespace

// Ranges copied at the same place within a page (the kernel's path), shifted
// within the page (the mapping's path), and written bytes between them, all
// land where the output position says, across several pieces.
TEST(FileRangeCopierTest, CopiesAlignedAndShiftedRangesAcrossPieces)
{
    QTemporaryDir dir;
    const QByteArray source = pattern(kSource);
    ASSERT_TRUE(writeBytes(dir.filePath("in"), source));
    const MP4File in(dir.filePath("in"), MP4File::Access::read);
    MP4File out = MP4File::createNew(dir.filePath("out"), 0644);

    std::vector<std::uint64_t> pieces;
    FileRangeCopier copier(in, out);
    copier.onPiece = [&](std::uint64_t at) { pieces.push_back(at); };
    EXPECT_EQ(copier.copy(0, 5000), 5000u);                  // aligned alike
    copier.write(QByteArray("HEAD", 4));                      // output now 4 bytes ahead of source
    pieces = {copier.position()};
    EXPECT_EQ(copier.copy(5000, std::uint64_t(kSource) - 5000), std::uint64_t(kSource) - 5000); // shifted
    copier.write(QByteArray("TAIL", 4));
    EXPECT_EQ(copier.position(), std::uint64_t(kSource) + 8);
    out.close();

    const QByteArray expected = source.left(5000) + "HEAD" + source.mid(5000) + "TAIL";
    const QByteArray got = readBytes(dir.filePath("out"));
    ASSERT_EQ(got.size(), expected.size());
    EXPECT_TRUE(got == expected);
    // The shifted range: one call per piece of at most 4 MiB, positions rising.
    ASSERT_EQ(pieces.size(), 4u);
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        EXPECT_GT(pieces[i], pieces[i - 1]);
        EXPECT_LE(pieces[i] - pieces[i - 1], FileRangeCopier::pieceSize);
    }
}

// A range that runs past the end of the source copies what there is and
// says how much; a start beyond the end copies nothing.
TEST(FileRangeCopierTest, ReportsASourceThatEndsEarly)
{
    QTemporaryDir dir;
    const QByteArray source = pattern(10000);
    ASSERT_TRUE(writeBytes(dir.filePath("in"), source));
    const MP4File in(dir.filePath("in"), MP4File::Access::read);
    {
        MP4File out = MP4File::createNew(dir.filePath("shifted"), 0644);
        FileRangeCopier shifted(in, out, 3);
        EXPECT_EQ(shifted.copy(9000, 5000), 1000u);
        EXPECT_EQ(shifted.copy(20000, 10), 0u);
        EXPECT_EQ(shifted.position(), 1003u);
    }
    {
        MP4File out = MP4File::createNew(dir.filePath("aligned"), 0644);
        FileRangeCopier aligned(in, out, 0);
        EXPECT_EQ(aligned.copy(8192, 5000), 10000u - 8192u);
    }
    EXPECT_TRUE(readBytes(dir.filePath("shifted")).mid(3) == source.mid(9000));
    EXPECT_TRUE(readBytes(dir.filePath("aligned")) == source.mid(8192));
}

// A whole-file copy is bit-exact and gets the permissions asked for; one that
// is stopped leaves no target behind; an existing target is never written.
TEST(FileRangeCopierTest, CopyFileIsExactLeavesNothingWhenStoppedAndNeverOverwrites)
{
    QTemporaryDir dir;
    const QByteArray source = pattern(kSource);
    ASSERT_TRUE(writeBytes(dir.filePath("in"), source));

    std::uint64_t lastDone = 0;
    std::uint64_t seenTotal = 0;
    FileRangeCopier::copyFile(dir.filePath("in"), dir.filePath("copy"), 0640, [&](std::uint64_t done, std::uint64_t total) {
        lastDone = done;
        seenTotal = total;
    });
    EXPECT_TRUE(readBytes(dir.filePath("copy")) == source);
    EXPECT_EQ(lastDone, std::uint64_t(kSource));
    EXPECT_EQ(seenTotal, std::uint64_t(kSource));
    EXPECT_EQ(QFileInfo(dir.filePath("copy")).permissions() & (QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther),
              QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);

    EXPECT_THROW(FileRangeCopier::copyFile(dir.filePath("in"), dir.filePath("stopped"), 0644,
                                           [](std::uint64_t done, std::uint64_t) {
                                               if (done > 0)
                                                   throw std::runtime_error("stop");
                                           }),
                 std::runtime_error);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("stopped")));

    ASSERT_TRUE(writeBytes(dir.filePath("mine"), "the user's file"));
    EXPECT_THROW(FileRangeCopier::copyFile(dir.filePath("in"), dir.filePath("mine"), 0644), MP4FileError);
    EXPECT_EQ(readBytes(dir.filePath("mine")), QByteArray("the user's file"));
    EXPECT_THROW(FileRangeCopier::copyFile(dir.filePath("missing"), dir.filePath("other"), 0644), MP4FileError);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("other")));
}
