#include "core/book/BookMetadata.h"
#include "core/json/DecodingError.h"
#include "core/json/JsonReader.h"
#include "core/book/SeriesIndex.h"

#include <QJsonDocument>
#include <QLocale>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

// Decodes the "s" member of a JSON object text through the record reader, the
// way every record decodes its seriesIndex field.
SeriesIndex decodeFromText(const char* objectText)
{
    const JsonReader r(JsonReader::parseObject(objectText));
    return r.value<SeriesIndex>("s");
}

QString encodedText(const SeriesIndex& index)
{
    QJsonObject o;
    o.insert(QStringLiteral("s"), index.toJson());
    return QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact));
}

std::optional<QString> parsedText(const char* input)
{
    auto parsed = SeriesIndex::parse(QString::fromUtf8(input));
    if (!parsed)
        return std::nullopt;
    return parsed->text();
}

} // namespace

TEST(SeriesIndexParse, CanonicalTextDropsLeadingAndTrailingZeros)
{
    EXPECT_EQ(parsedText("03"), QStringLiteral("3"));
    EXPECT_EQ(parsedText("0"), QStringLiteral("0"));
    EXPECT_EQ(parsedText("000"), QStringLiteral("0"));
    EXPECT_EQ(parsedText("007"), QStringLiteral("7"));
    EXPECT_EQ(parsedText("1.50"), QStringLiteral("1.5"));
    EXPECT_EQ(parsedText("2.000"), QStringLiteral("2"));
    EXPECT_EQ(parsedText("12.05"), QStringLiteral("12.05"));
    EXPECT_EQ(parsedText(".5"), QStringLiteral("0.5"));
    EXPECT_EQ(parsedText("  1,5 \r\n"), QStringLiteral("1.5"));
    EXPECT_EQ(parsedText("123456"), QStringLiteral("123456"));
    EXPECT_EQ(parsedText("1.234"), QStringLiteral("1.234"));
}

TEST(SeriesIndexParse, RefusesMalformedOverlongAndForeignDigits)
{
    for (const char* bad : {"", "   ", "1.", "0.", ".", "1.2.3", "1,2,3", "1234567", "1.2345", "-1", "+1", "1e3",
                            "one", "1 2", "١٢", "３"}) {
        EXPECT_FALSE(SeriesIndex::parse(QString::fromUtf8(bad)).has_value()) << bad;
    }
}

TEST(SeriesIndexValue, ComparesByExactDecimalValue)
{
    const auto two = *SeriesIndex::parse(QStringLiteral("2"));
    const auto ten = *SeriesIndex::parse(QStringLiteral("10"));
    const auto twelveHalf = *SeriesIndex::parse(QStringLiteral("12.5"));
    const auto twelveOhFive = *SeriesIndex::parse(QStringLiteral("12.05"));
    EXPECT_LT(two, ten); // not text order
    EXPECT_LT(twelveOhFive, twelveHalf);
    EXPECT_EQ(*SeriesIndex::parse(QStringLiteral("1.5")), *SeriesIndex::parse(QStringLiteral("01.500")));
    EXPECT_EQ(twelveOhFive.value().whole, 12u);
    EXPECT_EQ(twelveOhFive.value().thousandths, 50);
    EXPECT_DOUBLE_EQ(twelveHalf.value().toDouble(), 12.5);
}

TEST(SeriesIndexValue, IntegerConstructionClampsAtZero)
{
    EXPECT_EQ(SeriesIndex::fromInteger(-3).text(), QStringLiteral("0"));
    EXPECT_EQ(SeriesIndex::fromInteger(0).text(), QStringLiteral("0"));
    EXPECT_EQ(SeriesIndex::fromInteger(42).text(), QStringLiteral("42"));
    EXPECT_EQ(SeriesIndex::fromInteger(42), *SeriesIndex::parse(QStringLiteral("42.000")));
}

TEST(SeriesIndexJson, DecodesIntegersStringsAndFloats)
{
    EXPECT_EQ(decodeFromText(R"({"s": 3})").text(), QStringLiteral("3"));
    EXPECT_EQ(decodeFromText(R"({"s": -1})").text(), QStringLiteral("0"));
    EXPECT_EQ(decodeFromText(R"({"s": "007"})").text(), QStringLiteral("7"));
    EXPECT_EQ(decodeFromText(R"({"s": "1,5"})").text(), QStringLiteral("1.5"));
    EXPECT_EQ(decodeFromText(R"({"s": 2.5})").text(), QStringLiteral("2.5"));
    EXPECT_EQ(decodeFromText(R"({"s": 0.1234})").text(), QStringLiteral("0.123"));
    EXPECT_EQ(decodeFromText(R"({"s": 12.0})").text(), QStringLiteral("12"));
}

TEST(SeriesIndexJson, WholeIndexIsWrittenAsIntegerOthersAsString)
{
    EXPECT_EQ(encodedText(decodeFromText(R"({"s": 12.0})")), QStringLiteral(R"({"s":12})"));
    EXPECT_EQ(encodedText(*SeriesIndex::parse(QStringLiteral("3"))), QStringLiteral(R"({"s":3})"));
    EXPECT_EQ(encodedText(*SeriesIndex::parse(QStringLiteral("1,5"))), QStringLiteral(R"({"s":"1.5"})"));
    EXPECT_EQ(encodedText(*SeriesIndex::parse(QStringLiteral("12.5"))), QStringLiteral(R"({"s":"12.5"})"));

    // And back again: the forms read as they were written.
    for (const char* text : {"0", "3", "12.5", "999999.999", "0.05"}) {
        const SeriesIndex original = *SeriesIndex::parse(QString::fromLatin1(text));
        const SeriesIndex back = decodeFromText(encodedText(original).toUtf8().constData());
        EXPECT_EQ(back.text(), original.text());
        EXPECT_EQ(back, original);
    }
}

TEST(SeriesIndexJson, UnusableValuesFailAsCorruptedDataWithTheExactText)
{
    for (const char* text : {R"({"s": 1234567.5})", R"({"s": 1234567.0})", R"({"s": 1e12})", R"({"s": "abc"})",
                             R"({"s": "1.2345"})", R"({"s": true})", R"({"s": -2.5})", R"({"s": [3]})"}) {
        try {
            decodeFromText(text);
            ADD_FAILURE() << "decoded " << text;
        } catch (const DecodingError& e) {
            EXPECT_EQ(e.kind(), DecodingError::Kind::dataCorrupted) << text;
            EXPECT_EQ(e.description(), QStringLiteral("Not a series index (expected a number like 3 or 12.5)"));
            EXPECT_EQ(e.codingPath(), QStringLiteral("s"));
        }
    }
}

TEST(SeriesIndexJson, BadIndexFailsTheRecordThatHoldsIt)
{
    const QByteArray text = R"({"title":"Dune","albumUsesSeriesPrefix":true,"seriesIndex":"x1"})";
    try {
        BookMetadata::fromJson(JsonReader::parseObject(text));
        ADD_FAILURE() << "decoded a book with a bad series index";
    } catch (const DecodingError& e) {
        EXPECT_EQ(e.kind(), DecodingError::Kind::dataCorrupted);
        EXPECT_EQ(e.codingPath(), QStringLiteral("seriesIndex"));
    }
}

TEST(SeriesIndexText, ReductionKeepsOnlyDigitsWithinTheLimits)
{
    EXPECT_EQ(SeriesIndex::reducedInput(QStringLiteral("a1b2.3c4d5e6")), QStringLiteral("12.345"));
    EXPECT_EQ(SeriesIndex::reducedInput(QStringLiteral("12345678")), QStringLiteral("123456"));
    EXPECT_EQ(SeriesIndex::reducedInput(QStringLiteral("1,2,3")), QStringLiteral("1,23"));
    EXPECT_EQ(SeriesIndex::reducedInput(QStringLiteral("Book #4")), QStringLiteral("4"));
    EXPECT_EQ(SeriesIndex::reducedInput(QString::fromUtf8("١٢3")), QStringLiteral("3"));
    // What the reduction leaves always parses (or is empty).
    for (const char* typed : {"v12.50x", "0000009.9999", ".75", "7,"}) {
        const QString reduced = SeriesIndex::reducedInput(QString::fromUtf8(typed));
        if (!reduced.endsWith(u'.') && !reduced.endsWith(u',')) {
            EXPECT_TRUE(SeriesIndex::parse(reduced).has_value()) << typed;
        }
    }
}

TEST(SeriesIndexText, PaddingAndSeparatorExchange)
{
    EXPECT_EQ(SeriesIndex::parse(QStringLiteral("7"))->paddedText(3), QStringLiteral("007"));
    EXPECT_EQ(SeriesIndex::parse(QStringLiteral("12.5"))->paddedText(3), QStringLiteral("012.5"));
    EXPECT_EQ(SeriesIndex::parse(QStringLiteral("1234"))->paddedText(2), QStringLiteral("1234"));

    EXPECT_EQ(SeriesIndex::exchangingDecimalSeparator(QStringLiteral("2,5"), QLocale(QLocale::German)),
              QStringLiteral("2.5"));
    EXPECT_EQ(SeriesIndex::exchangingDecimalSeparator(QString::fromUtf8("2٫5"), QLocale(QLocale::Arabic, QLocale::Egypt)),
              QStringLiteral("2.5"));
    // Under a locale whose separator is already "." nothing changes.
    EXPECT_EQ(SeriesIndex::exchangingDecimalSeparator(QStringLiteral("2,5"), QLocale(QLocale::English)),
              QStringLiteral("2,5"));
}
