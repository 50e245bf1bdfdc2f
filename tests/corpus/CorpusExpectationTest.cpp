// The matcher the corpus test compares program output with: every kind of
// difference is found and named by its path, and what a pattern leaves out
// is not held against the output.
#include "corpus/CorpusExpectation.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

using folivox::test::CorpusExpectation;

namespace {

QStringList differences(const char* expected, const char* actual, double tolerance = 0.0005)
{
    QStringList out;
    CorpusExpectation::compare(QJsonDocument::fromJson(expected).object(), QJsonDocument::fromJson(actual).object(),
        QStringLiteral("stdout"), tolerance, out);
    return out;
}

} // namespace

TEST(CorpusExpectation, OutputThatFitsThePatternHasNoDifferences)
{
    EXPECT_EQ(differences(R"({"a": 1, "b": {"c": "x"}, "d": [1, {"e": true}]})",
                  R"({"a": 1.0002, "b": {"c": "x", "extra": 5}, "d": [1, {"e": true, "f": 2}], "g": 0})"),
        QStringList());
}

TEST(CorpusExpectation, EveryDifferenceIsNamedByItsPath)
{
    const QStringList found = differences(R"({"a": 1, "b": {"c": "x"}, "d": [1, 2], "gone": null, "here": 3, "t": true})",
        R"({"a": 1.01, "b": {"c": "y"}, "d": [1, 2, 3], "gone": "still here", "t": "true"})");
    EXPECT_EQ(found,
        (QStringList { QStringLiteral("stdout.a: expected 1, got 1.01"), QStringLiteral("stdout.b.c: expected \"x\", got \"y\""),
            QStringLiteral("stdout.d: expected 2 elements, got 3: [1,2,3]"),
            QStringLiteral("stdout.gone: expected no value, got \"still here\""),
            QStringLiteral("stdout.here: missing, expected 3"), QStringLiteral("stdout.t: expected true, got \"true\"") }));
}

TEST(CorpusExpectation, KindsOfValueAreNotMixedUp)
{
    EXPECT_EQ(differences(R"({"n": 0, "o": {}, "l": []})", R"({"n": "0", "o": [], "l": {}})"),
        (QStringList { QStringLiteral("stdout.l: expected an array, got {}"), QStringLiteral("stdout.n: expected 0, got \"0\""),
            QStringLiteral("stdout.o: expected an object, got []") }));
}

TEST(CorpusExpectation, TheToleranceBoundsNumbers)
{
    EXPECT_TRUE(differences(R"({"d": 3.0})", R"({"d": 3.04})", 0.05).isEmpty());
    EXPECT_EQ(differences(R"({"d": 3.0})", R"({"d": 3.06})", 0.05).size(), 1);
    EXPECT_EQ(differences(R"({"d": 3.0})", R"({"d": 2.94})", 0.05).size(), 1);
}
