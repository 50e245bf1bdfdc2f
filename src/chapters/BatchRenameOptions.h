#pragma once

#include <QString>

#include <optional>

namespace folivox {

enum class CapitalizationStyle { unchanged, titleCase, sentenceCase, lowercase, uppercase };
enum class NumberingFormat { digits, twoDigits, threeDigits };

QString capitalizationStyleRawValue(CapitalizationStyle style);
std::optional<CapitalizationStyle> capitalizationStyleFromRawValue(const QString& raw);
// The localised label ("batchrename.case.<raw value>").
QString capitalizationStyleLabel(CapitalizationStyle style);

// "1", "01", "001".
QString numberingFormatRawValue(NumberingFormat format);
std::optional<NumberingFormat> numberingFormatFromRawValue(const QString& raw);

// The steps of a batch rename; each runs only when switched on.
struct BatchRenameOptions {
    bool removeRepeatedBeginning = false;
    bool removeRepeatedEnd = false;
    bool removeNumericPrefix = false;
    bool removeTrailingNumbers = false;
    bool removeBracketContents = false;
    bool removeAllBrackets = false;
    bool removeCommonPrefixes = false;
    bool removeFileExtensions = false;
    bool removeDuplicateWords = false;
    bool findReplaceEnabled = false;
    QString findText;
    QString replaceText;
    bool addNumbering = false;
    QString numberingPrefix;
    int numberingStart = 1;
    NumberingFormat numberingFormat = NumberingFormat::digits;
    QString numberingSeparator = QStringLiteral(". ");
    bool changeCaseEnabled = false;
    CapitalizationStyle capitalization = CapitalizationStyle::unchanged;
    bool normalizeWhitespace = false;
    bool normalizeDelimiters = false;
    bool trimWhitespace = false;
};

} // namespace folivox
