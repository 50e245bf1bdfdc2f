#include "chapters/ChapterFormatError.h"
#include "chapters/ChapterFormatTemplate.h"
#include "chapters/ExportFilenameFormat.h"
#include "chapters/FormatStringService.h"
#include "chapters/SortPart.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace folivox;

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

TEST(ChapterFormatTemplateTest, RendersNumbersLettersPaddingAndStart)
{
    ChapterFormatTemplate t;
    t.tokens = {FormatToken::fixed(QStringLiteral("Chapter ")),
                FormatToken::of(FormatVariable::chapterNumber({NumberingConfig::Style::decimal,
                                                               NumberingConfig::Padding::two, 1})),
                FormatToken::fixed(QStringLiteral(" of ")),
                FormatToken::of(FormatVariable::chapterCount({})), FormatToken::fixed(QStringLiteral(": ")),
                FormatToken::of(FormatVariable::chapterName()), FormatToken::fixed(QStringLiteral(" — ")),
                FormatToken::of(FormatVariable::bookTitle())};
    const FormatStringService s;
    EXPECT_EQ(s.renderAll(t, {"Intro", "Storm"}, QStringLiteral("Book")),
              (QStringList{"Chapter 01 of 2: Intro — Book", "Chapter 02 of 2: Storm — Book"}));

    ChapterFormatTemplate letters;
    letters.tokens = {FormatToken::of(FormatVariable::chapterNumber({NumberingConfig::Style::letter,
                                                                     NumberingConfig::Padding::three, 25}))};
    EXPECT_EQ(s.renderAll(letters, {"a", "b", "c", "d"}, {}), (QStringList{"Y", "Z", "AA", "AB"}));

    ChapterFormatTemplate fromZero;
    fromZero.tokens = {FormatToken::of(FormatVariable::chapterNumber({NumberingConfig::Style::decimal,
                                                                      NumberingConfig::Padding::three, 0})),
                       FormatToken::fixed(QStringLiteral("/")),
                       FormatToken::of(FormatVariable::chapterCount({NumberingConfig::Style::decimal,
                                                                     NumberingConfig::Padding::none, 0}))};
    EXPECT_EQ(s.renderAll(fromZero, {"a", "b", "c"}, {}), (QStringList{"000/2", "001/2", "002/2"}));
    EXPECT_EQ(NumberingConfig::letters(702), QStringLiteral("ZZ"));
    EXPECT_EQ(NumberingConfig::letters(703), QStringLiteral("AAA"));
}

TEST(ChapterFormatTemplateTest, JsonFormRoundTripsAndRejectsWrongKeyCounts)
{
    ChapterFormatTemplate t;
    t.tokens = {FormatToken::fixed(QStringLiteral("Ch ")),
                FormatToken::of(FormatVariable::chapterNumber({NumberingConfig::Style::letter,
                                                               NumberingConfig::Padding::none, 3})),
                FormatToken::of(FormatVariable::chapterName())};
    const QJsonObject json = t.toJson();
    EXPECT_EQ(QJsonDocument(json).toJson(QJsonDocument::Compact),
              QByteArray("{\"tokens\":[{\"text\":{\"_0\":\"Ch \"}},{\"variable\":{\"_0\":{\"chapterNumber\":{\"config\":"
                         "{\"padding\":\"none\",\"startNumber\":3,\"style\":\"letter\"}}}}},"
                         "{\"variable\":{\"_0\":{\"chapterName\":{}}}}]}"));
    EXPECT_EQ(ChapterFormatTemplate::fromJson(json), t);

    const auto bad = QJsonDocument::fromJson(R"({"tokens":[{"text":{"_0":"a"},"variable":{}}]})").object();
    try {
        ChapterFormatTemplate::fromJson(bad);
        ADD_FAILURE() << "two keys accepted";
    } catch (const ChapterFormatError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("Invalid number of keys found, expected one."));
    }
    EXPECT_THROW(FormatVariable::fromJson(QJsonObject{}), ChapterFormatError);
    EXPECT_THROW(FormatVariable::fromJson(QJsonDocument::fromJson(R"({"pageNumber":{}})").object()), ChapterFormatError);
    EXPECT_THROW(FormatVariable::fromJson(QJsonDocument::fromJson(R"({"chapterCount":{}})").object()), ChapterFormatError);
    EXPECT_EQ(FormatVariable::bookTitle().label(), QStringLiteral("Book Title"));
}

TEST(ExportFilenameFormatTest, JoinersFollowTheCaseNames)
{
    const ExportFilenameFields f{QStringLiteral("The Hobbit"), QStringLiteral("J. R. R. Tolkien"),
                                 QStringLiteral("Middle-earth"), QStringLiteral("1"), QStringLiteral("Andy Serkis"),
                                 QStringLiteral("1937")};
    using F = ExportFilenameFormat;
    auto r = [&](F format) { return ExportFilenames::render(format, f); };
    EXPECT_EQ(r(F::title), QStringLiteral("The Hobbit"));
    EXPECT_EQ(r(F::authorTitle), QStringLiteral("J. R. R. Tolkien - The Hobbit"));
    EXPECT_EQ(r(F::titleAuthor), QStringLiteral("The Hobbit - J. R. R. Tolkien"));
    EXPECT_EQ(r(F::seriesTitle), QStringLiteral("Middle-earth 1 - The Hobbit"));
    EXPECT_EQ(r(F::authorSeriesTitle), QStringLiteral("J. R. R. Tolkien - Middle-earth 1 - The Hobbit"));
    EXPECT_EQ(r(F::authorTitleSeries), QStringLiteral("J. R. R. Tolkien - The Hobbit - Middle-earth 1"));
    EXPECT_EQ(r(F::authorTitleSeriesBrackets), QStringLiteral("J. R. R. Tolkien - The Hobbit [Middle-earth 1]"));
    EXPECT_EQ(r(F::authorTitleNarratorBraces), QStringLiteral("J. R. R. Tolkien - The Hobbit {Andy Serkis}"));
    EXPECT_EQ(r(F::authorTitleNarratorParens), QStringLiteral("J. R. R. Tolkien - The Hobbit (Andy Serkis)"));
    EXPECT_EQ(r(F::authorSeriesTitleNarratorBraces),
              QStringLiteral("J. R. R. Tolkien - Middle-earth 1 - The Hobbit {Andy Serkis}"));
    EXPECT_EQ(r(F::authorSeriesTitleNarratorParens),
              QStringLiteral("J. R. R. Tolkien - Middle-earth 1 - The Hobbit (Andy Serkis)"));
    EXPECT_EQ(r(F::authorTitleYear), QStringLiteral("J. R. R. Tolkien - The Hobbit - 1937"));
    EXPECT_EQ(r(F::titleYear), QStringLiteral("The Hobbit - 1937"));

    // Missing parts drop out with their joiners; unsafe characters are replaced.
    EXPECT_EQ(ExportFilenames::render(F::authorTitleNarratorParens, {QStringLiteral("AC/DC: Live"), {}, {}, {}, {}, {}}),
              QStringLiteral("AC-DC- Live"));
    EXPECT_EQ(ExportFilenames::render(F::authorTitle, {}), QStringLiteral("Untitled"));
    EXPECT_EQ(ExportFilenames::render(F::title, {QStringLiteral("..hidden"), {}, {}, {}, {}, {}}), QStringLiteral("hidden"));

    int total = 0;
    for (const auto& section : ExportFilenames::sections())
        total += section.cases.size();
    EXPECT_EQ(total, ExportFilenames::allCases().size());
    EXPECT_EQ(ExportFilenames::fromRawValue(QStringLiteral("authorSeriesTitleNarratorParens")),
              F::authorSeriesTitleNarratorParens);
}

TEST(SortPartTest, NumbersCompareByValue)
{
    EXPECT_LT(SortPart::compare(QStringLiteral("Part 9"), QStringLiteral("Part 10")), 0);
    EXPECT_GT(SortPart::compare(QStringLiteral("part 10b"), QStringLiteral("Part 10a")), 0);
    EXPECT_EQ(SortPart::compare(QStringLiteral("Disc 01"), QStringLiteral("disc 1")), 0);
    EXPECT_EQ(SortPart::split(QStringLiteral("a12b")).size(), 3);
    EXPECT_EQ(SortPart::split(QStringLiteral("a12b"))[1].number, 12);
}
