#include "sidecars/parsers/Mp4chapsParser.h"

#include "sidecars/parsers/SidecarTextRules.h"

#include <algorithm>
#include <array>

namespace folivox {

namespace {

struct LineForm {
    QRegularExpression pattern;
    bool hasHours;
    bool hasFraction;
};

// The four printed forms: h:mm:ss.fff, h:mm:ss, m:ss.fff, m:ss (each with an
// optional title). On the second chance forms 2 and 4 also accept "]" or ")"
// directly after the time.
const std::array<LineForm, 4>& forms(bool secondChance)
{
    static const std::array<LineForm, 4> first = {{
        {SidecarTextRules::compile(QStringLiteral("^(\\d{1,2}):(\\d{2}):(\\d{2})[.,](\\d{1,3})\\s*(.*)?$")), true, true},
        {SidecarTextRules::compile(QStringLiteral("^(\\d{1,2}):(\\d{2}):(\\d{2})(?:\\s+(.*))?$")), true, false},
        {SidecarTextRules::compile(QStringLiteral("^(\\d{1,2}):(\\d{2})[.,](\\d{1,3})\\s*(.*)?$")), false, true},
        {SidecarTextRules::compile(QStringLiteral("^(\\d{1,2}):(\\d{2})(?:\\s+(.*))?$")), false, false},
    }};
    static const std::array<LineForm, 4> second = {{
        first[0],
        {SidecarTextRules::compile(QStringLiteral("^(\\d{1,2}):(\\d{2}):(\\d{2})(?:(?:\\s+|(?=[\\])]))(.*))?$")), true,
         false},
        first[2],
        {SidecarTextRules::compile(QStringLiteral("^(\\d{1,2}):(\\d{2})(?:(?:\\s+|(?=[\\])]))(.*))?$")), false, false},
    }};
    return secondChance ? second : first;
}

const std::array<QRegularExpression, 4>& decorationPatterns()
{
    static const std::array<QRegularExpression, 4> patterns = {
        SidecarTextRules::compile(QStringLiteral("^\\[\\s*")),
        SidecarTextRules::compile(QStringLiteral("^\\(\\s*")),
        SidecarTextRules::compile(QStringLiteral("^[-•*]\\s*")),
        SidecarTextRules::compile(QStringLiteral("^\\d+\\.\\s*")),
    };
    return patterns;
}

const QRegularExpression& secondChanceSeparator()
{
    static const QRegularExpression re = SidecarTextRules::compile(QStringLiteral("^[-–—|:•*>»\\])]\\s*"));
    return re;
}

const std::array<QRegularExpression, 4>& confidencePatterns()
{
    static const std::array<QRegularExpression, 4> patterns = {
        SidecarTextRules::compile(QStringLiteral("^\\d{1,2}:\\d{2}:\\d{2}[.,]\\d{1,3}")),
        SidecarTextRules::compile(QStringLiteral("^\\d{1,2}:\\d{2}:\\d{2}\\s")),
        SidecarTextRules::compile(QStringLiteral("^\\d{1,2}:\\d{2}[.,]\\d{1,3}")),
        SidecarTextRules::compile(QStringLiteral("^\\d{1,2}:\\d{2}\\s")),
    };
    return patterns;
}

struct LineParse {
    std::int64_t startMs = 0;
    QString title;
};

enum class Outcome { noForm, badTime, ok };

Outcome tryForms(const QString& line, bool secondChance, LineParse& out)
{
    for (const LineForm& form : forms(secondChance)) {
        const auto m = form.pattern.match(line);
        if (!m.hasMatch())
            continue;
        int group = 1;
        std::int64_t hours = 0;
        if (form.hasHours)
            hours = *SidecarTextRules::wholeNumber(m.capturedView(group++));
        const std::int64_t minutes = *SidecarTextRules::wholeNumber(m.capturedView(group++));
        const std::int64_t seconds = *SidecarTextRules::wholeNumber(m.capturedView(group++));
        std::int64_t millis = 0;
        if (form.hasFraction)
            millis = *SidecarTextRules::fractionMilliseconds(m.capturedView(group++));
        const auto t = SidecarTextRules::clockTime(hours, minutes, seconds, millis);
        if (!t)
            return Outcome::badTime;
        out.startMs = *t;
        out.title = m.captured(group);
        return Outcome::ok;
    }
    return Outcome::noForm;
}

} // namespace

QString Mp4chapsParser::stripDecorations(const QString& line, bool* removedSomething)
{
    QString rest = line;
    bool removed = false;
    for (const QRegularExpression& re : decorationPatterns()) {
        const auto m = re.match(rest);
        if (m.hasMatch()) {
            rest.remove(0, m.capturedLength());
            removed = true;
        }
    }
    if (removedSomething)
        *removedSomething = removed;
    return rest;
}

int Mp4chapsParser::confidence(const QString& text, const QUrl& url) const
{
    int score = SidecarTextRules::lowerFileName(url).endsWith(QStringLiteral(".chapters.txt")) ? 50 : 0;
    const int matching = SidecarTextRules::countMatchingLines(text, confidencePatterns(), 20);
    if (matching >= 3)
        score += 60;
    else if (matching >= 1)
        score += 30;
    return std::min(score, 100);
}

SidecarParseResult Mp4chapsParser::parse(const QString& text, const QUrl& url) const
{
    SidecarParseResult result;
    result.format = SidecarFormat::mp4chaps;
    result.sourceURL = url;

    const QList<QStringView> lines = SidecarTextRules::splitLines(text);
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const int lineNumber = static_cast<int>(i + 1);
        const QString line = lines[i].trimmed().toString();
        if (line.isEmpty())
            continue;

        // A time written with a minus sign is read as the negative time it
        // is (validation then drops it with a warning), not as a bulleted
        // line: "-00:00:05.000" must not become 5 seconds.
        const bool negative = SidecarTextRules::startsWithMinusSign(line);
        LineParse parsed;
        Outcome outcome = tryForms(negative ? line.mid(1) : line, false, parsed);
        if (outcome == Outcome::ok && negative)
            parsed.startMs = -parsed.startMs;
        if (outcome == Outcome::noForm && !negative) {
            bool removed = false;
            const QString rest = stripDecorations(line, &removed);
            if (removed) {
                outcome = tryForms(rest, true, parsed);
                if (outcome == Outcome::ok) {
                    const auto sep = secondChanceSeparator().match(parsed.title);
                    if (sep.hasMatch())
                        parsed.title.remove(0, sep.capturedLength());
                    parsed.title = parsed.title.trimmed();
                }
            }
        }
        if (outcome != Outcome::ok) {
            if (!line.startsWith(u'#') && !line.startsWith(u';'))
                result.addWarning(QStringLiteral("Skipped unrecognized line: ") + line.left(50),
                                  SidecarWarningSeverity::info, lineNumber);
            continue;
        }
        if (result.chapters.size() >= SidecarTextRules::kMaxChapters) {
            result.addWarning(QString::fromLatin1(SidecarTextRules::kChapterLimitMessage),
                              SidecarWarningSeverity::warning);
            break;
        }
        const QString title =
            parsed.title.trimmed().isEmpty() ? SidecarTextRules::chapterFallback(result.chapters.size()) : parsed.title;
        result.chapters.append(NormalizedChapter::make(title, parsed.startMs));
    }

    if (result.chapters.isEmpty())
        result.addWarning(QStringLiteral("No chapters found in file"), SidecarWarningSeverity::error);
    return result;
}

} // namespace folivox
