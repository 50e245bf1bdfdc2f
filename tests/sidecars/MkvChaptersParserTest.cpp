#include "SidecarTestHelpers.h"

#include "sidecars/parsers/MkvSimpleChaptersParser.h"
#include "sidecars/parsers/MkvXMLChaptersParser.h"

using namespace folivox;
using namespace folivox::test;

TEST(MkvSimpleChaptersParserTest, PairsSortedByNumberWithMissingNames)
{
    const QString text = QStringLiteral(
        "CHAPTER03=00:20:00.000\n"
        "CHAPTER03NAME=Third\n"
        "CHAPTER01=00:00:00.000\n"
        "chapter01name=  First  \n"
        "CHAPTER002=00:10:00.500\n"     // 2 and 002 are the same number
        "CHAPTER04=00:75:00.000\n"      // bad minutes: no time
        "CHAPTER04NAME=Has no time\n"
        "garbage line\n");
    const auto r = MkvSimpleChaptersParser().parse(text, fileUrl(QStringLiteral("c.txt")));
    EXPECT_EQ(titles(r.chapters), (QStringList{"First", "Chapter 2", "Third"}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 600'500, 1'200'000}));
    // Three times, three names (01, 03, 04): same size, no warning.
    EXPECT_TRUE(r.warnings.isEmpty()) << describeWarnings(r).join(u'\n').toStdString();

    const auto r2 = MkvSimpleChaptersParser().parse(QStringLiteral("CHAPTER01=00:00:00.000\nCHAPTER02=00:01:00.000\n"
                                                                   "CHAPTER01NAME=Only one name\n"),
                                                    fileUrl(QStringLiteral("c.txt")));
    EXPECT_EQ(describeWarnings(r2), (QStringList{"info|-|Some chapters have no CHAPTERXXNAME entry"}));
    EXPECT_EQ(MkvSimpleChaptersParser().parse(QStringLiteral("CHAPTER01NAME=x"), fileUrl(QStringLiteral("c.txt"))).warnings.back().message,
              QStringLiteral("No chapters found"));
}

TEST(MkvSimpleChaptersParserTest, Confidence)
{
    const MkvSimpleChaptersParser p;
    EXPECT_EQ(p.confidence(QStringLiteral("CHAPTER01=0\nCHAPTER02=0\nCHAPTER01NAME=x"), {}), 90);
    EXPECT_EQ(p.confidence(QStringLiteral("chapter001=0"), {}), 30);
    EXPECT_EQ(p.confidence(QStringLiteral("CHAPTER1=0"), {}), 0);
}

namespace {
QString atom(const QString& start, const QString& title, const QString& end = {})
{
    QString s = QStringLiteral("    <ChapterAtom>\n      <ChapterUID>1</ChapterUID>\n      <ChapterTimeStart>") + start
                + QStringLiteral("</ChapterTimeStart>\n");
    if (!end.isEmpty())
        s += QStringLiteral("      <ChapterTimeEnd>") + end + QStringLiteral("</ChapterTimeEnd>\n");
    if (!title.isNull())
        s += QStringLiteral("      <ChapterDisplay>\n        <ChapterString>") + title
             + QStringLiteral("</ChapterString>\n        <ChapterLanguage>eng</ChapterLanguage>\n      </ChapterDisplay>\n");
    return s + QStringLiteral("    </ChapterAtom>\n");
}
QString document(const QString& atoms)
{
    return QStringLiteral("<?xml version=\"1.0\"?>\n<!-- <!DOCTYPE Chapters SYSTEM \"matroskachapters.dtd\"> -->\n"
                          "<Chapters>\n  <EditionEntry>\n")
           + atoms + QStringLiteral("  </EditionEntry>\n</Chapters>\n");
}
} // namespace

TEST(MkvXMLChaptersParserTest, AtomsTimesTitlesAndEntities)
{
    const QString text = document(atom(QStringLiteral("00:00:00.000000000"), QStringLiteral(" Opening &amp; Credits "),
                                       QStringLiteral("00:01:00.5"))
                                  + atom(QStringLiteral("01:02:03.123456789"), QString())
                                  + atom(QStringLiteral("bogus"), QStringLiteral("Skipped"))
                                  + atom(QStringLiteral("240:00:00"), QStringLiteral("Caf&#233;")));
    const auto r = MkvXMLChaptersParser().parse(text, fileUrl(QStringLiteral("c.xml")));
    EXPECT_EQ(titles(r.chapters), (QStringList{"Opening & Credits", "Chapter 2", "Café"}));
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0, 3'723'123, 864'000'000}));
    EXPECT_EQ(ends(r.chapters), (QList<std::optional<qint64>>{60'500, std::nullopt, std::nullopt}));
    EXPECT_EQ(describeWarnings(r), (QStringList{"warning|-|ChapterAtom missing ChapterTimeStart"}));
}

TEST(MkvXMLChaptersParserTest, TimeForm)
{
    EXPECT_EQ(MkvXMLChaptersParser::parseTime(u"00:00:01"), 1000);
    EXPECT_EQ(MkvXMLChaptersParser::parseTime(u"00:00:01.9999999999"), 1999);
    EXPECT_EQ(MkvXMLChaptersParser::parseTime(u"240:00:00.000999"), 864000000); // truncated to the limit
    EXPECT_EQ(MkvXMLChaptersParser::parseTime(u"240:00:00.001"), std::nullopt);         // past it
    EXPECT_EQ(MkvXMLChaptersParser::parseTime(u"241:00:00"), std::nullopt);
    EXPECT_EQ(MkvXMLChaptersParser::parseTime(u"00:60:00"), std::nullopt);
    EXPECT_EQ(MkvXMLChaptersParser::parseTime(u"00:00:60"), std::nullopt);
    EXPECT_EQ(MkvXMLChaptersParser::parseTime(u"00:01"), std::nullopt);
    EXPECT_EQ(MkvXMLChaptersParser::parseTime(u"00:00:01.5x"), std::nullopt);
}

TEST(MkvXMLChaptersParserTest, TwentyOneLevelsDeepIsRefusedTwentyIsRead)
{
    auto nested = [](int levels) {
        QString open, close;
        // <Chapters><EditionEntry><ChapterAtom> plus wrappers to reach the depth.
        for (int i = 0; i < levels - 3; ++i) {
            open += QStringLiteral("<Wrap>");
            close.prepend(QStringLiteral("</Wrap>"));
        }
        return QStringLiteral("<?xml version=\"1.0\"?><!-- c --><Chapters><EditionEntry>") + open
               + QStringLiteral("<ChapterAtom><ChapterTimeStart>00:00:05</ChapterTimeStart><Flag/></ChapterAtom>")
               + close + QStringLiteral("</EditionEntry></Chapters>");
    };
    // The time element inside the atom adds one more level.
    EXPECT_EQ(MkvXMLChaptersParser::nestingDepth(nested(19)), 20);
    const auto ok = MkvXMLChaptersParser().parse(nested(19), fileUrl(QStringLiteral("c.xml")));
    EXPECT_EQ(starts(ok.chapters), (QList<qint64>{5000}));

    const auto deep = MkvXMLChaptersParser().parse(nested(20), fileUrl(QStringLiteral("c.xml")));
    EXPECT_TRUE(deep.chapters.isEmpty());
    EXPECT_EQ(describeWarnings(deep), (QStringList{"error|-|XML nesting depth 21 exceeds limit 20"}));
}

TEST(MkvXMLChaptersParserTest, NestedAtomIsCutAtFirstCloseAndUnclosedAtomsEndTheSearch)
{
    const QString text = QStringLiteral(
        "<Chapters><EditionEntry>"
        "<ChapterAtom><ChapterTimeStart>00:00:00</ChapterTimeStart>"
        "<ChapterAtom><ChapterTimeStart>00:00:30</ChapterTimeStart></ChapterAtom>"
        "<ChapterDisplay><ChapterString>Outer</ChapterString></ChapterDisplay></ChapterAtom>"
        "<ChapterAtom><ChapterTimeStart>00:01:00</ChapterTimeStart>"
        "</EditionEntry></Chapters>");
    const auto r = MkvXMLChaptersParser().parse(text, fileUrl(QStringLiteral("c.xml")));
    // The first atom's body runs to the inner closing tag: its own start wins
    // and it has no title; the unclosed last atom is not read.
    EXPECT_EQ(starts(r.chapters), (QList<qint64>{0}));
    EXPECT_EQ(titles(r.chapters), (QStringList{"Chapter 1"}));

    const auto none = MkvXMLChaptersParser().parse(QStringLiteral("<Chapters></Chapters>"), fileUrl(QStringLiteral("c.xml")));
    EXPECT_EQ(describeWarnings(none), (QStringList{"error|-|No ChapterAtom elements found"}));
}

TEST(MkvXMLChaptersParserTest, Confidence)
{
    const MkvXMLChaptersParser p;
    EXPECT_EQ(p.confidence(document(atom(QStringLiteral("00:00:00"), QStringLiteral("a"))), fileUrl(QStringLiteral("c.xml"))), 100);
    EXPECT_EQ(p.confidence(QStringLiteral("<Chapters lang=\"en\">"), fileUrl(QStringLiteral("c.txt"))), 40);
    EXPECT_EQ(p.confidence(QStringLiteral("<root/>"), fileUrl(QStringLiteral("c.xml"))), 20);
}
