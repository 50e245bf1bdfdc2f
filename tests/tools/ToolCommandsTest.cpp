// mp4tags, mp4art and mp4chaps run in process on MP4 files built in code:
// the items and boxes they write, repeated runs, removal, and refusals that
// leave the file untouched.
#include "ToolTestFiles.h"

#include "container/mp4/FastStartRelocator.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4MoovReader.h"
#include "tools/ArtCommand.h"
#include "tools/ChapsCommand.h"
#include "tools/ChapterListFile.h"
#include "tools/ChapterTrackWriter.h"
#include "tools/IlstEditor.h"
#include "tools/MoovEditor.h"
#include "tools/NeroChapterWriter.h"
#include "tools/TagsCommand.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;

namespace {
constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}

struct Result {
    int status = -1;
    QString out;
    QString err;
};

template<class Command>
Result runCommand(const QStringList& args)
{
    Result r;
    QTextStream out(&r.out);
    QTextStream err(&r.err);
    r.status = Command::run(args, out, err);
    out.flush();
    err.flush();
    return r;
}

MP4BoxTree::Node loadMoov(const QString& path)
{
    return MP4BoxTree::parse(MP4MoovReader::read(path).data);
}

QStringList topLevelTypes(const QString& path)
{
    const MP4File f(path, MP4File::Access::read);
    QStringList types;
    for (const MP4BoxHeader& h : MP4BoxHeader::listTopLevel(f, f.size()))
        types << h.type;
    return types;
}

QByteArray jpegBytes()
{
    return QByteArray("\xFF\xD8\xFF\xE0", 4) + QByteArray(200, '\x11') + QByteArray("\xFF\xD9", 2);
}
QByteArray pngBytes()
{
    return QByteArray("\x89PNG\r\n\x1A\n", 8) + QByteArray(120, '\x22');
}

class ToolCommandsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        book = dir.filePath(QStringLiteral("book.m4b"));
        ASSERT_TRUE(writeBytes(book, simpleMp4()));
    }
    void writeChapters(const QByteArray& text) { ASSERT_TRUE(writeBytes(dir.filePath(QStringLiteral("book.chapters.txt")), text)); }

    QTemporaryDir dir;
    QString book;
};
} // namespace

TEST_F(ToolCommandsTest, TagsWrittenTwiceLeaveOneOfEachWithTheRightDataTypes)
{
    const QStringList args{QStringLiteral("-song"), QStringLiteral("Title ü"), QStringLiteral("-artist"), QStringLiteral("Author"),
                           QStringLiteral("-albumartist"), QStringLiteral("Author"), QStringLiteral("-type"),
                           QStringLiteral("audiobook"), QStringLiteral("-track"), QStringLiteral("3"), QStringLiteral("-tracks"),
                           QStringLiteral("12"), QStringLiteral("-disk"), QStringLiteral("1"), QStringLiteral("-disks"),
                           QStringLiteral("2"), QStringLiteral("-sortname"), QStringLiteral("Sort"), QStringLiteral("-genre"),
                           QStringLiteral("Fiction"), book};
    const QByteArray mediaBefore = readBytes(book).mid(28, 1008);
    ASSERT_EQ(runCommand<TagsCommand>(args).status, 0);
    ASSERT_EQ(runCommand<TagsCommand>(args).status, 0);

    MP4BoxTree::Node moov = loadMoov(book);
    IlstEditor ilst(moov);
    for (const char* t : {"\xA9nam", "aART", "stik", "trkn", "disk", "sonm", "\xA9gen"})
        EXPECT_EQ(ilst.count(MP4Bytes::fourCC(*reinterpret_cast<const char(*)[5]>(t))), 1) << t;
    EXPECT_EQ(ilst.text(fc("\xA9nam")), QStringLiteral("Title ü"));
    EXPECT_EQ(ilst.integer(fc("stik")), 2);

    const MP4BoxTree::Node* list = MP4BoxTree::find(moov, {fc("udta"), fc("meta"), fc("ilst")});
    ASSERT_NE(list, nullptr);
    // stik: a one-byte integer with type code 21.
    EXPECT_EQ(list->child(fc("stik"))->child(fc("data"))->payload, QByteArray("\0\0\0\x15\0\0\0\0\x02", 9));
    // trkn: 8 bytes, disk: 6 bytes, both with type code 0.
    EXPECT_EQ(list->child(fc("trkn"))->child(fc("data"))->payload, QByteArray("\0\0\0\0\0\0\0\0\0\0\0\x03\0\x0C\0\0", 16));
    EXPECT_EQ(list->child(fc("disk"))->child(fc("data"))->payload, QByteArray("\0\0\0\0\0\0\0\0\0\0\0\x01\0\x02", 14));
    // The meta handler that iTunes-style readers need.
    EXPECT_EQ(MP4BoxTree::find(moov, {fc("udta"), fc("meta"), fc("hdlr")})->payload.mid(8, 4), QByteArray("mdir"));
    // The media bytes are untouched.
    EXPECT_EQ(readBytes(book).mid(28, 1008), mediaBefore);
}

TEST_F(ToolCommandsTest, PartialNumbersKeepTheOtherHalfAndEmptyValuesRemove)
{
    ASSERT_EQ(runCommand<TagsCommand>({QStringLiteral("-t"), QStringLiteral("4"), QStringLiteral("-T"), QStringLiteral("9"), book}).status, 0);
    ASSERT_EQ(runCommand<TagsCommand>({QStringLiteral("-track"), QStringLiteral("5"), QStringLiteral("-s"), QStringLiteral("X"),
                                       QStringLiteral("-c"), QStringLiteral("note"), book})
                  .status,
              0);
    MP4BoxTree::Node moov = loadMoov(book);
    IlstEditor ilst(moov);
    ASSERT_TRUE(ilst.numberPair(fc("trkn")));
    EXPECT_EQ(ilst.numberPair(fc("trkn"))->number, 5);
    EXPECT_EQ(ilst.numberPair(fc("trkn"))->total, 9);

    ASSERT_EQ(runCommand<TagsCommand>({QStringLiteral("-song"), QString(), QStringLiteral("-r"), QStringLiteral("c"), book}).status, 0);
    moov = loadMoov(book);
    IlstEditor after(moov);
    EXPECT_EQ(after.count(fc("\xA9nam")), 0);
    EXPECT_EQ(after.count(fc("\xA9" "cmt")), 0);
    EXPECT_EQ(after.count(fc("trkn")), 1);
}

TEST_F(ToolCommandsTest, UsageErrorsAndBadFilesChangeNothing)
{
    const QByteArray before = readBytes(book);
    Result r = runCommand<TagsCommand>({QStringLiteral("-type"), QStringLiteral("spaceship"), book});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("mp4tags: -type: unknown media type")));
    EXPECT_EQ(runCommand<TagsCommand>({QStringLiteral("-song"), QStringLiteral("x")}).status, 2);
    EXPECT_EQ(runCommand<TagsCommand>({QStringLiteral("-track"), QStringLiteral("x"), book}).status, 2);
    EXPECT_EQ(readBytes(book), before);

    // Not an MP4: one line naming the file.
    const QString text = dir.filePath(QStringLiteral("notes.m4b"));
    ASSERT_TRUE(writeBytes(text, QByteArray("This is a plain text file, not a movie.\n").repeated(20)));
    r = runCommand<TagsCommand>({QStringLiteral("-song"), QStringLiteral("x"), text});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, QStringLiteral("mp4tags: notes.m4b: not an MP4 file\n"));
    EXPECT_EQ(readBytes(text), QByteArray("This is a plain text file, not a movie.\n").repeated(20));

    // A moov whose track boxes do not parse.
    QByteArray broken = simpleMp4();
    const qsizetype trak = broken.indexOf("trak");
    for (int i = 4; i < 8; ++i)
        broken[trak + i] = '\xFF'; // the tkhd size becomes huge
    const QString damaged = dir.filePath(QStringLiteral("damaged.m4b"));
    ASSERT_TRUE(writeBytes(damaged, broken));
    for (const auto& run : {runCommand<TagsCommand>({QStringLiteral("-song"), QStringLiteral("x"), damaged}),
                            runCommand<ArtCommand>({QStringLiteral("--remove"), damaged}),
                            runCommand<ChapsCommand>({QStringLiteral("-r"), damaged})}) {
        EXPECT_EQ(run.status, 1);
        EXPECT_TRUE(run.err.contains(QStringLiteral("damaged.m4b: moov does not parse"))) << run.err.toStdString();
        EXPECT_EQ(run.err.count(u'\n'), 1);
    }
    EXPECT_EQ(readBytes(damaged), broken);

    EXPECT_EQ(runCommand<TagsCommand>({QStringLiteral("-song"), QStringLiteral("x"), dir.filePath(QStringLiteral("missing.m4b"))}).status, 1);
}

TEST_F(ToolCommandsTest, CoversAddReplaceAndRemove)
{
    const QString jpg = dir.filePath(QStringLiteral("c.jpg"));
    const QString png = dir.filePath(QStringLiteral("c.png"));
    const QString txt = dir.filePath(QStringLiteral("c.txt"));
    ASSERT_TRUE(writeBytes(jpg, jpegBytes()));
    ASSERT_TRUE(writeBytes(png, pngBytes()));
    ASSERT_TRUE(writeBytes(txt, "not an image"));
    const QByteArray original = readBytes(book);

    EXPECT_EQ(runCommand<ArtCommand>({QStringLiteral("--add"), jpg, book}).status, 0);
    EXPECT_EQ(runCommand<ArtCommand>({QStringLiteral("--add"), png, book}).status, 0);
    MP4BoxTree::Node moov = loadMoov(book);
    QList<IlstEditor::Image> covers = IlstEditor(moov).covers();
    ASSERT_EQ(covers.size(), 2);
    EXPECT_EQ(covers[0].dataType, 13u);
    EXPECT_EQ(covers[0].bytes, jpegBytes());
    EXPECT_EQ(covers[1].dataType, 14u);
    EXPECT_EQ(IlstEditor(moov).count(fc("covr")), 1);

    const Result listed = runCommand<ArtCommand>({QStringLiteral("--list"), book});
    EXPECT_EQ(listed.out, QStringLiteral("0 jpeg 206\n1 png 128\n"));

    EXPECT_EQ(runCommand<ArtCommand>({QStringLiteral("--remove"), QStringLiteral("--art-index"), QStringLiteral("0"), book}).status, 0);
    moov = loadMoov(book);
    covers = IlstEditor(moov).covers();
    ASSERT_EQ(covers.size(), 1);
    EXPECT_EQ(covers[0].dataType, 14u);

    EXPECT_EQ(runCommand<ArtCommand>({QStringLiteral("--replace"), jpg, book}).status, 0);
    moov = loadMoov(book);
    ASSERT_EQ(IlstEditor(moov).covers().size(), 1);
    EXPECT_EQ(IlstEditor(moov).covers()[0].dataType, 13u);

    const QByteArray withCover = readBytes(book);
    const Result bad = runCommand<ArtCommand>({QStringLiteral("--add"), txt, book});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err, QStringLiteral("mp4art: c.txt: not a JPEG or PNG image\n"));
    EXPECT_EQ(readBytes(book), withCover);

    EXPECT_EQ(runCommand<ArtCommand>({QStringLiteral("--remove"), book}).status, 0);
    moov = loadMoov(book);
    EXPECT_EQ(IlstEditor(moov).count(fc("covr")), 0);
    // Media untouched through all of it; the moov is still the last box.
    const QByteArray final = readBytes(book);
    for (int i = 0; i < 1036; ++i)
        if (final.at(i) != original.at(i)) { ADD_FAILURE() << "byte " << i << " differs"; break; }
    EXPECT_EQ(topLevelTypes(book), (QStringList{QStringLiteral("ftyp"), QStringLiteral("mdat"), QStringLiteral("moov")}));
}

TEST_F(ToolCommandsTest, ChaptersImportedAsQuickTimeTrackAndNero)
{
    writeChapters("00:00:00.000 One\n00:00:20.000 Two \xE2\x80\x94 \xC3\xBC\n00:00:45.500 Three\n00:01:00.000 At the end\n");
    const Result r = runCommand<ChapsCommand>({QStringLiteral("--import"), book});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();

    EXPECT_EQ(topLevelTypes(book), (QStringList{QStringLiteral("ftyp"), QStringLiteral("mdat"), QStringLiteral("free"),
                                                QStringLiteral("mdat"), QStringLiteral("moov")}));
    const MP4BoxTree::Node moov = loadMoov(book);
    const QList<ChapterEntry> qt = ChapterTrackWriter::read(moov, book);
    const QList<ChapterEntry> nero = NeroChapterWriter::read(moov);
    const QList<ChapterEntry> expected{{0, QStringLiteral("One")}, {20000, QStringLiteral("Two — ü")}, {45500, QStringLiteral("Three")}};
    EXPECT_EQ(qt, expected);
    EXPECT_EQ(nero, expected);

    // The text track: disabled, gmhd, a text sample entry, one chunk.
    ASSERT_EQ(moov.count(fc("trak")), 2);
    const MP4BoxTree::Node& text = moov.children[2];
    ASSERT_EQ(text.type, fc("trak"));
    EXPECT_EQ(MoovEditor::handlerType(text), fc("text"));
    EXPECT_EQ(MoovEditor::trackID(text), 2u);
    EXPECT_EQ(MoovEditor::trackFlags(text) & 1u, 0u);
    const MP4BoxTree::Node* minf = MP4BoxTree::find(const_cast<MP4BoxTree::Node&>(text), {fc("mdia"), fc("minf")});
    ASSERT_NE(minf, nullptr);
    EXPECT_NE(minf->child(fc("gmhd")), nullptr);
    EXPECT_EQ(minf->child(fc("nmhd")), nullptr);
    const MP4BoxTree::Node* stsd = minf->child(fc("stbl"))->child(fc("stsd"));
    EXPECT_EQ(stsd->child(fc("text"))->size(), 59u);
    // Durations in ms, the last reaching the end of the audio.
    EXPECT_EQ(minf->child(fc("stbl"))->child(fc("stts"))->payload,
              QByteArray("\0\0\0\0\0\0\0\x03\0\0\0\x01\0\0\x4E\x20\0\0\0\x01\0\0\x63\x9C\0\0\0\x01\0\0\x38\xA4", 32));
    // Each sample ends with the encd box.
    EXPECT_EQ(ChapterTrackWriter::sample(QStringLiteral("Ab")), QByteArray("\0\x02" "Ab\0\0\0\x0C" "encd\0\0\x01\0", 16));
    // The sound track names it; mvhd's next track ID moved on.
    const MP4BoxTree::Node* chap = MP4BoxTree::find(const_cast<MP4BoxTree::Node&>(moov.children[1]), {fc("tref"), fc("chap")});
    ASSERT_NE(chap, nullptr);
    EXPECT_EQ(chap->payload, QByteArray("\0\0\0\x02", 4));
    EXPECT_EQ(MP4Bytes::be32(moov.child(fc("mvhd"))->payload.constData() + 96), 3u);

    const Result listed = runCommand<ChapsCommand>({QStringLiteral("-l"), QStringLiteral("-Q"), book});
    EXPECT_EQ(listed.out, QStringLiteral("QuickTime chapters (3):\n00:00:00.000 One\n00:00:20.000 Two — ü\n00:00:45.500 Three\n"));
}

TEST_F(ToolCommandsTest, ImportRemoveImportLeavesOneTrackAndNoStrayReference)
{
    writeChapters("00:00:00.000 A\n00:00:30.000 B\n");
    ASSERT_EQ(runCommand<ChapsCommand>({QStringLiteral("-i"), book}).status, 0);
    ASSERT_EQ(runCommand<ChapsCommand>({QStringLiteral("-r"), book}).status, 0);
    MP4BoxTree::Node moov = loadMoov(book);
    EXPECT_EQ(moov.count(fc("trak")), 1);
    EXPECT_EQ(moov.children[1].child(fc("tref")), nullptr);
    EXPECT_TRUE(NeroChapterWriter::read(moov).isEmpty());
    EXPECT_EQ(moov.child(fc("udta")), nullptr);

    writeChapters("00:00:00.000 A\n00:00:10.000 B\n00:00:40.000 C\n");
    ASSERT_EQ(runCommand<ChapsCommand>({QStringLiteral("-i"), book}).status, 0);
    ASSERT_EQ(runCommand<ChapsCommand>({QStringLiteral("-i"), QStringLiteral("-Q"), book}).status, 0);
    moov = loadMoov(book);
    EXPECT_EQ(moov.count(fc("trak")), 2);
    const MP4BoxTree::Node* chap = MP4BoxTree::find(moov.children[1], {fc("tref"), fc("chap")});
    ASSERT_NE(chap, nullptr);
    EXPECT_EQ(chap->payload.size(), 4);
    EXPECT_EQ(ChapterTrackWriter::read(moov, book).size(), 3);

    // Removing only Nero keeps the track; only QuickTime keeps chpl.
    ASSERT_EQ(runCommand<ChapsCommand>({QStringLiteral("-r"), QStringLiteral("-N"), book}).status, 0);
    moov = loadMoov(book);
    EXPECT_TRUE(NeroChapterWriter::read(moov).isEmpty());
    EXPECT_EQ(ChapterTrackWriter::read(moov, book).size(), 3);
}

TEST_F(ToolCommandsTest, ThreeHundredChaptersAllInTheTrackAnd255InNero)
{
    QByteArray text;
    for (int i = 0; i < 300; ++i)
        text += ChapterListFile::formatTime(std::int64_t(i) * 150).toUtf8() + " Chapter " + QByteArray::number(i + 1) + "\n";
    writeChapters(text);
    ASSERT_EQ(runCommand<ChapsCommand>({QStringLiteral("--import"), book}).status, 0);
    const MP4BoxTree::Node moov = loadMoov(book);
    const QList<ChapterEntry> qt = ChapterTrackWriter::read(moov, book);
    const QList<ChapterEntry> nero = NeroChapterWriter::read(moov);
    ASSERT_EQ(qt.size(), 300);
    ASSERT_EQ(nero.size(), 255);
    EXPECT_EQ(qt.last(), (ChapterEntry{299 * 150, QStringLiteral("Chapter 300")}));
    for (int i = 0; i < 255; ++i)
        EXPECT_EQ(nero[i], qt[i]);
}

TEST_F(ToolCommandsTest, ChapterFileProblemsLeaveTheFileUntouched)
{
    const QByteArray before = readBytes(book);
    Result r = runCommand<ChapsCommand>({QStringLiteral("--import"), book});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("mp4chaps: book.chapters.txt: cannot read the chapter list"))) << r.err.toStdString();

    writeChapters("00:00:00.000 fine\nnot a chapter line\n");
    r = runCommand<ChapsCommand>({QStringLiteral("--import"), book});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, QStringLiteral("mp4chaps: book.chapters.txt: line 2: expected \"HH:MM:SS.mmm Title\"\n"));

    writeChapters("00:05:00.000 after the end\n");
    r = runCommand<ChapsCommand>({QStringLiteral("--import"), book});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(readBytes(book), before);

    EXPECT_EQ(runCommand<ChapsCommand>({QStringLiteral("--import"), QStringLiteral("--remove"), book}).status, 2);
    EXPECT_EQ(readBytes(book), before);
}

TEST_F(ToolCommandsTest, ChapterSamplesPastFourGigabytesUseCo64)
{
    // ftyp, a sparse 4.3 GB mdat (64-bit size), moov at the end.
    const QString big = dir.filePath(QStringLiteral("big.m4b"));
    const std::uint64_t mdatSize = 4500000000ull;
    SoundTrackSpec s;
    s.chunkOffset = 28 + 16;
    const QByteArray head = ftyp() + be32(1) + QByteArray("mdat") + MP4Bytes::be64Bytes(mdatSize);
    const QByteArray moov = box("moov", mvhd(60000, 2) + soundTrak(s));
    {
        QFile f(big);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        ASSERT_EQ(f.write(head), head.size());
        ASSERT_TRUE(f.resize(qint64(28 + mdatSize)));
        ASSERT_TRUE(f.seek(qint64(28 + mdatSize)));
        ASSERT_EQ(f.write(moov), moov.size());
    }
    ASSERT_TRUE(writeBytes(dir.filePath(QStringLiteral("big.chapters.txt")), "00:00:00.000 Start\n00:00:30.000 Middle\n"));
    const Result r = runCommand<ChapsCommand>({QStringLiteral("-i"), QStringLiteral("-Q"), big});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    const MP4BoxTree::Node after = loadMoov(big);
    const MP4BoxTree::Node* stbl = MP4BoxTree::find(const_cast<MP4BoxTree::Node&>(after.children[2]),
                                                    {fc("mdia"), fc("minf"), fc("stbl")});
    ASSERT_NE(stbl, nullptr);
    EXPECT_NE(stbl->child(fc("co64")), nullptr);
    EXPECT_EQ(stbl->child(fc("stco")), nullptr);
    EXPECT_EQ(ChapterTrackWriter::read(after, big),
              (QList<ChapterEntry>{{0, QStringLiteral("Start")}, {30000, QStringLiteral("Middle")}}));
}

TEST_F(ToolCommandsTest, AnOpenEndedLastBoxIsClosedBeforeMediaIsPutBehindIt)
{
    // moov first, then an mdat whose stored size is 0 (it runs to the end).
    SoundTrackSpec s;
    const QByteArray head = ftyp();
    QByteArray moov = box("moov", mvhd(60000, 2) + soundTrak(s));
    s.chunkOffset = std::uint64_t(head.size() + moov.size() + 8);
    moov = box("moov", mvhd(60000, 2) + soundTrak(s));
    const QByteArray file = head + moov + be32(0) + QByteArray("mdat") + QByteArray(1000, '\x33');
    ASSERT_TRUE(writeBytes(book, file));
    writeChapters("00:00:00.000 Only\n");
    ASSERT_EQ(runCommand<ChapsCommand>({QStringLiteral("-i"), book}).status, 0);
    const MP4File f(book, MP4File::Access::read);
    const QList<MP4BoxHeader> boxes = MP4BoxHeader::listTopLevel(f, f.size());
    QStringList types;
    for (const auto& b : boxes)
        types << b.type;
    // No room around the moov: the file was written anew, with room behind
    // the moov and the chapter samples behind the media.
    EXPECT_EQ(types, (QStringList{QStringLiteral("ftyp"), QStringLiteral("moov"), QStringLiteral("free"), QStringLiteral("mdat"),
                                  QStringLiteral("mdat")}));
    EXPECT_EQ(boxes[3].size, 1008u);
    EXPECT_FALSE(boxes[3].extendsToEnd);
    EXPECT_EQ(ChapterTrackWriter::read(loadMoov(book), book), (QList<ChapterEntry>{{0, QStringLiteral("Only")}}));
}

TEST_F(ToolCommandsTest, ReimportNeverLeavesMediaBehindTheMoovSoItCanMoveToTheFront)
{
    // A long list first, then a shorter one: the new moov is smaller than the
    // old and would fit where it stood, in front of the new chapter samples.
    QByteArray longList;
    for (int i = 0; i < 40; ++i)
        longList += ChapterListFile::formatTime(std::int64_t(i) * 1000).toUtf8() + " A rather long chapter title " + QByteArray::number(i) + "\n";
    writeChapters(longList);
    ASSERT_EQ(runCommand<ChapsCommand>({QStringLiteral("-i"), book}).status, 0);
    writeChapters("00:00:00.000 Short\n00:00:30.000 List\n");
    ASSERT_EQ(runCommand<ChapsCommand>({QStringLiteral("-i"), book}).status, 0);
    EXPECT_EQ(topLevelTypes(book).last(), QStringLiteral("moov"));

    const FastStartRelocator::Outcome outcome = FastStartRelocator::relocate(book);
    EXPECT_EQ(outcome.kind, FastStartRelocator::Outcome::Kind::relocated);
    const MP4BoxTree::Node moov = loadMoov(book);
    const QList<ChapterEntry> expected{{0, QStringLiteral("Short")}, {30000, QStringLiteral("List")}};
    EXPECT_EQ(ChapterTrackWriter::read(moov, book), expected);
    EXPECT_EQ(NeroChapterWriter::read(moov), expected);
}
