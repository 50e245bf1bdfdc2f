#include "SidecarTestHelpers.h"

#include "sidecars/parsers/SidecarParserRegistry.h"
#include "sidecars/parsers/SidecarSniffer.h"
#include "sidecars/parsers/SidecarTextRules.h"

using namespace folivox;
using namespace folivox::test;

TEST(SidecarParserRegistryTest, OrderAndPicksForRealFiles)
{
    QList<SidecarFormat> order;
    for (const auto* p : SidecarParserRegistry::parsers())
        order << p->format();
    EXPECT_EQ(order, (QList<SidecarFormat>{SidecarFormat::cue, SidecarFormat::ffmetadata, SidecarFormat::mkvXML,
                                           SidecarFormat::mkvSimple, SidecarFormat::mp4chaps,
                                           SidecarFormat::audacityLabels, SidecarFormat::simpleText}));

    struct Case {
        QString name;
        QString text;
        SidecarFormat expected;
    };
    const QList<Case> cases = {
        {"book.cue", "FILE \"book.mp3\" MP3\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n", SidecarFormat::cue},
        {"book.txt", ";FFMETADATA1\n[CHAPTER]\nSTART=0\n", SidecarFormat::ffmetadata},
        {"book.xml", "<Chapters><EditionEntry><ChapterAtom><ChapterTimeStart>00:00:00</ChapterTimeStart>"
                     "</ChapterAtom></EditionEntry></Chapters>", SidecarFormat::mkvXML},
        {"book.txt", "CHAPTER01=00:00:00.000\nCHAPTER01NAME=A\nCHAPTER02=00:10:00.000\nCHAPTER02NAME=B\n",
         SidecarFormat::mkvSimple},
        {"book.chapters.txt", "00:00:00.000 A\n00:10:00.000 B\n00:20:00.000 C\n", SidecarFormat::mp4chaps},
        {"labels.txt", "0\t0\tA\n10\t10\tB\n20\t20\tC\n", SidecarFormat::audacityLabels},
        // A bracketed time is no mp4chaps line (0), but simple text sees it (20).
        {"notes.txt", "[00:00] Intro\n", SidecarFormat::simpleText},
        // A bare time: mp4chaps 30 beats simple text 20.
        {"notes.txt", "00:00 Intro\n", SidecarFormat::mp4chaps},
    };
    for (const Case& c : cases) {
        const auto sel = SidecarParserRegistry::select(c.text, fileUrl(c.name));
        ASSERT_NE(sel.parser, nullptr) << c.name.toStdString();
        EXPECT_EQ(sel.parser->format(), c.expected) << c.text.toStdString();
    }
    EXPECT_EQ(SidecarParserRegistry::select(QStringLiteral("hello world"), fileUrl(QStringLiteral("readme.md"))).parser,
              nullptr);
    EXPECT_FALSE(SidecarParserRegistry::parse(QStringLiteral("hello"), fileUrl(QStringLiteral("a.md"))).has_value());
}

TEST(SidecarParserRegistryTest, TieGoesToTheEarlierParser)
{
    // An mkvXML text named .txt with only <Chapters> scores 40; a cue sheet
    // text that also scores 40 (TRACK/AUDIO + INDEX) comes first and wins.
    const QString text = QStringLiteral("<Chapters>\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n");
    const auto sel = SidecarParserRegistry::select(text, fileUrl(QStringLiteral("x.txt")));
    ASSERT_NE(sel.parser, nullptr);
    EXPECT_EQ(sel.score, 40);
    EXPECT_EQ(sel.parser->format(), SidecarFormat::cue);
}

TEST(SidecarSnifferTest, RulesInOrderWithTheirOwnWeights)
{
    const SidecarSniffer s;
    auto sniff = [&](const QString& text, const QString& name) { return s.sniff(text, fileUrl(name)); };

    // Cue: FLAC does not count here, unlike the parser's confidence; PERFORMER
    // and TITLE add 5 each.
    auto r = sniff(QStringLiteral("PERFORMER \"x\"\nTITLE \"y\"\nFILE \"a.flac\" FLAC\n"), QStringLiteral("a.cue"));
    EXPECT_EQ(r.format, SidecarFormat::cue);
    EXPECT_EQ(r.score, 60);
    // Any "TITLE " makes a text a cue sheet with 5.
    r = sniff(QStringLiteral("Some TITLE here"), QStringLiteral("a.md"));
    EXPECT_EQ(r.format, SidecarFormat::cue);
    EXPECT_EQ(r.score, 5);
    // Two-digit mkv simple keys only.
    r = sniff(QStringLiteral("CHAPTER001=00:00:00.000\nCHAPTER002=00:00:00.000"), QStringLiteral("a.md"));
    EXPECT_FALSE(r.format.has_value());
    r = sniff(QStringLiteral("CHAPTER01=00:00:00.000\nCHAPTER01NAME=x"), QStringLiteral("a.md"));
    EXPECT_EQ(r.format, SidecarFormat::mkvSimple);
    EXPECT_EQ(r.score, 70);
    // Every .txt file stops at mp4chaps with at least 40.
    r = sniff(QStringLiteral("just prose"), QStringLiteral("a.txt"));
    EXPECT_EQ(r.format, SidecarFormat::mp4chaps);
    EXPECT_EQ(r.score, 40);
    r = sniff(QStringLiteral("00:00:00.000 A\n00:01:00.000 B\n00:02:00.000 C\n"), QStringLiteral("a.txt"));
    EXPECT_EQ(r.score, 100);
    // Without .txt, three-digit fractions still count (40 for one or two).
    r = sniff(QStringLiteral("00:00:00.000 A\n"), QStringLiteral("a.lst"));
    EXPECT_EQ(r.format, SidecarFormat::mp4chaps);
    EXPECT_EQ(r.score, 40);
    r = sniff(QStringLiteral("0\t5\tA\n"), QStringLiteral("a.lst"));
    EXPECT_EQ(r.format, SidecarFormat::audacityLabels);
    EXPECT_EQ(r.score, 50);
    r = sniff(QStringLiteral("  ;FFMETADATA1\n"), QStringLiteral("a.md"));
    EXPECT_EQ(r.format, SidecarFormat::ffmetadata);
    EXPECT_FALSE(sniff(QStringLiteral("00:01 hello"), QStringLiteral("a.md")).format.has_value());
}

TEST(SidecarTextRulesTest, ClockAndNumbers)
{
    EXPECT_EQ(SidecarTextRules::clockTime(240, 0, 0, 0), 864'000'000);
    EXPECT_EQ(SidecarTextRules::clockTime(240, 0, 0, 1), std::nullopt);
    EXPECT_EQ(SidecarTextRules::clockTime(0, 60, 0, 0), std::nullopt);
    EXPECT_EQ(SidecarTextRules::fractionMilliseconds(u"5"), 500);
    EXPECT_EQ(SidecarTextRules::fractionMilliseconds(u"05"), 50);
    EXPECT_EQ(SidecarTextRules::decimalNumber(u" 1"), std::nullopt);
    EXPECT_EQ(SidecarTextRules::decimalNumber(u"1 "), std::nullopt);
    EXPECT_EQ(SidecarTextRules::decimalNumber(u"+1.5e1"), 15.0);
    EXPECT_EQ(SidecarTextRules::decimalNumber(u""), std::nullopt);
    EXPECT_EQ(SidecarTextRules::wholeNumber(u"0000000000000000000000012"), 12);
    EXPECT_EQ(SidecarTextRules::wholeNumber(u"99999999999999999999"), std::nullopt);
    EXPECT_EQ(SidecarTextRules::wholeNumber(u"-1"), std::nullopt);
    EXPECT_EQ(SidecarTextRules::splitLines(QStringLiteral("a\r\nb\u0085c\u2029")).size(), 5);
}
