#include "MP4TestBoxes.h"

#include "container/MP4BoxHeader.h"
#include "container/MP4File.h"
#include "container/MP4MoovReader.h"
#include "container/MP4MoovRewriter.h"
#include "platform/Log.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;
using Mode = MP4MoovRewriter::Mode;

namespace {
class MP4MoovRewriterTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path = dir.filePath("book.m4b");
    const QByteArray ftyp = box("ftyp", "M4A " + u32(0) + "M4A isom");

    // The moov read back, with `grow` bytes added to a udta payload so
    // the box stays valid.
    MP4MoovReader::MoovBuffer readGrown(int grow)
    {
        auto b = MP4MoovReader::read(path);
        resizeMoov(b.data, grow);
        return b;
    }
    static void resizeMoov(QByteArray& moov, int grow)
    {
        // Append (or cut) a trailing 'free' child inside moov and fix moov's size.
        if (grow > 0) {
            moov += grow >= 8 ? box("free", QByteArray(grow - 8, '\0')) : QByteArray(grow, '\0');
        } else if (grow < 0) {
            moov.chop(-grow);
        }
        MP4Bytes::put32(moov.data(), std::uint32_t(moov.size()));
    }
    QString planFailure(MP4MoovReader::MoovBuffer b)
    {
        try {
            MP4MoovRewriter::plan(std::move(b), path);
        } catch (const MP4MoovRewriter::UnsupportedLayout& e) {
            return e.description();
        }
        return {};
    }
    QList<MP4BoxHeader> topLevel()
    {
        const MP4File f(path, MP4File::Access::read);
        return MP4BoxHeader::listTopLevel(f, f.size());
    }
};

// A moov padded so that cutting `grow` bytes still leaves a valid tail: the
// test moov carries a trailing free child of 40 bytes.
QByteArray paddedMoov(std::uint32_t chunk)
{
    return simpleMoov({chunk}, box("free", QByteArray(32, '\0')));
}
} // namespace

TEST_F(MP4MoovRewriterTest, LastModeOverwritesAndCutsTheFileWithoutOpeningItForPlanning)
{
    const QByteArray mdat = box("mdat", QByteArray(64, 'a'));
    ASSERT_TRUE(writeBytes(path, ftyp + mdat + paddedMoov(quint32(ftyp.size() + 8))));
    auto b = readGrown(-40); // drop the padding free child
    const QByteArray edited = b.data;
    const auto plan = MP4MoovRewriter::plan(b, dir.filePath("never-opened.m4b"));
    EXPECT_EQ(plan.mode, Mode::last);
    EXPECT_EQ(plan.trailingFree, 0u);
    EXPECT_EQ(plan.fileSize, 0u);
    EXPECT_FALSE(plan.openEndedLastBoxOffset);

    LogCapture log;
    MP4MoovRewriter::rewrite(plan, path);
    EXPECT_EQ(readBytes(path), ftyp + mdat + edited);
    EXPECT_TRUE(log.contains(QStringLiteral("[AtomsPerf] rewrite mode=last moovOld=%1 moovNew=%2 free=0 ms=")
                                 .arg(edited.size() + 40)
                                 .arg(edited.size())));

    // A buffer that claims `last` but isn't is refused at write time.
    MP4MoovRewriter::Plan wrong = plan;
    wrong.buffer.isLastBox = false;
    try {
        MP4MoovRewriter::rewrite(wrong, path);
        FAIL() << "expected unsupportedLayout";
    } catch (const MP4MoovReader::Error& e) {
        EXPECT_EQ(e.kind(), MP4MoovReader::Error::Kind::unsupportedLayout);
    }
}

TEST_F(MP4MoovRewriterTest, InplaceUsesTheFreeRunAndLeavesAFreeBoxOfTheRemainder)
{
    const QByteArray moov = simpleMoov({0});
    const QByteArray mdat = box("mdat", QByteArray(64, 'm'));
    // moov grows by 3 into a free box of 3 + 8 bytes: remainder 8, an empty free box.
    ASSERT_TRUE(writeBytes(path, ftyp + moov + box("free", QByteArray(3, 'f')) + mdat));
    auto b = readGrown(3);
    auto plan = MP4MoovRewriter::plan(b, path);
    EXPECT_EQ(plan.mode, Mode::inplace);
    EXPECT_EQ(plan.trailingFree, 11u);
    MP4MoovRewriter::rewrite(plan, path);
    EXPECT_EQ(readBytes(path), ftyp + b.data + box("free") + mdat);

    // A remainder of 7 can't hold a free header: append, although free space exists.
    ASSERT_TRUE(writeBytes(path, ftyp + moov + box("free", QByteArray(2, 'f')) + mdat));
    plan = MP4MoovRewriter::plan(readGrown(3), path);
    EXPECT_EQ(plan.mode, Mode::append);

    // A free/skip run is summed until the first other box; later free boxes don't count.
    ASSERT_TRUE(writeBytes(path, ftyp + moov + box("free", "ab") + box("skip", "cd") + mdat + box("free", QByteArray(100, 0))));
    plan = MP4MoovRewriter::plan(readGrown(20), path);
    EXPECT_EQ(plan.mode, Mode::inplace);
    EXPECT_EQ(plan.trailingFree, 20u);
    EXPECT_EQ(plan.fileSize, std::uint64_t(readBytes(path).size()));
}

TEST_F(MP4MoovRewriterTest, ShrinkingInplaceZeroesOnlyTheOldMoovBytes)
{
    const QByteArray moov = paddedMoov(0);
    const QByteArray free = box("free", QByteArray(16, 'F'));
    const QByteArray mdat = box("mdat", QByteArray(32, 'm'));
    ASSERT_TRUE(writeBytes(path, ftyp + moov + free + mdat));
    auto b = readGrown(-40);
    MP4MoovRewriter::rewrite(MP4MoovRewriter::plan(b, path), path);
    const QByteArray after = readBytes(path);
    const qsizetype at = ftyp.size();
    EXPECT_EQ(after.mid(at, b.data.size()), b.data);
    // One free box now covers 40 old moov bytes plus the old free box.
    EXPECT_EQ(after.mid(at + b.data.size(), 8), u32(40 + 24) + "free");
    EXPECT_EQ(after.mid(at + b.data.size() + 8, 32), QByteArray(32, '\0'));
    // The old free box keeps its body: it lies inside the new one.
    EXPECT_EQ(after.mid(at + moov.size(), free.size()), free);
    EXPECT_EQ(after.right(mdat.size()), mdat);
}

TEST_F(MP4MoovRewriterTest, AMiddleMoovWithAGarbageTailShrinksInplaceButCannotGrow)
{
    const QByteArray moov = paddedMoov(0);
    const QByteArray mdat = box("mdat", QByteArray(32, 'm'));
    ASSERT_TRUE(writeBytes(path, ftyp + moov + mdat + u32(9999) + "junk"));
    EXPECT_EQ(planFailure(readGrown(8)),
              QStringLiteral("moov-only rewrite not possible: top-level boxes after moov do not parse cleanly to EOF"));
    const auto plan = MP4MoovRewriter::plan(readGrown(-8), path);
    EXPECT_EQ(plan.mode, Mode::inplace);
    EXPECT_EQ(plan.trailingFree, 0u);
    MP4MoovRewriter::rewrite(plan, path);
    const auto boxes = topLevel();
    ASSERT_GE(boxes.size(), 4);
    EXPECT_EQ(boxes[1].type, QStringLiteral("moov"));
    EXPECT_EQ(boxes[2].type, QStringLiteral("free"));
    EXPECT_EQ(boxes[2].size, 8u);
    EXPECT_EQ(boxes[3].type, QStringLiteral("mdat"));
}

TEST_F(MP4MoovRewriterTest, AppendWritesTheNewMoovAtTheEndAndFreesTheOldOne)
{
    const QByteArray moov = simpleMoov({0});
    const QByteArray mdat = box("mdat", QByteArray(48, 'm'));
    ASSERT_TRUE(writeBytes(path, ftyp + moov + mdat));
    auto b = readGrown(100);
    const auto plan = MP4MoovRewriter::plan(b, path);
    ASSERT_EQ(plan.mode, Mode::append);
    LogCapture log;
    MP4MoovRewriter::rewrite(plan, path);
    const QByteArray after = readBytes(path);
    EXPECT_EQ(after.left(ftyp.size()), ftyp);
    EXPECT_EQ(after.mid(ftyp.size(), 8), u32(std::uint32_t(moov.size())) + "free");
    EXPECT_EQ(after.mid(ftyp.size() + 8, moov.size() - 8), QByteArray(moov.size() - 8, '\0'));
    EXPECT_EQ(after.mid(ftyp.size() + moov.size(), mdat.size()), mdat);
    EXPECT_EQ(after.right(b.data.size()), b.data);
    EXPECT_EQ(MP4MoovReader::read(path).data, b.data);
    EXPECT_TRUE(log.contains(QStringLiteral("[AtomsPerf] rewrite mode=append moovOld=%1 moovNew=%2 free=0 ms=")
                                 .arg(moov.size())
                                 .arg(b.data.size())));
}

TEST_F(MP4MoovRewriterTest, AppendPinsAnOpenEndedLastBoxAndRefusesOneOver4GiB)
{
    const QByteArray moov = simpleMoov({0});
    // The last box (mdat) has stored size 0 and a true size just over 4 GiB: a sparse file.
    ASSERT_TRUE(writeBytes(path, ftyp + moov + u32(0) + "mdat"));
    const qint64 mdatOffset = ftyp.size() + moov.size();
    ASSERT_TRUE(resize(path, mdatOffset + 0x100000000LL + 8));
    EXPECT_EQ(planFailure(readGrown(100)),
              QStringLiteral("moov-only rewrite not possible: last box 'mdat' is open-ended and larger than 4 GiB"));
    // The same file still takes a shrinking moov in place.
    EXPECT_EQ(MP4MoovRewriter::plan(readGrown(-8), path).mode, Mode::inplace);

    // Under 4 GiB the open box is pinned before anything lands behind it.
    ASSERT_TRUE(resize(path, mdatOffset + 5000));
    auto b = readGrown(100);
    const auto plan = MP4MoovRewriter::plan(b, path);
    ASSERT_EQ(plan.mode, Mode::append);
    ASSERT_TRUE(plan.openEndedLastBoxOffset);
    EXPECT_EQ(*plan.openEndedLastBoxOffset, std::uint64_t(mdatOffset));
    MP4MoovRewriter::rewrite(plan, path);
    const auto boxes = topLevel();
    ASSERT_EQ(boxes.size(), 4);
    EXPECT_EQ(boxes[2].type, QStringLiteral("mdat"));
    EXPECT_EQ(boxes[2].size, 5000u);
    EXPECT_FALSE(boxes[2].extendsToEnd);
    EXPECT_EQ(boxes[3].type, QStringLiteral("moov"));
    EXPECT_EQ(MP4MoovReader::read(path).data, b.data);
}

TEST_F(MP4MoovRewriterTest, RefusesWhenAChunkOffsetPointsIntoTheRegionToOverwrite)
{
    // moov at 24 with a 16-byte free behind it: the region is [24, 24 + moov + 16).
    const qsizetype moovOffset = ftyp.size();
    const qsizetype moovSize = simpleMoov({0}).size();
    const std::uint32_t capacityEnd = std::uint32_t(moovOffset + moovSize + 16);
    for (const auto& [chunk, passes] : {std::pair{capacityEnd, true}, std::pair{capacityEnd - 1, false},
                                        std::pair{std::uint32_t(moovOffset), false}, std::pair{std::uint32_t(moovOffset - 1), true}}) {
        ASSERT_TRUE(writeBytes(path, ftyp + simpleMoov({chunk}) + box("free", QByteArray(8, 0)) + box("mdat", "abcd")));
        const QString failure = planFailure(readGrown(8));
        if (passes)
            EXPECT_TRUE(failure.isEmpty()) << chunk << " " << failure.toStdString();
        else
            EXPECT_EQ(failure, QStringLiteral("moov-only rewrite not possible: chunk offset %1 points into the moov/free region").arg(chunk));
    }
    // co64 entries are searched too, in append mode as well.
    ASSERT_TRUE(writeBytes(path, ftyp + moovWith(trak(1, "soun", 0, co64({quint64(moovOffset + 10)}))) + box("mdat", "abcd")));
    EXPECT_TRUE(planFailure(readGrown(200)).contains(QStringLiteral("chunk offset %1 points").arg(moovOffset + 10)));
}

TEST_F(MP4MoovRewriterTest, RefusesAMovedMoovAndAFileThatChangedSizeBeforeTheWrite)
{
    const QByteArray moov = simpleMoov({0});
    const QByteArray tail = box("free", QByteArray(40, 0)) + box("mdat", QByteArray(16, 'm'));
    ASSERT_TRUE(writeBytes(path, ftyp + moov + tail));
    auto b = readGrown(16);
    b.fileOffset += 8;
    EXPECT_EQ(planFailure(b), QStringLiteral("moov-only rewrite not possible: moov header at %1 no longer matches the loaded buffer")
                                  .arg(ftyp.size() + 8));

    for (int grow : {16, 400}) {
        ASSERT_TRUE(writeBytes(path, ftyp + moov + tail));
        const auto plan = MP4MoovRewriter::plan(readGrown(grow), path);
        EXPECT_EQ(plan.mode, grow == 16 ? Mode::inplace : Mode::append);
        // Something appends to the file between plan and write.
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::Append));
        f.write("xxxx");
        f.close();
        const QByteArray before = readBytes(path);
        try {
            MP4MoovRewriter::rewrite(plan, path);
            FAIL() << "expected a size-change refusal";
        } catch (const MP4MoovRewriter::UnsupportedLayout& e) {
            EXPECT_EQ(e.reason(), QStringLiteral("file size changed between plan (%1) and write (%2)")
                                      .arg(before.size() - 4)
                                      .arg(before.size()));
        }
        EXPECT_EQ(readBytes(path), before);
    }
}

TEST_F(MP4MoovRewriterTest, FreeHeaderUsesTheLargeFormOnlyBeyond32Bits)
{
    EXPECT_EQ(MP4MoovRewriter::freeHeader(8), u32(8) + "free");
    EXPECT_EQ(MP4MoovRewriter::freeHeader(0xFFFFFFFFu), u32(0xFFFFFFFFu) + "free");
    EXPECT_EQ(MP4MoovRewriter::freeHeader(0x100000000ULL), u32(1) + "free" + u64(0x100000000ULL));
    EXPECT_EQ(MP4MoovRewriter::modeText(Mode::inplace), QStringLiteral("inplace"));
    EXPECT_EQ(MP4MoovRewriter::modeText(Mode::append), QStringLiteral("append"));
}
