#include "sidecars/parsers/AudacityLabelsParser.h"

#include "sidecars/parsers/SidecarTextRules.h"

#include <cmath>

namespace folivox {

int AudacityLabelsParser::labelConfidence(const QString& text)
{
    int matching = 0;
    for (QStringView raw : SidecarTextRules::firstLines(text, 20)) {
        const QStringView line = raw.trimmed();
        if (line.isEmpty())
            continue;
        const QList<QStringView> parts = line.split(u'\t');
        if (parts.size() < 2)
            continue;
        if (SidecarTextRules::decimalNumber(parts[0].trimmed()) && SidecarTextRules::decimalNumber(parts[1].trimmed()))
            ++matching;
    }
    if (matching > 2)
        return 80;
    if (matching >= 1)
        return 50;
    return 0;
}

int AudacityLabelsParser::confidence(const QString& text, const QUrl&) const
{
    return labelConfidence(text);
}

SidecarParseResult AudacityLabelsParser::parse(const QString& text, const QUrl& url) const
{
    SidecarParseResult result;
    result.format = SidecarFormat::audacityLabels;
    result.sourceURL = url;

    const double maxSeconds = static_cast<double>(SidecarTextRules::kMaxTimeMs);
    const QList<QStringView> lines = SidecarTextRules::splitLines(text);
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const int lineNumber = static_cast<int>(i + 1);
        const QStringView line = lines[i].trimmed();
        if (line.isEmpty())
            continue;
        const QList<QStringView> fields = line.split(u'\t');
        if (fields.size() < 2) {
            result.addWarning(QStringLiteral("Skipping line without tab separator"), SidecarWarningSeverity::info,
                              lineNumber);
            continue;
        }
        const auto start = SidecarTextRules::decimalNumber(fields[0].trimmed());
        if (!start) {
            result.addWarning(QStringLiteral("Invalid start time"), SidecarWarningSeverity::warning, lineNumber);
            continue;
        }
        const auto end = SidecarTextRules::decimalNumber(fields[1].trimmed());
        if (!end) {
            result.addWarning(QStringLiteral("Invalid end time"), SidecarWarningSeverity::warning, lineNumber);
            continue;
        }
        const QString title = fields.size() >= 3 ? fields[2].trimmed().toString()
                                                 : SidecarTextRules::chapterFallback(result.chapters.size());
        if (result.chapters.size() >= SidecarTextRules::kMaxChapters) {
            result.addWarning(QString::fromLatin1(SidecarTextRules::kChapterLimitMessage),
                              SidecarWarningSeverity::warning);
            break;
        }
        // Written so that NaN fails too.
        const bool inRange = *start >= 0 && *end >= 0 && *start * 1000 <= maxSeconds && *end * 1000 <= maxSeconds;
        if (!inRange) {
            result.addWarning(QStringLiteral("Timestamp out of range"), SidecarWarningSeverity::warning, lineNumber);
            continue;
        }
        const auto startMs = static_cast<std::int64_t>(std::trunc(*start * 1000));
        const auto endMs = static_cast<std::int64_t>(std::trunc(*end * 1000));
        result.chapters.append(NormalizedChapter::make(title, startMs, endMs));
    }

    if (result.chapters.isEmpty())
        result.addWarning(QStringLiteral("No labels found in file"), SidecarWarningSeverity::error);
    return result;
}

} // namespace folivox
