#include "sidecars/parsers/SimpleTextParser.h"

#include "sidecars/parsers/Mp4chapsParser.h"
#include "sidecars/parsers/SidecarTextRules.h"

#include <array>

namespace folivox {

namespace {

const std::array<QRegularExpression, 4>& confidencePatterns()
{
    static const std::array<QRegularExpression, 4> patterns = {
        SidecarTextRules::compile(QStringLiteral("^\\d{1,2}:\\d{2}:\\d{2}")),
        SidecarTextRules::compile(QStringLiteral("^\\d{1,2}:\\d{2}\\s")),
        SidecarTextRules::compile(QStringLiteral("^\\[\\d{1,2}:\\d{2}")),
        SidecarTextRules::compile(QStringLiteral("^\\(\\d{1,2}:\\d{2}")),
    };
    return patterns;
}

const QRegularExpression& withHours()
{
    static const QRegularExpression re =
        SidecarTextRules::compile(QStringLiteral("^(\\d{1,2}):(\\d{2}):(\\d{2})(?:[.,](\\d{1,3}))?\\s*(.*)?$"));
    return re;
}

const QRegularExpression& withoutHours()
{
    static const QRegularExpression re =
        SidecarTextRules::compile(QStringLiteral("^(\\d{1,2}):(\\d{2})(?:[.,](\\d{1,3}))?\\s*(.*)?$"));
    return re;
}

// Note: no closing bracket here, so "[00:10] Intro" keeps "] Intro".
const QRegularExpression& leadingSeparator()
{
    static const QRegularExpression re = SidecarTextRules::compile(QStringLiteral("^[-–—|:•*>»]\\s*"));
    return re;
}

} // namespace

int SimpleTextParser::confidence(const QString& text, const QUrl& url) const
{
    if (SidecarTextRules::lowerExtension(url) != u"txt")
        return 0;
    const int matching = SidecarTextRules::countMatchingLines(text, confidencePatterns(), 30);
    if (matching > 4)
        return 60;
    if (matching >= 3)
        return 40;
    if (matching >= 1)
        return 20;
    return 0;
}

SidecarParseResult SimpleTextParser::parse(const QString& text, const QUrl& url) const
{
    SidecarParseResult result;
    result.format = SidecarFormat::simpleText;
    result.sourceURL = url;

    const QList<QStringView> lines = SidecarTextRules::splitLines(text);
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString trimmed = lines[i].trimmed().toString();
        if (trimmed.isEmpty() || trimmed.startsWith(u'#') || trimmed.startsWith(u';'))
            continue;
        // A minus sign before the time makes it negative (validation rejects
        // it); only a dash that is not followed by a digit is a bullet.
        const bool negative = SidecarTextRules::startsWithMinusSign(trimmed);
        const QString line = negative ? trimmed.mid(1) : Mp4chapsParser::stripDecorations(trimmed);

        bool hasHours = true;
        auto m = withHours().match(line);
        if (!m.hasMatch()) {
            hasHours = false;
            m = withoutHours().match(line);
            if (!m.hasMatch())
                continue;
        }
        int group = 1;
        const std::int64_t hours = hasHours ? *SidecarTextRules::wholeNumber(m.capturedView(group++)) : 0;
        const std::int64_t minutes = *SidecarTextRules::wholeNumber(m.capturedView(group++));
        const std::int64_t seconds = *SidecarTextRules::wholeNumber(m.capturedView(group++));
        const QStringView fraction = m.capturedView(group++);
        const std::int64_t millis = fraction.isEmpty() ? 0 : *SidecarTextRules::fractionMilliseconds(fraction);
        const auto start = SidecarTextRules::clockTime(hours, minutes, seconds, millis);
        if (!start)
            continue;

        if (result.chapters.size() >= SidecarTextRules::kMaxChapters) {
            result.addWarning(QString::fromLatin1(SidecarTextRules::kChapterLimitMessage),
                              SidecarWarningSeverity::warning);
            break;
        }
        QString title = m.captured(group);
        const auto sep = leadingSeparator().match(title);
        if (sep.hasMatch())
            title.remove(0, sep.capturedLength());
        title = title.trimmed();
        if (title.isEmpty())
            title = SidecarTextRules::chapterFallback(result.chapters.size());
        result.chapters.append(NormalizedChapter::make(title, negative ? -*start : *start));
    }

    if (result.chapters.isEmpty())
        result.addWarning(QStringLiteral("No timestamps found in file"), SidecarWarningSeverity::error);
    return result;
}

} // namespace folivox
