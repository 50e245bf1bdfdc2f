#include "chapters/BatchRenameOptions.h"

#include "platform/L10n.h"

namespace folivox {

QString capitalizationStyleRawValue(CapitalizationStyle style)
{
    switch (style) {
    case CapitalizationStyle::unchanged: return QStringLiteral("unchanged");
    case CapitalizationStyle::titleCase: return QStringLiteral("titleCase");
    case CapitalizationStyle::sentenceCase: return QStringLiteral("sentenceCase");
    case CapitalizationStyle::lowercase: return QStringLiteral("lowercase");
    case CapitalizationStyle::uppercase: return QStringLiteral("uppercase");
    }
    return {};
}

std::optional<CapitalizationStyle> capitalizationStyleFromRawValue(const QString& raw)
{
    for (auto s : {CapitalizationStyle::unchanged, CapitalizationStyle::titleCase, CapitalizationStyle::sentenceCase,
                   CapitalizationStyle::lowercase, CapitalizationStyle::uppercase}) {
        if (capitalizationStyleRawValue(s) == raw)
            return s;
    }
    return std::nullopt;
}

QString capitalizationStyleLabel(CapitalizationStyle style)
{
    switch (style) {
    case CapitalizationStyle::unchanged: return L10n::text("batchrename.case.unchanged", "Unchanged");
    case CapitalizationStyle::titleCase: return L10n::text("batchrename.case.titleCase", "Title Case");
    case CapitalizationStyle::sentenceCase: return L10n::text("batchrename.case.sentenceCase", "Sentence case");
    case CapitalizationStyle::lowercase: return L10n::text("batchrename.case.lowercase", "lowercase");
    case CapitalizationStyle::uppercase: return L10n::text("batchrename.case.uppercase", "UPPERCASE");
    }
    return {};
}

QString numberingFormatRawValue(NumberingFormat format)
{
    switch (format) {
    case NumberingFormat::digits: return QStringLiteral("1");
    case NumberingFormat::twoDigits: return QStringLiteral("01");
    case NumberingFormat::threeDigits: return QStringLiteral("001");
    }
    return {};
}

std::optional<NumberingFormat> numberingFormatFromRawValue(const QString& raw)
{
    for (auto f : {NumberingFormat::digits, NumberingFormat::twoDigits, NumberingFormat::threeDigits}) {
        if (numberingFormatRawValue(f) == raw)
            return f;
    }
    return std::nullopt;
}

} // namespace folivox
