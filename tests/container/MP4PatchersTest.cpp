#include "AacTestConfig.h"
#include "MP4TestBoxes.h"

#include "container/io/FaultInjection.h"
#include "container/mp4/LanguageCodes.h"
#include "container/mp4/MP4ChapterTrackLanguagePatcher.h"
#include "container/mp4/MP4MoovReader.h"
#include "container/mp4/MP4StsdChannelPatcher.h"
#include "platform/Log.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;

namespace {
using PatchKind = MP4ChapterTrackLanguagePatcher::PatchError::Kind;

std::uint16_t packed(const char* code)
{
    return *LanguageCodes::pack(QString::fromLatin1(code));
}

std::optional<PatchKind> stampError(const QString& path, const QString& code, QString* text = nullptr)
{
    try {
        MP4ChapterTrackLanguagePatcher::stamp(path, code, QStringLiteral("text"));
    } catch (const MP4ChapterTrackLanguagePatcher::PatchError& e) {
        if (text)
            *text = e.description();
        return e.kind();
    }
    return std::nullopt;
}

QByteArray soundTrak(std::uint32_t id, const QByteArray& sampleDescription)
{
    return trak(id, "soun", packed("eng"), sampleDescription + stco({0}));
}

QString reasonFor(const QByteArray& trakBox)
{
    const auto decisions = MP4StsdChannelPatcher::decide(moovWith(trakBox));
    if (decisions.size() != 1)
        return QStringLiteral("<%1 decisions>").arg(decisions.size());
    return decisions[0].patch ? QStringLiteral("patch") : decisions[0].reason;
}
} // namespace

TEST(LanguageCodesTest, PacksConvertsAndChoosesTheChapterTrackLanguage)
{
    EXPECT_EQ(LanguageCodes::pack("eng"), std::uint16_t(0x15C7));
    EXPECT_EQ(LanguageCodes::unpack(0x15C7), QStringLiteral("eng"));
    EXPECT_FALSE(LanguageCodes::pack("ENG"));
    EXPECT_FALSE(LanguageCodes::pack("en"));
    EXPECT_FALSE(LanguageCodes::pack("e1g"));
    EXPECT_FALSE(LanguageCodes::unpack(0));

    EXPECT_EQ(LanguageCodes::toISO6392(" en-US\n"), QStringLiteral("eng"));
    EXPECT_EQ(LanguageCodes::toISO6392("de_DE.UTF-8"), QStringLiteral("deu"));
    EXPECT_EQ(LanguageCodes::toISO6392("English"), QStringLiteral("eng"));
    EXPECT_EQ(LanguageCodes::toISO6392("Scottish Gaelic"), QStringLiteral("gla"));
    EXPECT_EQ(LanguageCodes::toISO6392("Deutsch"), QStringLiteral("deu"));
    EXPECT_EQ(LanguageCodes::toISO6392("FRE"), QStringLiteral("fre"));
    EXPECT_EQ(LanguageCodes::toISO6392("zh-Hant-TW"), QStringLiteral("zho"));
    EXPECT_FALSE(LanguageCodes::toISO6392("xx"));
    EXPECT_FALSE(LanguageCodes::toISO6392("Klingonese"));
    EXPECT_FALSE(LanguageCodes::toISO6392(""));

    EXPECT_EQ(LanguageCodes::chapterTrackLanguage(QStringLiteral("ita"), {"de"}), QStringLiteral("ita"));
    EXPECT_EQ(LanguageCodes::chapterTrackLanguage(QStringLiteral("French"), {"de"}), QStringLiteral("fra"));
    EXPECT_EQ(LanguageCodes::chapterTrackLanguage(QStringLiteral("Elvish"), {"und", "C", "pt-BR"}), QStringLiteral("por"));
    EXPECT_EQ(LanguageCodes::chapterTrackLanguage(std::nullopt, {"und"}), QStringLiteral("eng"));
    EXPECT_EQ(LanguageCodes::chapterTrackLanguage(std::nullopt, {}), QStringLiteral("eng"));
}

TEST(MP4ChapterTrackLanguagePatcherTest, StampsEveryTrackWithTheHandlerAndNothingElse)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("book.m4b");
    const QByteArray ftyp = box("ftyp", "M4B " + u32(0));
    const QByteArray moov = moovWith(soundTrak(1, {}) + trak(2, "text", packed("und")) +
                                     trak(3, "text", packed("und"), {}, 1));
    ASSERT_TRUE(writeBytes(path, ftyp + moov + box("mdat", "data")));

    const auto fields = MP4ChapterTrackLanguagePatcher::trackLanguageFields(moov);
    ASSERT_EQ(fields.size(), 3);
    EXPECT_EQ(fields[0].handler, QStringLiteral("soun"));
    EXPECT_EQ(fields[1].packed, packed("und"));

    EXPECT_EQ(MP4ChapterTrackLanguagePatcher::stamp(path, "deu", "text"), 2);
    const auto after = MP4MoovReader::read(path);
    const auto stamped = MP4ChapterTrackLanguagePatcher::trackLanguageFields(after.data);
    EXPECT_EQ(stamped[0].packed, packed("eng"));
    EXPECT_EQ(stamped[1].packed, packed("deu"));
    EXPECT_EQ(stamped[2].packed, packed("deu"));
    // Only the two language fields changed.
    QByteArray expected = moov;
    MP4Bytes::put16(expected.data() + fields[1].languageOffset, packed("deu"));
    MP4Bytes::put16(expected.data() + fields[2].languageOffset, packed("deu"));
    EXPECT_EQ(after.data, expected);
}

TEST(MP4ChapterTrackLanguagePatcherTest, RefusesBadCodesBeforeIOAndReportsMalformedBoxes)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("book.m4b");
    QString text;
    // No file at all: the code is refused first.
    EXPECT_EQ(stampError(dir.filePath("missing.m4b"), "ENG", &text), PatchKind::invalidLanguageCode);
    EXPECT_EQ(text, QStringLiteral("Invalid ISO 639-2 language code 'ENG' — expected three lowercase letters"));
    EXPECT_EQ(stampError(dir.filePath("missing.m4b"), "e1g"), PatchKind::invalidLanguageCode);
    EXPECT_EQ(stampError(dir.filePath("missing.m4b"), "eng", &text), PatchKind::moovUnavailable);
    EXPECT_TRUE(text.startsWith(QStringLiteral("Could not read the moov box: ")));

    // No text track: 0, and the file is not written.
    const QByteArray plain = box("ftyp", "M4A ") + moovWith(soundTrak(1, {}));
    ASSERT_TRUE(writeBytes(path, plain));
    EXPECT_EQ(MP4ChapterTrackLanguagePatcher::stamp(path, "eng", "text"), 0);
    EXPECT_EQ(readBytes(path), plain);

    const auto malformedText = [&](const QByteArray& moov) {
        EXPECT_TRUE(writeBytes(path, box("ftyp", "M4A ") + moov));
        QString t;
        EXPECT_EQ(stampError(path, "eng", &t), PatchKind::malformedAtoms);
        return t;
    };
    EXPECT_EQ(malformedText(moovWith(trak(2, "text", 0, {}, 2))), QStringLiteral("Malformed MP4 atom structure: unknown mdhd version 2"));
    EXPECT_EQ(malformedText(moovWith(box("trak", box("mdia", fullBox("mdhd", 0, u32(0)) + hdlr("text"))))),
              QStringLiteral("Malformed MP4 atom structure: mdhd v0 too small for its language field"));
    EXPECT_EQ(malformedText(moovWith(box("trak", box("mdia", box("mdhd") + hdlr("text"))))),
              QStringLiteral("Malformed MP4 atom structure: mdhd box is empty"));
    EXPECT_EQ(malformedText(moovWith(box("trak", box("mdia", mdhd(0, 0) + fullBox("hdlr", 0, u32(0)))))),
              QStringLiteral("Malformed MP4 atom structure: hdlr box too small for its handler type"));
    // A child claiming more than its container holds.
    const QString t = malformedText(moovWith(box("trak", u32(400) + "mdia")));
    EXPECT_TRUE(t.startsWith(QStringLiteral("Malformed MP4 atom structure: 'trak' at 16, container ends at 24: box size 400 exceeds")))
        << t.toStdString();

    // The export's wrapper logs instead of throwing.
    LogCapture log;
    EXPECT_EQ(MP4ChapterTrackLanguagePatcher::stampChapterTrackNonFatal(path, "eng"), -1);
    EXPECT_TRUE(log.contains(QStringLiteral("[MetadataWriting] chapter track language FAILED (non-fatal): Malformed MP4 atom structure")));
    ASSERT_TRUE(writeBytes(path, plain));
    EXPECT_EQ(MP4ChapterTrackLanguagePatcher::stampChapterTrackNonFatal(path, "eng"), 0);
    EXPECT_TRUE(log.contains(QStringLiteral("[MetadataWriting] chapter track language: no text track found — nothing to stamp")));
}

TEST(MP4StsdChannelPatcherTest, DecisionTableGivesEachSkipReason)
{
    const QByteArray lcMono = esds(asc(2, 4, 1));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, lcMono)))), QStringLiteral("patch"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, esds(asc(5, 7, 1)))))), QStringLiteral("patch"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, lcMono, 1, true)))), QStringLiteral("patch"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, esds(ascWithSyncExtension(1, false)))))), QStringLiteral("patch"));

    EXPECT_EQ(reasonFor(box("trak", tkhd(1) + u32(99) + "bad!")), QStringLiteral("trak-unparseable"));
    EXPECT_EQ(reasonFor(box("trak", tkhd(1))), QStringLiteral("no-mdia"));
    EXPECT_EQ(reasonFor(box("trak", box("mdia", mdhd(0, 0)))), QStringLiteral("no-hdlr"));
    EXPECT_EQ(reasonFor(trak(1, "text", 0)), QStringLiteral("handler=text"));
    EXPECT_EQ(reasonFor(trak(1, "soun", 0)), QStringLiteral("no-stsd"));
    EXPECT_EQ(reasonFor(soundTrak(1, box("stsd", "1234"))), QStringLiteral("stsd-short"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, lcMono) + mp4a(2, lcMono), 2))), QStringLiteral("stsd-entries=2"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(u32(99) + "mp4a"))), QStringLiteral("stsd-entry-unparseable"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(box("alac", QByteArray(28, 0))))), QStringLiteral("entry=alac"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(box("mp4a", QByteArray(27, 0))))), QStringLiteral("mp4a-short"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, lcMono, 2)))), QStringLiteral("mp4a-v2"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, u32(99) + "esds")))), QStringLiteral("mp4a-children-unparseable"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, box("btrt", QByteArray(12, 0)))))), QStringLiteral("no-esds"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, box("esds", "ab"))))), QStringLiteral("no-esds"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, fullBox("esds", 0, "\x03\x7F"))))), QStringLiteral("asc-unparseable"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, esds(asc(29, 7, 1)))))), QStringLiteral("ps aot=29"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, esds(ascWithSyncExtension(1, true)))))), QStringLiteral("ps aot=2"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, esds(asc(1, 4, 1)))))), QStringLiteral("aot=1"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(2, esds(asc(2, 4, 2)))))), QStringLiteral("chcfg=2"));
    EXPECT_EQ(reasonFor(soundTrak(1, stsd(mp4a(1, lcMono)))), QStringLiteral("already-1"));

    // The edit names the field: entry body + 16, the same for version 1 with esds in wave.
    for (std::uint16_t version : {0, 1}) {
        const QByteArray moov = moovWith(soundTrak(7, stsd(mp4a(2, lcMono, version, version == 1))));
        const auto d = MP4StsdChannelPatcher::decide(moov);
        ASSERT_TRUE(d[0].patch);
        EXPECT_EQ(d[0].patch->trackID, 7);
        EXPECT_EQ(d[0].patch->before, 2);
        EXPECT_EQ(d[0].patch->audioObjectType, 2);
        EXPECT_EQ(d[0].patch->channelConfiguration, 1);
        const qsizetype entry = moov.indexOf("mp4a") + 4;
        EXPECT_EQ(d[0].patch->offset, entry + 16);
    }
}

TEST(MP4StsdChannelPatcherTest, VerifiesEveryEditAgainstTheFileBeforeWriting)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("book.m4a");
    const QByteArray ftyp = box("ftyp", "M4A " + u32(0));
    const QByteArray moov = moovWith(soundTrak(1, stsd(mp4a(2, esds(asc(2, 4, 1))))) + trak(2, "text", 0) +
                                     soundTrak(3, stsd(mp4a(2, esds(asc(2, 4, 2))))));
    ASSERT_TRUE(writeBytes(path, ftyp + moov));
    LogCapture log;
    auto outcome = MP4StsdChannelPatcher::applyLogged(path);
    ASSERT_EQ(outcome.edits.size(), 1);
    EXPECT_TRUE(outcome.reason.isEmpty());
    const auto decisions = MP4StsdChannelPatcher::decide(MP4MoovReader::read(path).data);
    EXPECT_EQ(decisions[0].reason, QStringLiteral("already-1"));
    EXPECT_TRUE(log.contains(QStringLiteral("[StsdPatch] book.m4a trak1 channelcount 2 -> 1")));

    // Nothing left to patch: the reasons, per track.
    outcome = MP4StsdChannelPatcher::apply(path);
    EXPECT_EQ(outcome.reason, QStringLiteral("trak1:already-1,trak2:handler=text,trak3:chcfg=2"));

    // The file changed between decision and write: nothing is written.
    const auto edit = *MP4StsdChannelPatcher::decide(moov)[0].patch;
    const std::uint64_t fieldAt = std::uint64_t(ftyp.size() + edit.offset);
    for (const bool truncate : {false, true}) {
        ASSERT_TRUE(writeBytes(path, ftyp + moov));
        QByteArray before;
        {
            FaultInjection::Scope meddle([&](const QString& point) {
                if (point != QLatin1String("stsd.decided"))
                    return;
                QFile f(path);
                f.open(QIODevice::ReadWrite);
                if (truncate) {
                    f.resize(qint64(fieldAt + 1));
                } else {
                    f.seek(qint64(fieldAt));
                    f.write(u16(6));
                }
                f.close();
                before = readBytes(path);
            });
            outcome = MP4StsdChannelPatcher::apply(path);
        }
        EXPECT_TRUE(outcome.edits.isEmpty());
        EXPECT_EQ(outcome.reason, truncate ? QStringLiteral("offset-past-eof") : QStringLiteral("changed-since-plan"));
        EXPECT_EQ(readBytes(path), before);
    }
    EXPECT_EQ(MP4StsdChannelPatcher::apply(dir.filePath("missing.m4a")).reason, QStringLiteral("moov-unreadable"));
}
