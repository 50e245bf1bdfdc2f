#include "chapters/BatchRenameService.h"
#include "chapters/FindReplaceService.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {
QStringList run(const QStringList& titles, const BatchRenameOptions& o)
{
    const auto r = BatchRenameService().apply(titles, o);
    EXPECT_FALSE(r.error.has_value());
    return r.titles;
}
} // namespace

QT_BEGIN_NAMESPACE
inline void PrintTo(const QStringList& l, std::ostream* os)
{
    *os << '[' << l.join(QStringLiteral(" | ")).toStdString() << ']';
}
inline void PrintTo(const QString& s, std::ostream* os)
{
    *os << '"' << s.toStdString() << '"';
}
QT_END_NAMESPACE

TEST(BatchRenameTest, NumericPrefixTrailingNumbersAndDuplicates)
{
    BatchRenameOptions prefix;
    prefix.removeNumericPrefix = true;
    EXPECT_EQ(run({"Track 03 - Intro", "Disc 2 - 7", "CD1 - Track 4 - Storm", "IV. The Return", "12) Twelve", "42"},
                  prefix),
              (QStringList{"Intro", "7", "Storm", "The Return", "Twelve", "42"}));

    BatchRenameOptions trailing;
    trailing.removeTrailingNumbers = true;
    EXPECT_EQ(run({"Intro - 01", "Part_2", "The End, Part - IV 3", "1984"}, trailing),
              (QStringList{"Intro", "Part", "The End, Part", "1984"}));

    BatchRenameOptions dup;
    dup.removeDuplicateWords = true;
    EXPECT_EQ(run({"the the end", "The the End", "no repeats here", "été été"}, dup),
              (QStringList{"the end", "The End", "no repeats here", "été"}));
}

TEST(BatchRenameTest, RepeatedBeginningAndEndStopAtWordBoundaries)
{
    BatchRenameOptions o;
    o.removeRepeatedBeginning = true;
    o.removeRepeatedEnd = true;
    EXPECT_EQ(run({"My Book - Chapter 1 (Unabridged)", "My Book - Chapter 2 (Unabridged)"}, o),
              (QStringList{"1", "2"}));
    EXPECT_EQ(run({"Chapter 1", "Chapter 10", "Chapter 11"}, o), (QStringList{"1", "10", "11"}));
    // A title equal to the shared part is never emptied.
    EXPECT_EQ(run({"Intro", "Intro Part 2"}, o), (QStringList{"Intro", "Intro Part 2"}));
    // One title: nothing is shared.
    EXPECT_EQ(run({"Alone here"}, o), (QStringList{"Alone here"}));
}

TEST(BatchRenameTest, BracketsPrefixesExtensionsAndCase)
{
    BatchRenameOptions o;
    o.removeBracketContents = true;
    EXPECT_EQ(run({"Intro (Part 1) End", "Chapter [Remastered]", "(Only)"}, o),
              (QStringList{"Intro End", "Chapter", "(Only)"}));

    BatchRenameOptions all;
    all.removeAllBrackets = true;
    EXPECT_EQ(run({"Intro (Part 1) {x} [y]"}, all), (QStringList{"Intro Part 1 x y"}));

    BatchRenameOptions common;
    common.removeCommonPrefixes = true;
    EXPECT_EQ(run({"Chapter 5: The Storm", "Ch. 12 - Night", "Part II — Return", "The Particle Zoo",
                   "Epilogue - Part 3", "Counterpart 2", "Chapter 9"},
                  common),
              (QStringList{"The Storm", "Night", "Return", "The Particle Zoo", "Epilogue", "Counterpart 2", "Chapter 9"}));

    BatchRenameOptions ext;
    ext.removeFileExtensions = true;
    EXPECT_EQ(run({"01 Intro.MP3", "Notes.txt", "Book.m4b"}, ext), (QStringList{"01 Intro", "Notes.txt", "Book"}));

    BatchRenameOptions cases;
    cases.changeCaseEnabled = true;
    cases.capitalization = CapitalizationStyle::titleCase;
    EXPECT_EQ(run({"the lord of the rings", "HARRY POTTER AND THE STONE", "my iPhone and the BBC"}, cases),
              (QStringList{"The Lord of the Rings", "Harry Potter and the Stone", "My iPhone and the BBC"}));
    cases.capitalization = CapitalizationStyle::sentenceCase;
    EXPECT_EQ(run({"THE END. a new START", "1. what i saw"}, cases),
              (QStringList{"The end. A new start", "1. What I saw"}));
    cases.capitalization = CapitalizationStyle::uppercase;
    EXPECT_EQ(run({"straße"}, cases), (QStringList{"STRASSE"}));
}

TEST(BatchRenameTest, WhitespaceDelimitersTrimAndNumbering)
{
    BatchRenameOptions o;
    o.normalizeWhitespace = true;
    o.normalizeDelimiters = true;
    EXPECT_EQ(run({"Part_One  –  The\tStart", "well-known | fact", "a -b"}, o),
              (QStringList{"Part One - The Start", "well-known - fact", "a - b"}));

    BatchRenameOptions n;
    n.trimWhitespace = true;
    n.addNumbering = true;
    n.numberingPrefix = QStringLiteral("Ch ");
    n.numberingStart = 9;
    n.numberingFormat = NumberingFormat::twoDigits;
    n.numberingSeparator = QStringLiteral(" - ");
    EXPECT_EQ(run({"  Nine ", "Ten"}, n), (QStringList{"Ch 09 - Nine", "Ch 10 - Ten"}));
    EXPECT_EQ(numberingFormatRawValue(NumberingFormat::threeDigits), QStringLiteral("001"));
    EXPECT_EQ(capitalizationStyleFromRawValue(QStringLiteral("sentenceCase")), CapitalizationStyle::sentenceCase);
}

TEST(BatchRenameTest, PipelineOrderAndFindReplaceFailureLeavesTitles)
{
    BatchRenameOptions o;
    o.removeNumericPrefix = true;
    o.findReplaceEnabled = true;
    o.findText = QStringLiteral("intro");
    o.replaceText = QStringLiteral("Prologue");
    o.changeCaseEnabled = true;
    o.capitalization = CapitalizationStyle::uppercase;
    o.addNumbering = true;
    // Prefix removal first, find and replace (no case), upper case, then numbers.
    EXPECT_EQ(run({"01 - Intro", "02 - Outro"}, o), (QStringList{"1. PROLOGUE", "2. OUTRO"}));

    o.findText = QStringLiteral("(unclosed");
    const auto bad = BatchRenameService().apply({"01 - Intro"}, o, true, false);
    ASSERT_TRUE(bad.error.has_value());
    EXPECT_EQ(bad.error->kind, FindReplaceError::Kind::invalidPattern);
    EXPECT_TRUE(bad.error->displayText().startsWith(QStringLiteral("Invalid pattern: ")));
    EXPECT_EQ(bad.titles, (QStringList{"01 - Intro"}));
}

TEST(FindReplaceTest, LiteralRegexCaseAndReferences)
{
    const FindReplaceService s;
    auto r = s.apply({"a.b a.b", "axb", "A.B"}, {QStringLiteral("a.b"), QStringLiteral("$1"), false, true});
    EXPECT_EQ(r.titles, (QStringList{"$1 $1", "axb", "A.B"}));
    EXPECT_EQ(r.matchedCount, 1);

    r = s.apply({"Chapter 1 - Intro", "chapter 22 - Storm", "Epilogue"},
                {QStringLiteral("^chapter (\\d+) - (.*)$"), QStringLiteral("$2 (\\1) $$"), true, false});
    EXPECT_EQ(r.titles, (QStringList{"Intro (1) $", "Storm (22) $", "Epilogue"}));
    EXPECT_EQ(r.matchedCount, 2);

    r = s.apply({"abc"}, {QStringLiteral("x*"), QStringLiteral("-"), true, false});
    EXPECT_EQ(r.titles, (QStringList{"-a-b-c-"}));

    r = s.apply({"keep"}, {QString(), QStringLiteral("x"), true, false});
    EXPECT_EQ(r.titles, (QStringList{"keep"}));
    EXPECT_FALSE(r.error.has_value());

    r = s.apply({"keep"}, {QStringLiteral("[a-"), QStringLiteral("x"), true, false});
    ASSERT_TRUE(r.error.has_value());
    EXPECT_EQ(r.error->kind, FindReplaceError::Kind::invalidPattern);
    EXPECT_EQ(r.titles, (QStringList{"keep"}));
}

TEST(FindReplaceTest, CatastrophicPatternIsTooSlowAndChangesNothing)
{
    QStringList titles;
    for (int i = 0; i < 2000; ++i)
        titles << QString(28, u'a') + QStringLiteral("!");
    const FindReplaceService s(std::chrono::milliseconds(50));
    const auto r = s.apply(titles, {QStringLiteral("^(a|aa)+$"), QStringLiteral("x"), true, true});
    ASSERT_TRUE(r.error.has_value());
    EXPECT_EQ(r.error->kind, FindReplaceError::Kind::tooSlow);
    EXPECT_EQ(r.error->displayText(), QStringLiteral("This pattern is too slow to preview — try simplifying it."));
    EXPECT_EQ(r.titles, titles);
    EXPECT_EQ(r.matchedCount, 0);
}
