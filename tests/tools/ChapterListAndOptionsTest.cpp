// The chapter list file and the shared command-line parsing of the mp4 tools.
#include "container/mp4/MP4Bytes.h"
#include "tools/ChapterListFile.h"
#include "tools/NeroChapterWriter.h"
#include "tools/ToolError.h"
#include "tools/ToolOptions.h"

#include <gtest/gtest.h>

#include <functional>

using namespace folivox;

namespace {
ToolError::Kind kindOf(const std::function<void()>& f)
{
    try {
        f();
    } catch (const ToolError& e) {
        return e.kind();
    }
    ADD_FAILURE() << "no ToolError thrown";
    return ToolError::Kind::writeFailed;
}
} // namespace

TEST(ChapterListFileTest, ReadsTimesTitlesCommentsAndByteOrderMark)
{
    const QByteArray text = "\xEF\xBB\xBF# a comment\r\n"
                            "00:00:00.000 Opening Credits\r\n"
                            "\n"
                            "1:02:03.5 Part \xC3\xBC\xC3\xA9 with  spaces \n"
                            "123:00:00 Very long book\n"
                            "00:10:00,25\n";
    const QList<ChapterEntry> list = ChapterListFile::parse(text, QStringLiteral("x.chapters.txt"));
    ASSERT_EQ(list.size(), 4);
    EXPECT_EQ(list[0], (ChapterEntry{0, QStringLiteral("Opening Credits")}));
    EXPECT_EQ(list[1], (ChapterEntry{3723500, QStringLiteral("Part üé with  spaces")}));
    EXPECT_EQ(list[2].startMs, 123LL * 3600 * 1000);
    EXPECT_EQ(list[3], (ChapterEntry{600250, QString()}));
}

TEST(ChapterListFileTest, RejectsMalformedLinesNamingTheLine)
{
    try {
        ChapterListFile::parse("00:00:00.000 ok\n00:61:00.000 bad minutes\n", QStringLiteral("book.chapters.txt"));
        FAIL() << "accepted a bad line";
    } catch (const ToolError& e) {
        EXPECT_EQ(e.kind(), ToolError::Kind::chapterFileInvalid);
        EXPECT_EQ(e.description(), QStringLiteral("book.chapters.txt: line 2: expected \"HH:MM:SS.mmm Title\""));
    }
    EXPECT_EQ(kindOf([] { ChapterListFile::parse("Chapter 1 at 00:00\n", QStringLiteral("f")); }),
              ToolError::Kind::chapterFileInvalid);
    EXPECT_EQ(kindOf([] { ChapterListFile::read(QStringLiteral("/nonexistent/book.chapters.txt")); }),
              ToolError::Kind::chapterFileUnreadable);
}

TEST(ChapterListFileTest, PathFormatAndNormalisation)
{
    EXPECT_EQ(ChapterListFile::pathFor(QStringLiteral("/a/b/my.book.m4b")), QStringLiteral("/a/b/my.book.chapters.txt"));
    const QList<ChapterEntry> list{{0, QStringLiteral("A")}, {3723500, QStringLiteral("B\nline")}};
    EXPECT_EQ(ChapterListFile::format(list), QByteArray("00:00:00.000 A\n01:02:03.500 B line\n"));
    EXPECT_EQ(ChapterListFile::parse(ChapterListFile::format({{45296789, QStringLiteral("T")}}), QStringLiteral("f")).first().startMs,
              45296789);

    // Out of order, a duplicate start, one at the end and one after it; the
    // first moves to 0.
    const QList<ChapterEntry> messy{{5000, QStringLiteral("second")}, {2000, QStringLiteral("first")},
                                    {5000, QStringLiteral("dup")},    {10000, QStringLiteral("at end")},
                                    {12000, QStringLiteral("after")}};
    const QList<ChapterEntry> n = ChapterListFile::normalized(messy, 10000);
    ASSERT_EQ(n.size(), 2);
    EXPECT_EQ(n[0], (ChapterEntry{0, QStringLiteral("first")}));
    EXPECT_EQ(n[1], (ChapterEntry{5000, QStringLiteral("second")}));
}

TEST(NeroChapterWriterTest, KeepsFirst255AndCutsTitlesOnCharacterBoundaries)
{
    QList<ChapterEntry> list;
    for (int i = 0; i < 300; ++i)
        list.append({std::int64_t(i) * 1000, QStringLiteral("Chapter %1").arg(i + 1)});
    // 254 ASCII bytes then a two-byte character: 256 bytes, cut to 254.
    list[1].title = QString(254, u'a') + QStringLiteral("é");
    const QByteArray payload = NeroChapterWriter::payload(list);
    EXPECT_EQ(payload.left(8), QByteArray("\x01\0\0\0\0\0\0\0", 8));
    EXPECT_EQ(static_cast<unsigned char>(payload.at(8)), 255);
    const QList<ChapterEntry> back = NeroChapterWriter::parse(payload);
    ASSERT_EQ(back.size(), 255);
    EXPECT_EQ(back[1].title, QString(254, u'a'));
    EXPECT_EQ(back[254], (ChapterEntry{254000, QStringLiteral("Chapter 255")}));
    // 100 ns units on disk.
    EXPECT_EQ(MP4Bytes::be64(payload.constData() + 27), 10000000u);
}

TEST(ToolOptionsTest, DashFormsValuesAndErrors)
{
    const QList<ToolOptions::Spec> specs{{QStringLiteral("song"), u's', true}, {QStringLiteral("remove"), u'r', false}};
    const auto p = ToolOptions::parse({QStringLiteral("-song"), QStringLiteral("-starts with dash"), QStringLiteral("--song=x=y"),
                                       QStringLiteral("-s"), QStringLiteral("short"), QStringLiteral("-r"),
                                       QStringLiteral("a.m4b"), QStringLiteral("--"), QStringLiteral("-b.m4b")},
                                      specs);
    ASSERT_EQ(p.options.size(), 4);
    EXPECT_EQ(p.options[0].second, QStringLiteral("-starts with dash"));
    EXPECT_EQ(p.options[1].second, QStringLiteral("x=y"));
    EXPECT_EQ(p.options[2].second, QStringLiteral("short"));
    EXPECT_EQ(p.value(QStringLiteral("song")), QStringLiteral("short"));
    EXPECT_TRUE(p.has(QStringLiteral("remove")));
    EXPECT_EQ(p.files, (QStringList{QStringLiteral("a.m4b"), QStringLiteral("-b.m4b")}));

    EXPECT_EQ(kindOf([&] { ToolOptions::parse({QStringLiteral("-bogus"), QStringLiteral("f")}, specs); }), ToolError::Kind::usage);
    EXPECT_EQ(kindOf([&] { ToolOptions::parse({QStringLiteral("f"), QStringLiteral("-song")}, specs); }), ToolError::Kind::usage);
    EXPECT_EQ(kindOf([&] { ToolOptions::parse({QStringLiteral("--s"), QStringLiteral("v")}, specs); }), ToolError::Kind::usage);
    EXPECT_EQ(kindOf([&] { ToolOptions::integer(QStringLiteral("track"), QStringLiteral("70000"), 0, 65535); }),
              ToolError::Kind::usage);
    EXPECT_EQ(ToolOptions::integer(QStringLiteral("track"), QStringLiteral(" 12 "), 0, 65535), 12);
}
