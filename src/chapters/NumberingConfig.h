#pragma once

#include <QJsonObject>
#include <QString>

namespace folivox {

// How a chapter number is written: decimal (1, 2, 3) or letters (A, B, ...,
// Z, AA, AB, ...), zero-padded to two or three digits, counting from
// startNumber. Letters are never padded, and numbers below 1 are written in
// decimal under the letter style, since letters have no zero.
struct NumberingConfig {
    enum class Style { decimal, letter };
    enum class Padding { none, two, three };

    Style style = Style::decimal;
    Padding padding = Padding::none;
    int startNumber = 1;

    QString format(long long number) const;
    static QString letters(long long number);

    // Keys: style, padding, startNumber. Throws ChapterFormatError.
    QJsonObject toJson() const;
    static NumberingConfig fromJson(const QJsonObject& json);

    bool operator==(const NumberingConfig&) const = default;
};

} // namespace folivox
