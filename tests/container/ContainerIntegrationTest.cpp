// Container edits on real files written by ffmpeg: relocation, language
// atoms, channel count repair, and crashes in the middle of each.
#include "MP4TestBoxes.h"
#include "support/Fixtures.h"
#include "support/KillAtPoint.h"
#include "support/MediaReaders.h"

#include "container/mp4/FastStartRelocator.h"
#include "container/io/FaultInjection.h"
#include "container/mp4/LanguageCodes.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4ChapterTrackLanguagePatcher.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4LanguageAtomWriter.h"
#include "container/mp4/MP4MoovCopyRewriter.h"
#include "container/mp4/MP4MoovEditor.h"
#include "container/mp4/MP4MoovReader.h"
#include "container/mp4/MP4MoovRewriter.h"
#include "container/mp4/MP4StsdChannelPatcher.h"
#include "platform/Log.h"

#include <QDir>
#include <QJsonArray>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

using namespace folivox;
using namespace folivox::test;

namespace {
struct Probe {
    int exitCode = -1;
    QString out;
};

// ffprobe's view of the first audio stream: codec and channel count.
Probe ffprobe(const QString& path)
{
    QProcess p;
    p.start(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-select_streams"),
                                        QStringLiteral("a:0"), QStringLiteral("-show_entries"),
                                        QStringLiteral("stream=codec_name,channels:format=duration"), QStringLiteral("-of"),
                                        QStringLiteral("default=nw=1"), path});
    p.waitForFinished(60000);
    Probe r;
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromUtf8(p.readAllStandardOutput() + p.readAllStandardError());
    return r;
}

// The channel count an independent reader takes from the sample description.
QString exifChannels(const QString& path)
{
    QProcess p;
    p.start(QStringLiteral("exiftool"), {QStringLiteral("-s3"), QStringLiteral("-AudioChannels"), path});
    p.waitForFinished(60000);
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

QStringList topLevelTypes(const QString& path)
{
    const MP4File f(path, MP4File::Access::read);
    QStringList types;
    for (const auto& b : MP4BoxHeader::listTopLevel(f, f.size()))
        types << b.type;
    return types;
}

class ContainerIntegrationTest : public ::testing::Test {
protected:
    QTemporaryDir dir;

    // A mono AAC book written by the ipod muxer (moov last), or with moov in
    // front (faststart).
    QString makeBook(const QString& name, bool faststart = false, double seconds = 4, int channels = 1)
    {
        const QString path = dir.filePath(name);
        QStringList args{QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"), QStringLiteral("64k")};
        if (faststart)
            args << QStringLiteral("-movflags") << QStringLiteral("+faststart");
        args << QStringLiteral("-f") << QStringLiteral("ipod");
        EXPECT_TRUE(Fixtures::tone(path, seconds, args, 44100, channels));
        return path;
    }
};
} // namespace

TEST_F(ContainerIntegrationTest, RelocationPutsMoovAheadOfMdatAndKeepsTheAudio)
{
    const QString book = makeBook(QStringLiteral("book.m4b"), false, 6);
    ASSERT_EQ(topLevelTypes(book), (QStringList{"ftyp", "free", "mdat", "moov"}));
    const QString md5 = Fixtures::decodedMd5(book);
    ASSERT_FALSE(md5.isEmpty());
    const auto sizeBefore = QFileInfo(book).size();

    const auto outcome = FastStartRelocator::relocate(book);
    ASSERT_EQ(outcome.kind, FastStartRelocator::Outcome::Kind::relocated);
    EXPECT_EQ(topLevelTypes(book), (QStringList{"ftyp", "free", "moov", "mdat"}));
    EXPECT_EQ(QFileInfo(book).size(), sizeBefore);
    const Probe p = ffprobe(book);
    EXPECT_EQ(p.exitCode, 0) << p.out.toStdString();
    EXPECT_TRUE(p.out.contains(QStringLiteral("codec_name=aac"))) << p.out.toStdString();
    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"book.m4b"});

    EXPECT_EQ(FastStartRelocator::relocate(book).kind, FastStartRelocator::Outcome::Kind::alreadyAhead);
}

TEST_F(ContainerIntegrationTest, LanguageEditOnTheFastPathChangesOnlyTheExpectedBytes)
{
    for (const bool faststart : {false, true}) {
        const QString book = makeBook(faststart ? QStringLiteral("front.m4b") : QStringLiteral("last.m4b"), faststart);
        const QByteArray before = readBytes(book);
        const QString md5 = Fixtures::decodedMd5(book);
        const auto oldMoov = MP4MoovReader::read(book);

        // What the edit should produce, computed on the buffer alone.
        QByteArray expectedMoov = oldMoov.data;
        MP4LanguageAtomWriter::placeLanguageAtom(expectedMoov, 0, QStringLiteral("English"));
        MP4LanguageAtomWriter::placeFreeformAtom(expectedMoov, 0, {QStringLiteral("LANGUAGE"), QStringLiteral("eng"), 64});
        MP4LanguageAtomWriter::setAudioLanguage(expectedMoov, 0, QStringLiteral("eng"));

        LogCapture log;
        const QStringList labels = MP4LanguageAtomWriter::write(book, QStringLiteral("English"), QStringLiteral("eng"));
        EXPECT_EQ(labels, (QStringList{"©lan", "iTunes:LANGUAGE", "mdhd"}));

        const QByteArray after = readBytes(book);
        const auto newMoov = MP4MoovReader::read(book);
        EXPECT_EQ(newMoov.data.size(), expectedMoov.size());
        if (!faststart) {
            EXPECT_EQ(newMoov.data, expectedMoov);
        }
        const qsizetype o = qsizetype(oldMoov.fileOffset);
        const qsizetype oldEnd = qsizetype(oldMoov.fileOffset + oldMoov.originalSize);
        EXPECT_EQ(after.left(o), before.left(o));
        if (!faststart) {
            // moov last: the new copy went behind it, the old place is one
            // free box of zeros; everything ahead is untouched.
            EXPECT_TRUE(log.contains(QStringLiteral("written via fast path")));
            EXPECT_TRUE(log.contains(QStringLiteral("[AtomsPerf] rewrite mode=append")));
            EXPECT_EQ(after.mid(o, 8), u32(std::uint32_t(oldMoov.originalSize + 8)) + "free");
            EXPECT_EQ(after.mid(o + 8, qsizetype(oldMoov.originalSize) - 8), QByteArray(qsizetype(oldMoov.originalSize) - 8, '\0'));
            EXPECT_EQ(after.size(), oldEnd + 8 + expectedMoov.size());
        } else {
            // moov in front with no room around it: the file was written
            // anew with room behind the moov; the media moved whole.
            EXPECT_TRUE(log.contains(QStringLiteral("written via full-file path")));
            EXPECT_EQ(newMoov.fileOffset, oldMoov.fileOffset);
            const QByteArray room = after.mid(o + expectedMoov.size(), 8);
            EXPECT_EQ(room.mid(4), "free");
            EXPECT_EQ(after.mid(o + expectedMoov.size() + MP4Bytes::be32(room.constData())), before.mid(oldEnd));
        }
        EXPECT_EQ(Fixtures::decodedMd5(book), md5);
        const Probe p = ffprobe(book);
        EXPECT_EQ(p.exitCode, 0) << p.out.toStdString();

        // Written twice: one ©lan, and the same length keeps the moov's size;
        // with room behind the moov the file keeps its size too.
        const qint64 size = QFileInfo(book).size();
        const int fastBefore = log.count(QStringLiteral("written via fast path"));
        MP4LanguageAtomWriter::write(book, QStringLiteral("Deutsch"), QStringLiteral("deu"));
        EXPECT_EQ(log.count(QStringLiteral("written via fast path")), fastBefore + 1);
        const auto moov = MP4MoovReader::read(book);
        EXPECT_EQ(moov.data.count("\xA9lan"), 1);
        EXPECT_EQ(moov.data.count("LANGUAGE"), 1);
        EXPECT_EQ(moov.originalSize, std::uint64_t(expectedMoov.size()));
        if (faststart) {
            EXPECT_EQ(QFileInfo(book).size(), size);
        }
        EXPECT_EQ(MP4ChapterTrackLanguagePatcher::trackLanguageFields(moov.data)[0].packed, *LanguageCodes::pack("deu"));
        EXPECT_EQ(Fixtures::decodedMd5(book), md5);
    }
}

TEST_F(ContainerIntegrationTest, AMonoTrackWhoseStsdClaimsStereoIsPatchedAndReadsAsMono)
{
    // FFmpeg's ipod muxer writes channelcount 2 for mono AAC; if a version
    // ever writes 1, put the 2 there ourselves.
    const QString book = makeBook(QStringLiteral("mono.m4a"));
    const QString md5 = Fixtures::decodedMd5(book);
    auto moov = MP4MoovReader::read(book);
    const qsizetype field = moov.data.indexOf("mp4a") + 4 + 16;
    if (MP4Bytes::be16(moov.data.constData() + field) != 2) {
        MP4File f(book, MP4File::Access::update);
        f.writeAt(moov.fileOffset + std::uint64_t(field), u16(2));
        moov = MP4MoovReader::read(book);
    }
    EXPECT_EQ(exifChannels(book), QStringLiteral("2"));
    ASSERT_TRUE(MP4StsdChannelPatcher::decide(moov.data)[0].patch);

    LogCapture log;
    const auto outcome = MP4StsdChannelPatcher::applyLogged(book);
    ASSERT_EQ(outcome.edits.size(), 1);
    EXPECT_EQ(outcome.edits[0].trackID, 1);
    EXPECT_EQ(outcome.edits[0].offset, field);
    EXPECT_EQ(outcome.edits[0].audioObjectType, 2);
    EXPECT_TRUE(log.contains(QStringLiteral("[StsdPatch] mono.m4a trak1 channelcount 2 -> 1 (aot=2 chcfg=1)")));
    // Exactly the two bytes changed.
    QByteArray expected = moov.data;
    MP4Bytes::put16(expected.data() + field, 1);
    EXPECT_EQ(MP4MoovReader::read(book).data, expected);
    EXPECT_EQ(exifChannels(book), QStringLiteral("1"));
    const Probe p = ffprobe(book);
    EXPECT_TRUE(p.out.contains(QStringLiteral("channels=1"))) << p.out.toStdString();
    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
    EXPECT_EQ(MP4StsdChannelPatcher::apply(book).reason, QStringLiteral("trak1:already-1"));

    // A real stereo file is left alone, with its reason.
    const QString stereo = makeBook(QStringLiteral("stereo.m4a"), false, 2, 2);
    EXPECT_EQ(MP4StsdChannelPatcher::apply(stereo).reason, QStringLiteral("trak1:chcfg=2"));
}

TEST_F(ContainerIntegrationTest, ChapterTrackLanguageIsStampedOnARealTextTrack)
{
    // ffmpeg writes chapters as a QuickTime text track referenced from the audio.
    const QString meta = dir.filePath("chapters.txt");
    ASSERT_TRUE(writeBytes(meta, ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=2000\ntitle=One\n"
                                 "[CHAPTER]\nTIMEBASE=1/1000\nSTART=2000\nEND=4000\ntitle=Two\n"));
    const QString book = dir.filePath("chapters.m4b");
    ASSERT_TRUE(Fixtures::ffmpeg({"-f", "lavfi", "-i", "sine=frequency=440:sample_rate=44100:duration=4", "-i", meta,
                                  "-map_metadata", "1", "-map_chapters", "1", "-ac", "1", "-c:a", "aac", "-b:a", "64k", "-f", "ipod", book}));
    const QString md5 = Fixtures::decodedMd5(book);
    const auto fields = MP4ChapterTrackLanguagePatcher::trackLanguageFields(MP4MoovReader::read(book).data);
    ASSERT_EQ(fields.size(), 2);
    EXPECT_EQ(fields[1].handler, QStringLiteral("text"));
    EXPECT_EQ(MP4ChapterTrackLanguagePatcher::stampChapterTrackNonFatal(book, QStringLiteral("fra")), 1);
    const auto after = MP4ChapterTrackLanguagePatcher::trackLanguageFields(MP4MoovReader::read(book).data);
    EXPECT_EQ(after[0].packed, fields[0].packed);
    EXPECT_EQ(after[1].packed, *LanguageCodes::pack("fra"));
    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
    QProcess p;
    p.start("ffprobe", {"-v", "error", "-show_chapters", "-of", "csv=p=0", book});
    p.waitForFinished(60000);
    EXPECT_EQ(QString::fromUtf8(p.readAllStandardOutput()).count(u'\n'), 2);
}

TEST_F(ContainerIntegrationTest, ARelocationKilledAtAnyStepLeavesABookThatPlays)
{
    const QString original = makeBook(QStringLiteral("original.m4b"), false, 8);
    const QString md5 = Fixtures::decodedMd5(original);
    const QByteArray originalBytes = readBytes(original);
    const QString book = dir.filePath("book.m4b");
    struct Step {
        const char* point;
        int occurrence;
    };
    // After the first piece, after the moov, after a later piece, and with
    // the temporary file complete and synced just before the put-back.
    for (const Step step : {Step{"relocate.piece", 1}, Step{"relocate.moovWritten", 1}, Step{"relocate.piece", 2},
                            Step{"relocate.synced", 1}}) {
        ASSERT_TRUE(writeBytes(book, originalBytes));
        ASSERT_TRUE(killedAt(QString::fromLatin1(step.point), step.occurrence, [&] { FastStartRelocator::relocate(book); }))
            << step.point << " #" << step.occurrence << " was not reached";
        EXPECT_EQ(readBytes(book), originalBytes) << "book changed before the put-back, at " << step.point;
        EXPECT_EQ(Fixtures::decodedMd5(book), md5) << step.point;
        // The dead run's temp file is all that is left over; a later run still works.
        for (const QString& stray : QDir(dir.path()).entryList({"*.faststart.tmp"}, QDir::Files | QDir::Hidden))
            QFile::remove(dir.filePath(stray));
    }
    ASSERT_EQ(FastStartRelocator::relocate(book).kind, FastStartRelocator::Outcome::Kind::relocated);
    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
}

TEST_F(ContainerIntegrationTest, AMoovRewriteKilledAtAnyStepLeavesTheOldOrTheNewBook)
{
    const QString original = makeBook(QStringLiteral("original.m4b"), false, 6);
    const QString md5 = Fixtures::decodedMd5(original);
    const QString book = dir.filePath("book.m4b");
    // One edit: the NARRATOR tag set to `value`, through the moov rewriter.
    const auto narrate = [&](const QString& value) {
        auto moov = MP4MoovReader::read(book);
        MP4LanguageAtomWriter::placeFreeformAtom(moov.data, 0, {QStringLiteral("NARRATOR"), value, 8000});
        MP4MoovRewriter::rewrite(MP4MoovRewriter::plan(std::move(moov), book), book);
    };
    const auto narratorOf = [](const QJsonObject& tags) {
        const QJsonArray v = tags.value(QStringLiteral("----:com.apple.iTunes:NARRATOR")).toArray();
        return v.isEmpty() ? QString() : v.first().toString();
    };

    struct Case {
        QString name;
        std::function<void()> prepare; // from the original book to the state before the edit
        QString before;                 // the NARRATOR value before the edit
        QString after;
        MP4MoovRewriter::Mode mode;
    };
    const QString a(3000, u'a');
    const QString b(3000, u'b');
    const QString c(2000, u'c');
    // The same book with its moov ahead of the media and room behind it.
    const auto withRoom = [&] {
        const QString ahead = dir.filePath("ahead.m4b");
        QFile::remove(ahead);
        ASSERT_EQ(FastStartRelocator::copyFastStart(book, ahead, 16384).kind, FastStartRelocator::Outcome::Kind::relocated);
        ASSERT_TRUE(writeBytes(book, readBytes(ahead)));
    };
    const QList<Case> cases{
        {QStringLiteral("moov last, a new copy at the end"), [] {}, QString(), a, MP4MoovRewriter::Mode::append},
        {QStringLiteral("dead space ahead reused, tail cut"), [&] { narrate(a); narrate(b); }, b, c, MP4MoovRewriter::Mode::front},
        {QStringLiteral("moov ahead of the media, room behind"), [&] { withRoom(); narrate(a); }, a, b,
         MP4MoovRewriter::Mode::behind},
    };
    const QByteArray originalBytes = readBytes(original);
    for (const Case& cs : cases) {
        ASSERT_TRUE(writeBytes(book, originalBytes));
        cs.prepare();
        const QByteArray start = readBytes(book);
        QStringList points;
        {
            FaultInjection::Scope record([&](const QString& p) { points << p; });
            auto moov = MP4MoovReader::read(book);
            MP4LanguageAtomWriter::placeFreeformAtom(moov.data, 0, {QStringLiteral("NARRATOR"), cs.after, 8000});
            const auto plan = MP4MoovRewriter::plan(std::move(moov), book);
            EXPECT_EQ(plan.mode, cs.mode) << cs.name.toStdString();
            MP4MoovRewriter::rewrite(plan, book);
        }
        ASSERT_TRUE(points.contains(QStringLiteral("rewrite.switched")));
        for (const QString& point : points) {
            const std::string where = (cs.name + QStringLiteral(" killed at ") + point).toStdString();
            ASSERT_TRUE(writeBytes(book, start));
            ASSERT_TRUE(killedAt(point, 1, [&] { narrate(cs.after); })) << where << " was not reached";
            const Probe p = ffprobe(book);
            EXPECT_EQ(p.exitCode, 0) << where << ": " << p.out.toStdString();
            EXPECT_EQ(Fixtures::decodedMd5(book), md5) << where;
            // Our reader and mutagen agree on one version, the old or the new.
            const bool switched = points.indexOf(point) >= points.indexOf(QStringLiteral("rewrite.switched"));
            const QByteArray ours = MP4MoovReader::read(book).data;
            EXPECT_EQ(ours.contains(cs.after.toUtf8()), switched) << where;
            if (!cs.before.isEmpty()) {
                EXPECT_EQ(ours.contains(cs.before.toUtf8()), !switched) << where;
            }
            EXPECT_EQ(narratorOf(MediaReaders::mutagenMp4(book)), switched ? cs.after : cs.before) << where;
        }
        // A run to its end: the new version, and no more than two copies of
        // the moov's size in dead space.
        ASSERT_TRUE(writeBytes(book, start));
        narrate(cs.after);
        EXPECT_EQ(narratorOf(MediaReaders::mutagenMp4(book)), cs.after);
        EXPECT_LE(QFileInfo(book).size(), start.size() + 2 * qint64(MP4MoovReader::read(book).originalSize) + 16);
    }
}

TEST_F(ContainerIntegrationTest, TreeEditsThroughTheMoovEditorReadBackInIndependentReaders)
{
    for (const bool faststart : {false, true}) {
        const QString book = makeBook(faststart ? QStringLiteral("front.m4b") : QStringLiteral("last.m4b"), faststart);
        const QString md5 = Fixtures::decodedMd5(book);
        const auto result = MP4MoovEditor::edit(book, [](MP4BoxTree::Node& moov) {
            MP4BoxTree::Node& ilst = MP4BoxTree::ensureIlst(moov);
            MP4BoxTree::Node item = MP4BoxTree::Node::container(MP4Bytes::fourCC("\xA9nam"));
            item.append(MP4BoxTree::Node::leaf(MP4Bytes::fourCC("data"), u32(1) + u32(0) + QStringLiteral("Ünïcode Title").toUtf8()));
            ilst.replaceOrAppend(item);
            return true;
        });
        // A moov ahead of the media has no room around it: the whole file is written anew.
        EXPECT_EQ(result.route, faststart ? MP4MoovEditor::Route::fullFile : MP4MoovEditor::Route::fastPath);
        QProcess probe;
        probe.start("ffprobe", {"-v", "error", "-show_entries", "format_tags=title", "-of", "default=nw=1:nk=1", book});
        probe.waitForFinished(60000);
        EXPECT_EQ(QString::fromUtf8(probe.readAllStandardOutput()).trimmed(), QStringLiteral("Ünïcode Title"));
        QProcess exif;
        exif.start("exiftool", {"-s3", "-Title", book});
        exif.waitForFinished(60000);
        EXPECT_EQ(QString::fromUtf8(exif.readAllStandardOutput()).trimmed(), QStringLiteral("Ünïcode Title"));
        EXPECT_EQ(Fixtures::decodedMd5(book), md5);
    }
}

TEST_F(ContainerIntegrationTest, AWholeFileRewriteKilledBeforeTheSwapLeavesTheBookAndNoFileBesideIt)
{
    // ffmpeg's fast start: the moov ahead of the media, 8 free bytes behind it.
    const QString book = makeBook(QStringLiteral("book.m4b"), true, 6);
    const QString md5 = Fixtures::decodedMd5(book);
    const QByteArray start = readBytes(book);
    const auto edit = [&] {
        auto moov = MP4MoovReader::read(book);
        MP4LanguageAtomWriter::placeFreeformAtom(moov.data, 0, {QStringLiteral("NARRATOR"), QString(500, u'n'), 600});
        MP4MoovCopyRewriter::rewrite(moov, book);
    };
    for (const char* point : {"copyRewrite.piece", "copyRewrite.written"}) {
        ASSERT_TRUE(writeBytes(book, start));
        ASSERT_TRUE(killedAt(QString::fromLatin1(point), 1, edit)) << point;
        EXPECT_EQ(readBytes(book), start) << point;
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"book.m4b"}) << point;
    }
    // Run to its end: room behind the moov, the media moved whole, and the
    // next edit fits in place.
    edit();
    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"book.m4b"});
    auto moov = MP4MoovReader::read(book);
    MP4LanguageAtomWriter::placeFreeformAtom(moov.data, 0, {QStringLiteral("NARRATOR"), QString(900, u'm'), 1000});
    EXPECT_EQ(MP4MoovRewriter::plan(std::move(moov), book).mode, MP4MoovRewriter::Mode::behind);
}
