// Tail snapshots and fast-start copies on real files written by ffmpeg:
// a snapshot undoes the edits the tag tools make, byte for byte, and a
// fast-start copy keeps the audio and leaves its source alone.
#include "MP4TestBoxes.h"
#include "support/Fixtures.h"

#include "container/mp4/FastStartRelocator.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4LanguageAtomWriter.h"
#include "container/mp4/MP4MoovReader.h"
#include "container/mp4/MP4MoovCopyRewriter.h"
#include "container/mp4/MP4MoovRewriter.h"
#include "container/mp4/MP4TailSnapshot.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <stdexcept>

using namespace folivox;
using namespace folivox::test;

namespace {
QList<MP4BoxHeader> boxesOf(const QString& path)
{
    const MP4File f(path, MP4File::Access::read);
    return MP4BoxHeader::listTopLevel(f, f.size());
}

QStringList typesOf(const QString& path)
{
    QStringList types;
    for (const auto& b : boxesOf(path))
        types << b.type;
    return types;
}

class TailSnapshotIntegrationTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QTemporaryDir spill;

    // An AAC book from the ipod muxer: moov last.
    QString makeBook(const QString& name, double seconds = 5)
    {
        const QString path = dir.filePath(name);
        EXPECT_TRUE(Fixtures::tone(path, seconds, {"-c:a", "aac", "-b:a", "64k", "-f", "ipod"}, 44100, 1));
        return path;
    }

    // What the tag tools do to a book: a moov grown by a freeform item of
    // valueBytes, with a new media box, put back by the rewriter.
    MP4MoovRewriter::Mode toolEdit(const QString& path, int valueBytes)
    {
        QByteArray media("\0\0\0\0mdat", 8);
        media += QByteArray(5000, 'x');
        MP4Bytes::put32(media.data(), std::uint32_t(media.size()));
        auto moov = MP4MoovReader::read(path);
        const MP4LanguageAtomWriter::FreeformTag tag{QStringLiteral("NARRATOR"), QString(valueBytes, u'n'), valueBytes + 1};
        EXPECT_TRUE(MP4LanguageAtomWriter::placeFreeformAtom(moov.data, 0, tag).has_value());
        const auto plan = MP4MoovRewriter::plan(std::move(moov), path, media, std::uint64_t(QFileInfo(path).size()));
        MP4MoovRewriter::rewrite(plan, path);
        return plan.mode;
    }
};
} // namespace

TEST_F(TailSnapshotIntegrationTest, RestoreUndoesToolEditsByteForByteWithoutCopyingTheMedia)
{
    // moov last, then moov ahead with padding (small and large edits), then
    // moov ahead of an open-ended mdat.
    const QString moovLast = makeBook(QStringLiteral("last.m4b"), 8);
    const QString ahead = dir.filePath(QStringLiteral("ahead.m4b"));
    ASSERT_EQ(FastStartRelocator::copyFastStart(moovLast, ahead, 16384).kind, FastStartRelocator::Outcome::Kind::relocated);
    QByteArray openEndedBytes = readBytes(ahead);
    for (const auto& b : boxesOf(ahead))
        if (b.type == QLatin1String("mdat"))
            MP4Bytes::put32(openEndedBytes.data() + b.offset, 0);
    const QString openEnded = dir.filePath(QStringLiteral("open.m4b"));
    ASSERT_TRUE(writeBytes(openEnded, openEndedBytes));

    struct Case {
        QString path;
        int valueBytes;
    };
    for (const Case& c : {Case{moovLast, 200}, Case{moovLast, 3000}, Case{ahead, 200}, Case{ahead, 8000},
                          Case{openEnded, 8000}}) {
        const QString label = QFileInfo(c.path).fileName() + QStringLiteral(" +%1").arg(c.valueBytes);
        const QByteArray original = readBytes(c.path);
        const MP4TailSnapshot snapshot = MP4TailSnapshot::take(c.path, spill.path());
        EXPECT_FALSE(snapshot.isFullCopy()) << label.toStdString();
        EXPECT_EQ(snapshot.originalLength(), std::uint64_t(original.size()));
        EXPECT_LT(snapshot.savedBytes(), std::uint64_t(original.size()) / 4) << label.toStdString();

        toolEdit(c.path, c.valueBytes);
        ASSERT_NE(readBytes(c.path), original) << label.toStdString();
        snapshot.restore(c.path);
        EXPECT_TRUE(readBytes(c.path) == original) << label.toStdString() << " differs after restore";
    }

    // With no room around the moov the file is replaced by a new copy: the
    // snapshot no longer fits it and refuses rather than damage it.
    const MP4TailSnapshot snapshot = MP4TailSnapshot::take(ahead, spill.path());
    auto moov = MP4MoovReader::read(ahead);
    MP4LanguageAtomWriter::placeFreeformAtom(moov.data, 0, {QStringLiteral("NARRATOR"), QString(60000, u'n'), 60001});
    MP4MoovCopyRewriter::rewrite(moov, ahead);
    const QByteArray copied = readBytes(ahead);
    EXPECT_THROW(snapshot.restore(ahead), GenericError);
    EXPECT_EQ(readBytes(ahead), copied);
}

TEST_F(TailSnapshotIntegrationTest, AFileWithoutMoovIsBackedUpWhole)
{
    const QString path = dir.filePath(QStringLiteral("notes.m4b"));
    const QByteArray original = QByteArray("not an mp4 at all, just text ") .repeated(100);
    ASSERT_TRUE(writeBytes(path, original));
    const MP4TailSnapshot snapshot = MP4TailSnapshot::take(path, spill.path());
    EXPECT_TRUE(snapshot.isFullCopy());
    EXPECT_EQ(snapshot.savedBytes(), std::uint64_t(original.size()));
    ASSERT_TRUE(writeBytes(path, QByteArray("damaged")));
    snapshot.restore(path);
    EXPECT_EQ(readBytes(path), original);
}

TEST_F(TailSnapshotIntegrationTest, FastStartCopyPutsMoovAheadKeepsTheAudioAndLeavesTheSourceAlone)
{
    const QString source = makeBook(QStringLiteral("source.m4b"), 8);
    ASSERT_EQ(typesOf(source), (QStringList{"ftyp", "free", "mdat", "moov"}));
    const QByteArray sourceBytes = readBytes(source);
    const QString md5 = Fixtures::decodedMd5(source);
    ASSERT_FALSE(md5.isEmpty());

    const QString copy = dir.filePath(QStringLiteral("copy.m4b"));
    double last = 0;
    int calls = 0;
    const auto outcome = FastStartRelocator::copyFastStart(source, copy, 70000, [&](double f) {
        EXPECT_GE(f, last);
        last = f;
        ++calls;
    });
    ASSERT_EQ(outcome.kind, FastStartRelocator::Outcome::Kind::relocated);
    EXPECT_GT(calls, 0);
    EXPECT_DOUBLE_EQ(last, 1.0);
    EXPECT_EQ(readBytes(source), sourceBytes);
    EXPECT_EQ(typesOf(copy), (QStringList{"ftyp", "free", "moov", "free", "mdat"}));
    EXPECT_EQ(Fixtures::decodedMd5(copy), md5);

    // The padding is at least what was asked for, and the media moved by
    // whole pages.
    std::uint64_t oldMdat = 0;
    for (const auto& b : boxesOf(source))
        if (b.type == QLatin1String("mdat"))
            oldMdat = b.offset;
    const auto boxes = boxesOf(copy);
    EXPECT_GE(boxes.at(3).size, 70000u);
    EXPECT_EQ((boxes.at(4).offset - oldMdat) % 4096, 0u);
    EXPECT_EQ(QFileInfo(copy).size(), qint64(sourceBytes.size() + qsizetype(boxes.at(3).size)));

    // A source already in fast-start order keeps moov first and gets the
    // padding right behind it; the media moves by whole pages.
    const QByteArray copyBytes = readBytes(copy);
    const QString again = dir.filePath(QStringLiteral("again.m4b"));
    EXPECT_EQ(FastStartRelocator::copyFastStart(copy, again, 5000).kind, FastStartRelocator::Outcome::Kind::relocated);
    EXPECT_EQ(readBytes(copy), copyBytes);
    EXPECT_EQ(typesOf(again), (QStringList{"ftyp", "free", "moov", "free", "free", "mdat"}));
    const auto paddedBoxes = boxesOf(again);
    EXPECT_EQ(paddedBoxes.at(3).size, 8192u);
    EXPECT_EQ((paddedBoxes.at(5).offset - boxes.at(4).offset) % 4096, 0u);
    EXPECT_EQ(Fixtures::decodedMd5(again), md5);
}

TEST_F(TailSnapshotIntegrationTest, AFastStartCopyStoppedByItsCallerLeavesNoFile)
{
    const QString source = makeBook(QStringLiteral("source.m4b"), 3);
    const QString copy = dir.filePath(QStringLiteral("copy.m4b"));
    EXPECT_THROW(FastStartRelocator::copyFastStart(source, copy, 65536, [](double) { throw std::runtime_error("stop"); }),
                 std::runtime_error);
    EXPECT_FALSE(QFileInfo::exists(copy));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"source.m4b"});
}
