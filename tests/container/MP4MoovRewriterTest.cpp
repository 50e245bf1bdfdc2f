#include "MP4TestBoxes.h"

#include "container/io/FaultInjection.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4FreeZone.h"
#include "container/mp4/MP4MoovReader.h"
#include "container/mp4/MP4MoovRewriter.h"
#include "platform/Log.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <stdexcept>

using namespace folivox;
using namespace folivox::test;
using Mode = MP4MoovRewriter::Mode;

namespace {
struct Stop : std::runtime_error {
    Stop() : std::runtime_error("stopped") {}
};

class MP4MoovRewriterTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path = dir.filePath("book.m4b");
    const QByteArray ftyp = box("ftyp", "M4A " + u32(0) + "M4A isom");

    // The moov read back, with `grow` bytes added (a free child) or cut
    // from its end, its size fixed.
    MP4MoovReader::MoovBuffer readGrown(int grow)
    {
        auto b = MP4MoovReader::read(path);
        if (grow > 0)
            b.data += grow >= 8 ? box("free", QByteArray(grow - 8, 'g')) : QByteArray(grow, '\0');
        else if (grow < 0)
            b.data.chop(-grow);
        MP4Bytes::put32(b.data.data(), std::uint32_t(b.data.size()));
        return b;
    }
    QString planFailure(MP4MoovReader::MoovBuffer b, const QByteArray& media = {})
    {
        try {
            MP4MoovRewriter::plan(std::move(b), path, media, std::uint64_t(readBytes(path).size()));
        } catch (const MP4MoovRewriter::UnsupportedLayout& e) {
            return e.description();
        }
        return {};
    }
    // Type@offset+size of every top-level box, and whether they reach the end.
    QString layout()
    {
        const MP4File f(path, MP4File::Access::read);
        QStringList parts;
        std::uint64_t end = 0;
        for (const auto& b : MP4BoxHeader::listTopLevel(f, f.size())) {
            parts << QStringLiteral("%1@%2+%3").arg(b.type).arg(b.offset).arg(b.size);
            end = b.end();
        }
        if (end != f.size())
            parts << QStringLiteral("unparsed@%1").arg(end);
        return parts.join(u' ');
    }
    int reachableMoovs()
    {
        const MP4File f(path, MP4File::Access::read);
        int n = 0;
        for (const auto& b : MP4FreeZone::walk(f, f.size()))
            n += b.type == QLatin1String("moov");
        return n;
    }
    // Runs the rewrite once to learn its steps, then from the same start
    // stops it at each step in turn and hands the file to check.
    void atEveryStep(const QByteArray& start, int grow, const std::function<void(const QString&)>& check)
    {
        QStringList points;
        ASSERT_TRUE(writeBytes(path, start));
        {
            FaultInjection::Scope record([&](const QString& p) { points << p; });
            MP4MoovRewriter::rewrite(MP4MoovRewriter::plan(readGrown(grow), path), path);
        }
        ASSERT_TRUE(points.contains(QStringLiteral("rewrite.switched"))) << points.join(u',').toStdString();
        for (const QString& point : points) {
            ASSERT_TRUE(writeBytes(path, start));
            const auto plan = MP4MoovRewriter::plan(readGrown(grow), path);
            FaultInjection::Scope stop([&](const QString& p) {
                if (p == point)
                    throw Stop();
            });
            EXPECT_THROW(MP4MoovRewriter::rewrite(plan, path), Stop) << point.toStdString();
            check(point);
        }
    }
};
} // namespace

TEST_F(MP4MoovRewriterTest, AMoovAtTheEndGrowsBehindItselfThenComesBackToTheFront)
{
    const QByteArray mdat = box("mdat", QByteArray(64, 'a'));
    const QByteArray moov = simpleMoov({quint32(ftyp.size() + 8)});
    const qsizetype o = ftyp.size() + mdat.size();
    ASSERT_TRUE(writeBytes(path, ftyp + mdat + moov));

    auto b = readGrown(100);
    auto plan = MP4MoovRewriter::plan(b, path);
    EXPECT_EQ(plan.mode, Mode::append);
    EXPECT_EQ(plan.switchOffset, std::uint64_t(o));
    LogCapture log;
    MP4MoovRewriter::rewrite(plan, path);
    // The old moov became one free box (the 8 bytes behind it included),
    // zeroed; the new one follows it; nothing ahead of it moved.
    QByteArray after = readBytes(path);
    EXPECT_EQ(after.left(o), ftyp + mdat);
    EXPECT_EQ(after.mid(o, 8), u32(std::uint32_t(moov.size() + 8)) + "free");
    EXPECT_EQ(after.mid(o + 8, moov.size() - 8), QByteArray(moov.size() - 8, '\0'));
    EXPECT_EQ(after.mid(o + moov.size() + 8), b.data);
    EXPECT_TRUE(log.contains(QStringLiteral("[AtomsPerf] rewrite mode=append moovOld=%1 moovNew=%2 free=0 ms=")
                                 .arg(moov.size())
                                 .arg(b.data.size())));

    // The next edit of the same size fits in the dead space ahead: it goes
    // there, and the free tail behind it is cut off.
    b = readGrown(-100);
    b.data.replace("Folivox test", "Folivox TEST");
    plan = MP4MoovRewriter::plan(b, path);
    EXPECT_EQ(plan.mode, Mode::front);
    MP4MoovRewriter::rewrite(plan, path);
    EXPECT_EQ(readBytes(path), ftyp + mdat + b.data);
    EXPECT_EQ(MP4MoovReader::read(path).data, b.data);
}

TEST_F(MP4MoovRewriterTest, DeadSpaceAheadIsMergedAndReusedWithoutGrowingTheFile)
{
    const QByteArray media = box("mdat", QByteArray(32, 'm'));
    const QByteArray lead = box("free", QByteArray(600, 'f')) + box("skip", QByteArray(100, 's'));
    const QByteArray moov = simpleMoov({quint32(ftyp.size() + 8)});
    const QByteArray tail = box("free", QByteArray(20, 't'));
    const QByteArray last = box("uuid", QByteArray(16, 'u'));
    ASSERT_TRUE(writeBytes(path, ftyp + media + lead + moov + tail + last));
    const qsizetype zs = ftyp.size() + media.size();
    const qsizetype ze = zs + lead.size() + moov.size() + tail.size();

    const auto b = readGrown(40);
    const auto plan = MP4MoovRewriter::plan(b, path);
    EXPECT_EQ(plan.mode, Mode::front);
    EXPECT_EQ(plan.zoneStart, std::uint64_t(zs));
    EXPECT_EQ(plan.zoneEnd, std::uint64_t(ze));
    EXPECT_FALSE(plan.leadIsOneFreeBox);
    QStringList points;
    {
        FaultInjection::Scope record([&](const QString& p) { points << p; });
        MP4MoovRewriter::rewrite(plan, path);
    }
    EXPECT_EQ(points.first(), QStringLiteral("rewrite.leadMerged"));
    const QByteArray after = readBytes(path);
    EXPECT_EQ(after.size(), zs + lead.size() + moov.size() + tail.size() + last.size());
    EXPECT_EQ(after.mid(zs, b.data.size()), b.data);
    // One free box from behind the new moov over the old one and the tail.
    EXPECT_EQ(after.mid(zs + b.data.size(), 8), u32(std::uint32_t(ze - zs - b.data.size())) + "free");
    EXPECT_EQ(after.right(last.size()), last);
    EXPECT_EQ(layout(), QStringLiteral("ftyp@0+%1 mdat@%1+%2 moov@%3+%4 free@%5+%6 uuid@%7+24")
                            .arg(ftyp.size())
                            .arg(media.size())
                            .arg(zs)
                            .arg(b.data.size())
                            .arg(zs + b.data.size())
                            .arg(ze - zs - b.data.size())
                            .arg(ze));
}

TEST_F(MP4MoovRewriterTest, FreeSpaceBehindAMoovAheadOfTheMediaTakesTheNewCopy)
{
    const QByteArray room = box("free", QByteArray(2000, 'r'));
    const qsizetype moovSize = simpleMoov({0}).size();
    const std::uint32_t chunk = std::uint32_t(ftyp.size() + moovSize + room.size() + 8);
    const QByteArray moov = simpleMoov({chunk});
    const QByteArray mdat = box("mdat", QByteArray(40, 'm'));
    ASSERT_TRUE(writeBytes(path, ftyp + moov + room + mdat));
    const qsizetype o = ftyp.size();

    auto b = readGrown(64);
    auto plan = MP4MoovRewriter::plan(b, path);
    EXPECT_EQ(plan.mode, Mode::behind);
    MP4MoovRewriter::rewrite(plan, path);
    const qsizetype n = o + moov.size() + 8;
    EXPECT_EQ(layout(), QStringLiteral("ftyp@0+%1 free@%1+%2 moov@%3+%4 free@%5+%6 mdat@%7+48")
                            .arg(o)
                            .arg(moov.size() + 8)
                            .arg(n)
                            .arg(b.data.size())
                            .arg(n + b.data.size())
                            .arg(chunk - 8 - n - b.data.size())
                            .arg(chunk - 8));
    EXPECT_EQ(readBytes(path).right(mdat.size()), mdat);

    // Edited again: the dead space ahead now holds it.
    b = readGrown(-72);
    plan = MP4MoovRewriter::plan(b, path);
    EXPECT_EQ(plan.mode, Mode::front);
    MP4MoovRewriter::rewrite(plan, path);
    EXPECT_EQ(MP4MoovReader::read(path).fileOffset, std::uint64_t(o));
    EXPECT_EQ(QFileInfo(path).size(), ftyp.size() + moov.size() + room.size() + mdat.size());
}

TEST_F(MP4MoovRewriterTest, NoRoomAroundTheMoovIsRefusedBeforeAnyWrite)
{
    const QByteArray mdat = box("mdat", QByteArray(40, 'm'));
    const QByteArray moov = simpleMoov({quint32(ftyp.size() + 16 + simpleMoov({0}).size() + 8)});
    // What ffmpeg's fast start leaves: 8 free bytes ahead, the media behind.
    ASSERT_TRUE(writeBytes(path, ftyp + box("free") + moov + mdat));
    const QByteArray before = readBytes(path);
    const auto b = readGrown(-8);
    EXPECT_EQ(planFailure(b), QStringLiteral("moov-only rewrite not possible: no free space around the moov holds a new copy "
                                             "of %1 bytes, and it does not reach the end of the file")
                                  .arg(b.data.size()));
    // Room behind for the copy but 1 to 7 bytes left over: no free box fits there.
    const QByteArray unpointed = simpleMoov({0});
    ASSERT_TRUE(writeBytes(path, ftyp + unpointed + box("free", QByteArray(unpointed.size() + 3, 0)) + mdat));
    EXPECT_FALSE(planFailure(readGrown(0)).isEmpty());
    EXPECT_TRUE(planFailure(readGrown(3)).isEmpty());
    ASSERT_TRUE(writeBytes(path, before));
    EXPECT_EQ(readBytes(path), before);
}

TEST_F(MP4MoovRewriterTest, RefusesWhenAChunkOffsetPointsIntoTheSpaceToReuse)
{
    const qsizetype zs = ftyp.size();
    const qsizetype moovSize = simpleMoov({0}).size();
    const std::uint32_t ze = std::uint32_t(zs + 24 + moovSize + 16);
    for (const auto& [chunk, passes] : {std::pair{ze, true}, std::pair{ze - 1, false}, std::pair{std::uint32_t(zs), false},
                                        std::pair{std::uint32_t(zs - 1), true}}) {
        ASSERT_TRUE(writeBytes(path, ftyp + box("free", QByteArray(16, 0)) + simpleMoov({chunk}) + box("free", QByteArray(8, 0))
                                         + box("mdat", "abcd")));
        const QString failure = planFailure(readGrown(8));
        if (passes)
            EXPECT_FALSE(failure.contains(QStringLiteral("chunk offset"))) << chunk << " " << failure.toStdString();
        else
            EXPECT_EQ(failure, QStringLiteral("moov-only rewrite not possible: chunk offset %1 points into the moov/free region").arg(chunk));
    }
}

TEST_F(MP4MoovRewriterTest, RefusesAMovedMoovAndAFileThatChangedBeforeTheWrite)
{
    const QByteArray moov = simpleMoov({0});
    const QByteArray tail = box("free", QByteArray(1000, 0)) + box("mdat", QByteArray(16, 'm'));
    ASSERT_TRUE(writeBytes(path, ftyp + moov + tail));
    auto b = readGrown(16);
    b.fileOffset += 8;
    EXPECT_EQ(planFailure(b), QStringLiteral("moov-only rewrite not possible: moov header at %1 no longer matches the loaded buffer")
                                  .arg(ftyp.size() + 8));

    const auto plan = MP4MoovRewriter::plan(readGrown(16), path);
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

TEST_F(MP4MoovRewriterTest, LeftoversOfAStoppedGrowthAtTheEndAreReused)
{
    const QByteArray mdat = box("mdat", QByteArray(64, 'a'));
    const QByteArray moov = simpleMoov({quint32(ftyp.size() + 8)});
    // Zeros behind the moov, then a free box claiming more than the file holds.
    for (const QByteArray& leftover : {QByteArray(300, '\0'), u32(5000) + "free" + QByteArray(100, 'x')}) {
        ASSERT_TRUE(writeBytes(path, ftyp + mdat + moov + leftover));
        const auto b = readGrown(40);
        const auto plan = MP4MoovRewriter::plan(b, path);
        EXPECT_TRUE(plan.zoneReachesEnd);
        MP4MoovRewriter::rewrite(plan, path);
        EXPECT_EQ(MP4MoovReader::read(path).data, b.data);
        EXPECT_FALSE(layout().contains(QStringLiteral("unparsed"))) << layout().toStdString();
        EXPECT_EQ(reachableMoovs(), 1);
    }
    // A moov whose stored size is 0 is given its size before anything lands behind it.
    QByteArray open = moov;
    MP4Bytes::put32(open.data(), 0);
    ASSERT_TRUE(writeBytes(path, ftyp + mdat + open));
    QStringList points;
    FaultInjection::Scope record([&](const QString& p) { points << p; });
    MP4MoovRewriter::rewrite(MP4MoovRewriter::plan(readGrown(40), path), path);
    EXPECT_EQ(points.first(), QStringLiteral("rewrite.pinned"));
    EXPECT_FALSE(layout().contains(QStringLiteral("unparsed")));
}

TEST_F(MP4MoovRewriterTest, NewMediaLandsAheadOfTheNewMoovAndUnusedMediaIsFreed)
{
    const QByteArray audio = box("mdat", QByteArray(64, 'a'));
    const std::uint32_t audioChunk = std::uint32_t(ftyp.size() + 8);
    ASSERT_TRUE(writeBytes(path, ftyp + audio + simpleMoov({audioChunk})));
    std::uint64_t base = std::uint64_t(readBytes(path).size());

    // A second track whose chunk lies in media given with the moov.
    const auto withText = [&](std::uint64_t chunk) {
        auto b = MP4MoovReader::read(path);
        QByteArray data = moovWith(b.data.mid(8) + trak(2, "text", 0, stco({std::uint32_t(chunk)})));
        b.data = data;
        return b;
    };
    const QByteArray media1 = box("mdat", "chapter one");
    auto plan = MP4MoovRewriter::plan(withText(base + 8), path, media1, base);
    EXPECT_EQ(plan.mode, Mode::append);
    MP4MoovRewriter::rewrite(plan, path);
    QByteArray after = readBytes(path);
    EXPECT_EQ(after.mid(qsizetype(plan.unitOffset), media1.size()), media1);
    EXPECT_TRUE(MP4MoovReader::read(path).data.contains(u32(std::uint32_t(plan.unitOffset + 8))));

    // Replaced: the first samples are no longer used. The old ones stay
    // readable until the switch, and are covered by free space after it.
    base = std::uint64_t(after.size());
    const auto b2 = MP4MoovReader::read(path);
    QByteArray data2 = b2.data;
    const qsizetype at = data2.indexOf(u32(std::uint32_t(plan.unitOffset + 8)));
    ASSERT_GT(at, 0);
    data2.replace(at, 4, u32(std::uint32_t(base + 8)));
    auto edited = b2;
    edited.data = data2;
    const QByteArray media2 = box("mdat", "chapter two!");
    const auto plan2 = MP4MoovRewriter::plan(edited, path, media2, base);
    // The unused samples join the dead space ahead, but nothing is written
    // into them before the switch.
    EXPECT_EQ(plan2.zoneStart, std::uint64_t(ftyp.size() + audio.size()));
    EXPECT_EQ(plan2.writableLeadEnd, plan.unitOffset);
    MP4MoovRewriter::rewrite(plan2, path);
    after = readBytes(path);
    EXPECT_EQ(after.mid(qsizetype(plan2.unitOffset), media2.size()), media2);
    EXPECT_EQ(layout().count(QStringLiteral("mdat")), 2) << layout().toStdString();
    EXPECT_EQ(reachableMoovs(), 1);
}

TEST_F(MP4MoovRewriterTest, StoppedAtAnyStepTheFileHoldsOneWholeMoovOldOrNew)
{
    const QByteArray mdat = box("mdat", QByteArray(64, 'a'));
    const QByteArray moov = simpleMoov({quint32(ftyp.size() + 8)});
    struct Case {
        const char* name;
        QByteArray start;
        int grow;
    };
    const QByteArray lastLayout = ftyp + mdat + moov;
    const QList<Case> cases{
        {"moov last, grows", lastLayout, 100},
        {"moov last, shrinks", lastLayout, -20},
        {"dead space ahead in pieces", ftyp + mdat + box("free", QByteArray(200, 1)) + box("skip", QByteArray(200, 2)) + moov, 40},
        {"room behind in pieces, closed", ftyp + mdat + moov + box("free", QByteArray(300, 3)) + box("free", QByteArray(300, 4))
                                              + box("mdat", "x"), 60},
        {"room behind, grows past the end", ftyp + mdat + moov + box("free", QByteArray(30, 5)), 200},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(writeBytes(path, c.start));
        const QByteArray oldMoov = MP4MoovReader::read(path).data;
        const QByteArray newMoov = readGrown(c.grow).data;
        atEveryStep(c.start, c.grow, [&](const QString& point) {
            const QString where = QStringLiteral("%1 at %2: %3").arg(QLatin1String(c.name), point, layout());
            EXPECT_EQ(reachableMoovs(), 1) << where.toStdString();
            const QByteArray found = MP4MoovReader::read(path).data;
            EXPECT_TRUE(found == oldMoov || found == newMoov) << where.toStdString();
            EXPECT_EQ(found == newMoov, point != QLatin1String("rewrite.leadMerged") && point != QLatin1String("rewrite.pinned")
                                            && point != QLatin1String("rewrite.grown") && point != QLatin1String("rewrite.wrapped")
                                            && point != QLatin1String("rewrite.copyWritten"))
                << where.toStdString();
            // The media ahead is untouched and the whole file parses.
            EXPECT_EQ(readBytes(path).left(ftyp.size() + mdat.size()), ftyp + mdat) << where.toStdString();
            bool clean = false;
            const MP4File f(path, MP4File::Access::read);
            MP4FreeZone::walk(f, f.size(), &clean);
            EXPECT_TRUE(clean) << where.toStdString();
        });
    }
}

TEST_F(MP4MoovRewriterTest, FreeHeaderUsesTheLargeFormOnlyBeyond32Bits)
{
    EXPECT_EQ(MP4MoovRewriter::freeHeader(8), u32(8) + "free");
    EXPECT_EQ(MP4MoovRewriter::freeHeader(0xFFFFFFFFu), u32(0xFFFFFFFFu) + "free");
    EXPECT_EQ(MP4MoovRewriter::freeHeader(0x100000000ULL), u32(1) + "free" + u64(0x100000000ULL));
    EXPECT_EQ(MP4MoovRewriter::modeText(Mode::front), QStringLiteral("front"));
    EXPECT_EQ(MP4MoovRewriter::modeText(Mode::behind), QStringLiteral("behind"));
    EXPECT_EQ(MP4MoovRewriter::modeText(Mode::append), QStringLiteral("append"));
}
