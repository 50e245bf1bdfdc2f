#pragma once

#include <QJsonValue>
#include <QLocale>
#include <QString>

#include <compare>
#include <cstddef>
#include <optional>

namespace folivox {

// The position of a book in its series: a canonical text and an exact decimal
// value with at most 6 integer digits and 3 decimals (as parsed from text).
// Indexes compare by value.
//
// JSON form: one value, an integer when the text is whole ("3" -> 3) and a
// string otherwise ("12.5" -> "12.5").
class SeriesIndex {
public:
    // An exact decimal: the whole part and the thousandths.
    struct Value {
        quint64 whole = 0;
        int thousandths = 0;

        auto operator<=>(const Value&) const = default;
        double toDouble() const { return static_cast<double>(whole) + thousandths / 1000.0; }
    };

    static constexpr int maxIntegerDigits = 6;
    static constexpr int maxFractionDigits = 3;

    // The index 0.
    SeriesIndex() = default;

    // Construction from an integer; zero and below become 0.
    static SeriesIndex fromInteger(qint64 number);

    // Parses typed or stored text: trimmed, "," taken as ".", a leading "."
    // read as "0.", 1-6 ASCII digits, then optionally "." and 1-3 ASCII
    // digits. Leading zeros of the whole part and trailing zeros of the
    // decimals are dropped ("007" -> "7", "1.50" -> "1.5", "2.000" -> "2").
    // No value for anything else ("1.", "1.2.3", "1234567", "1.2345", "").
    static std::optional<SeriesIndex> parse(const QString& text);

    // Keeps only what can form an index while the user types: ASCII digits,
    // at most 6 before the first separator ("." or ",", kept as typed) and at
    // most 3 after it. Everything else is dropped.
    static QString reducedInput(const QString& typed);

    // Replaces the decimal separator of `locale` with "." when it is not
    // already "." (so "2,5" typed under a German locale becomes "2.5").
    static QString exchangingDecimalSeparator(const QString& text, const QLocale& locale = QLocale());

    const QString& text() const { return text_; }
    Value value() const { return value_; }
    bool isWhole() const { return value_.thousandths == 0; }

    // The text with its whole part padded on the left with "0" to at least
    // `minimumIntegerDigits` digits: paddedText(3) of 7 is "007", of 12.5 is
    // "012.5".
    QString paddedText(int minimumIntegerDigits) const;

    // JSON: a whole index is an integer, any other a string.
    QJsonValue toJson() const;

    // Tries a JSON integer (below 0 gives 0), then a string (parsed as
    // above), then a number formatted with "%.3f" and parsed. If none yields
    // an index: DecodingError dataCorrupted, "Not a series index (expected a
    // number like 3 or 12.5)".
    static SeriesIndex fromJson(const QJsonValue& json);

    static QString notASeriesIndexMessage();

    friend bool operator==(const SeriesIndex& a, const SeriesIndex& b) { return a.value_ == b.value_; }
    friend std::strong_ordering operator<=>(const SeriesIndex& a, const SeriesIndex& b) { return a.value_ <=> b.value_; }

private:
    SeriesIndex(QString text, Value value) : text_(std::move(text)), value_(value) {}

    QString text_ = QStringLiteral("0");
    Value value_;
};

size_t qHash(const SeriesIndex& index, size_t seed = 0) noexcept;

} // namespace folivox
