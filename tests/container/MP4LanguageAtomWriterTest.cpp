#include "MP4TestBoxes.h"

#include "container/mp4/LanguageCodes.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4ChapterTrackLanguagePatcher.h"
#include "container/mp4/MP4LanguageAtomWriter.h"
#include "container/mp4/MP4MoovReader.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;
using Writer = MP4LanguageAtomWriter;

namespace {
int countOf(const QByteArray& haystack, const QByteArray& needle)
{
    int n = 0;
    for (qsizetype at = haystack.indexOf(needle); at >= 0; at = haystack.indexOf(needle, at + 1))
        ++n;
    return n;
}

// The ilst children of a moov buffer, as (type code, bytes).
QList<QByteArray> ilstItems(const QByteArray& moov)
{
    const auto path = Writer::ilstPath(moov, 0);
    QList<QByteArray> items;
    if (path.size() < 4)
        return items;
    qsizetype pos = path[3].contentOffset;
    const qsizetype end = path[3].offset + path[3].size;
    while (pos < end) {
        const auto h = MP4BoxHeader::decodeAt(moov, pos, end);
        items.append(moov.mid(pos, qsizetype(h.size)));
        pos += qsizetype(h.size);
    }
    return items;
}

std::uint16_t audioLanguage(const QByteArray& moov)
{
    return MP4ChapterTrackLanguagePatcher::trackLanguageFields(moov)[0].packed;
}
} // namespace

TEST(MP4LanguageAtomWriterTest, BuildsTheLanguageAndFreeformAtomsByteForByte)
{
    const QByteArray lan = Writer::languageAtom(QStringLiteral("Français"));
    const QByteArray text = QStringLiteral("Français").toUtf8();
    EXPECT_EQ(lan, u32(std::uint32_t(text.size() + 24)) + "\xA9lan" + u32(std::uint32_t(text.size() + 16)) + "data" + u32(1)
                       + u32(0) + text);
    // Cut to 256 characters, not bytes.
    EXPECT_EQ(Writer::languageAtom(QString(300, QChar(0x00E9))).size(), 24 + 512);

    const QByteArray ff = Writer::freeformAtom({QStringLiteral("LANGUAGE"), QStringLiteral("eng"), 64});
    const QByteArray expected = box("----", box("mean", u32(0) + "com.apple.iTunes") + box("name", u32(0) + "LANGUAGE")
                                               + box("data", u32(1) + u32(0) + "eng"));
    EXPECT_EQ(ff, expected);

    // 63 ASCII bytes and a 2-byte character: the 64-byte cut would split it.
    const QString value = QString(63, u'a') + QChar(0x00E9);
    EXPECT_EQ(Writer::utf8Prefix(value, 64).size(), 63);
    EXPECT_EQ(Writer::utf8Prefix(value, 65).size(), 65);
    EXPECT_EQ(Writer::utf8Prefix(QString(62, u'a') + QChar(0x20AC), 64).size(), 62); // 3-byte euro sign
}

TEST(MP4LanguageAtomWriterTest, ReplacesEarlierCopiesAndKeepsEverySizeOnThePathRight)
{
    QByteArray moov = simpleMoov({0});
    const auto d1 = Writer::placeLanguageAtom(moov, 0, QStringLiteral("English"));
    ASSERT_TRUE(d1);
    EXPECT_EQ(*d1, 24 + 7);
    const qsizetype sizeAfterFirst = moov.size();
    // Same length: the moov keeps its size and holds one ©lan.
    const auto d2 = Writer::placeLanguageAtom(moov, 0, QStringLiteral("Deutsch"));
    EXPECT_EQ(*d2, 0);
    EXPECT_EQ(moov.size(), sizeAfterFirst);
    EXPECT_EQ(countOf(moov, "\xA9lan"), 1);
    EXPECT_TRUE(moov.contains("Deutsch"));

    // Two freeform names live side by side; rewriting one replaces only it.
    Writer::placeFreeformAtom(moov, 0, {QStringLiteral("LANGUAGE"), QStringLiteral("eng"), 64});
    Writer::placeFreeformAtom(moov, 0, {QStringLiteral("NARRATOR"), QStringLiteral("Somebody"), 255});
    Writer::placeFreeformAtom(moov, 0, {QStringLiteral("LANGUAGE"), QStringLiteral("deu"), 64});
    const auto items = ilstItems(moov);
    ASSERT_EQ(items.size(), 4);
    EXPECT_EQ(items[0].mid(4, 4), QByteArray("\xA9too"));
    EXPECT_EQ(items[1].mid(4, 4), QByteArray("\xA9lan"));
    EXPECT_TRUE(items[2].contains("NARRATOR"));
    EXPECT_TRUE(items[3].endsWith("deu"));
    EXPECT_EQ(countOf(moov, "LANGUAGE"), 1);

    // Every box on the path and the whole buffer still parse to their ends.
    const auto path = Writer::ilstPath(moov, 0);
    ASSERT_EQ(path.size(), 4);
    EXPECT_EQ(path[0].size, moov.size());
    EXPECT_EQ(path[1].offset + path[1].size, moov.size());
    EXPECT_EQ(path[3].offset + path[3].size, path[2].offset + path[2].size);
    EXPECT_EQ(path[2].contentOffset, path[2].offset + 12); // meta is a full box

    // A 64-bit moov size is adjusted in its large form.
    QByteArray large = u32(1) + "moov" + u64(std::uint64_t(simpleMoov({0}).size() + 8)) + simpleMoov({0}).mid(8);
    const auto d = Writer::placeLanguageAtom(large, 0, QStringLiteral("en"));
    ASSERT_TRUE(d);
    EXPECT_EQ(MP4Bytes::be64(large.constData() + 8), std::uint64_t(large.size()));

    // No ilst: skipped and logged.
    LogCapture log;
    QByteArray bare = moovWith(trak(1, "soun", 0));
    EXPECT_FALSE(Writer::placeLanguageAtom(bare, 0, QStringLiteral("English")));
    EXPECT_FALSE(Writer::placeFreeformAtom(bare, 0, {QStringLiteral("LANGUAGE"), QStringLiteral("eng"), 64}));
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] ilst box not found in moov buffer, skipping ©lan")));
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] ilst box not found in moov buffer, skipping freeform LANGUAGE")));
}

TEST(MP4LanguageAtomWriterTest, SetsTheAudioTrackLanguageAndLogsEverySkip)
{
    LogCapture log;
    QByteArray moov = simpleMoov({0});
    EXPECT_TRUE(Writer::setAudioLanguage(moov, 0, QStringLiteral("FRA")));
    EXPECT_EQ(audioLanguage(moov), *LanguageCodes::pack("fra"));
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] mdhd language set to 'fra' (0x%1)")
                                 .arg(QString::number(*LanguageCodes::pack("fra"), 16))));
    for (const char* bad : {"en", "e1g"}) {
        EXPECT_FALSE(Writer::setAudioLanguage(moov, 0, QString::fromLatin1(bad)));
        EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] Invalid ISO 639-2 code '%1', skipping mdhd").arg(bad)));
    }
    // Version 2 is read like version 1: the field at box offset + 40.
    QByteArray v2 = moovWith(box("trak", box("mdia", fullBox("mdhd", 2, QByteArray(32, 0)))));
    EXPECT_TRUE(Writer::setAudioLanguage(v2, 0, QStringLiteral("spa")));
    EXPECT_EQ(MP4Bytes::be16(v2.constData() + 8 + 8 + 8 + 40), *LanguageCodes::pack("spa"));

    QByteArray none = moovWith(box("udta"));
    EXPECT_FALSE(Writer::setAudioLanguage(none, 0, QStringLiteral("eng")));
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] mdhd box not found, skipping")));
    QByteArray empty = moovWith(box("trak", box("mdia", box("mdhd"))));
    EXPECT_FALSE(Writer::setAudioLanguage(empty, 0, QStringLiteral("eng")));
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] mdhd box truncated, skipping")));
    QByteArray small = moovWith(box("trak", box("mdia", fullBox("mdhd", 0, QByteArray(12, 0)))));
    EXPECT_FALSE(Writer::setAudioLanguage(small, 0, QStringLiteral("eng")));
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] mdhd box too small for language field, skipping")));
}

TEST(MP4LanguageAtomWriterTest, FastPathRewritesOnlyTheMoov)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("book.m4b");
    const QByteArray ftyp = box("ftyp", "M4B " + u32(0));
    const QByteArray mdat = box("mdat", QByteArray(4096, 'm'));
    // moov last: a new copy goes behind it, the old one becomes free space.
    ASSERT_TRUE(writeBytes(path, ftyp + mdat + simpleMoov({std::uint32_t(ftyp.size() + 8)})));
    LogCapture log;
    const QStringList labels = Writer::write(path, QStringLiteral("English"), QStringLiteral("ENG"));
    EXPECT_EQ(labels, (QStringList{"©lan", "iTunes:LANGUAGE", "mdhd"}));
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] ©lan+iTunes:LANGUAGE+mdhd written via fast path in ")));
    EXPECT_TRUE(log.contains(QStringLiteral("[AtomsPerf] rewrite mode=append")));
    const QByteArray after = readBytes(path);
    EXPECT_EQ(after.left(ftyp.size() + mdat.size()), ftyp + mdat);
    const auto moov = MP4MoovReader::read(path);
    EXPECT_TRUE(moov.isLastBox);
    EXPECT_EQ(audioLanguage(moov.data), *LanguageCodes::pack("eng"));
    EXPECT_EQ(countOf(moov.data, "LANGUAGE"), 1);
    EXPECT_TRUE(moov.data.endsWith(Writer::freeformAtom({"LANGUAGE", "ENG", 64})));

    // Writing the same again leaves one of each live; a third time the
    // moov goes back where it stood and the file ends right behind it.
    Writer::write(path, QStringLiteral("English"), QStringLiteral("eng"));
    EXPECT_EQ(countOf(MP4MoovReader::read(path).data, "\xA9lan"), 1);
    Writer::write(path, QStringLiteral("English"), QStringLiteral("eng"));
    EXPECT_EQ(countOf(readBytes(path), "\xA9lan"), 1);
    EXPECT_EQ(readBytes(path).size(), ftyp.size() + mdat.size() + qsizetype(moov.originalSize));
    EXPECT_EQ(MP4MoovReader::read(path).fileOffset, std::uint64_t(ftyp.size() + mdat.size()));

    // Nothing to write: the file is left alone.
    const QByteArray bare = ftyp + mdat + moovWith(box("udta"));
    ASSERT_TRUE(writeBytes(path, bare));
    EXPECT_TRUE(Writer::write(path, QStringLiteral("English"), {}).isEmpty());
    EXPECT_EQ(readBytes(path), bare);
}

TEST(MP4LanguageAtomWriterTest, FullFilePathShiftsChunkOffsetsWhenTheMoovStandsAheadOfMedia)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("book.m4b");
    const QByteArray ftyp = box("ftyp", "M4B " + u32(0));
    const QByteArray payload("AUDIO-CHUNK");
    // moov ahead of mdat, no free space, and a damaged tail: append is impossible.
    const qsizetype moovSize = simpleMoov({0}).size();
    const std::uint32_t chunk = std::uint32_t(ftyp.size() + moovSize + 8);
    const QByteArray original = ftyp + simpleMoov({chunk}) + box("mdat", payload) + u32(9999) + "junk";
    ASSERT_TRUE(writeBytes(path, original));
    LogCapture log;
    const QStringList labels = Writer::writeFreeform(path, {QStringLiteral("NARRATOR"), QStringLiteral("Someone"), 255});
    EXPECT_EQ(labels, QStringList{"iTunes:NARRATOR"});
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] moov-only rewrite not possible for 'NARRATOR' via full-file path")));
    EXPECT_TRUE(log.contains(QStringLiteral("[AtomsPerf] fallback site=writeFreeform reason=moov-only rewrite not possible: ")));
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] iTunes:NARRATOR written via full-file path in ")));

    const QByteArray after = readBytes(path);
    const auto moov = MP4MoovReader::read(path);
    // Room for later edits lies behind the new moov; the media moved by a
    // whole number of pages.
    const QByteArray roomHeader = after.mid(qsizetype(moov.fileOffset + moov.originalSize), 8);
    EXPECT_EQ(roomHeader.mid(4), "free");
    const std::int64_t delta = std::int64_t(moov.originalSize + MP4Bytes::be32(roomHeader.constData())) - moovSize;
    EXPECT_EQ(delta % 4096, 0);
    const std::uint32_t shifted = MP4Bytes::be32(moov.data.constData() + moov.data.indexOf("stco") + 12);
    EXPECT_EQ(shifted, chunk + delta);
    EXPECT_EQ(after.mid(shifted, payload.size()), payload);
    EXPECT_TRUE(after.endsWith(u32(9999) + "junk"));

    // A moov behind its media: offsets stay as they are.
    const QByteArray behind = ftyp + box("mdat", payload) + simpleMoov({std::uint32_t(ftyp.size() + 8)}) + u32(9999) + "junk";
    ASSERT_TRUE(writeBytes(path, behind));
    Writer::write(path, QStringLiteral("English"), {});
    const auto moov2 = MP4MoovReader::read(path);
    EXPECT_EQ(MP4Bytes::be32(moov2.data.constData() + moov2.data.indexOf("stco") + 12), std::uint32_t(ftyp.size() + 8));
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] Fast path failed (moov-only rewrite not possible: no free space "
                                            "around the moov holds a new copy of %1 bytes, and it does not reach the end of the "
                                            "file), using full-file path")
                                 .arg(moov2.originalSize)));
    EXPECT_TRUE(log.contains(QStringLiteral("[AtomsPerf] fallback site=writeLanguage reason=")));
}

TEST(MP4LanguageAtomWriterTest, LeavesAFileOver2048MBAloneWhenTheFastPathIsClosed)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("big.m4b");
    const QByteArray ftyp = box("ftyp", "M4B " + u32(0));
    const QByteArray moov = simpleMoov({0});
    // moov ahead of a 3 GB mdat whose stored size doesn't reach the end: garbage tail.
    const std::uint64_t mdatSize = 3000000000ULL;
    ASSERT_TRUE(writeBytes(path, ftyp + moov + u32(std::uint32_t(mdatSize)) + "mdat"));
    const qint64 total = ftyp.size() + moov.size() + qint64(mdatSize) + 4;
    ASSERT_TRUE(resize(path, total));
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::ReadWrite));
        f.seek(total - 4);
        f.write("junk");
    }
    LogCapture log;
    EXPECT_TRUE(Writer::write(path, QStringLiteral("English"), QStringLiteral("eng")).isEmpty());
    EXPECT_TRUE(log.contains(QStringLiteral("[MP4LanguageAtomWriter] SKIPPED — 'big.m4b' is %1 MB, above the 2048 MB limit for the "
                                            "full-file path; language atoms not written")
                                 .arg(std::uint64_t(total) >> 20)));
    EXPECT_EQ(MP4MoovReader::read(path).data, moov);
    EXPECT_EQ(QFileInfo(path).size(), total);
}
