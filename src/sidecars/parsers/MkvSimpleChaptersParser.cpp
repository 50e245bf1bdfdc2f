#include "sidecars/parsers/MkvSimpleChaptersParser.h"

#include "sidecars/parsers/SidecarTextRules.h"

#include <map>

namespace folivox {

namespace {

const QRegularExpression& timeKeyCount()
{
    static const QRegularExpression re =
        SidecarTextRules::compile(QStringLiteral("CHAPTER\\d{2,3}="), QRegularExpression::CaseInsensitiveOption);
    return re;
}

const QRegularExpression& nameKeyCount()
{
    static const QRegularExpression re =
        SidecarTextRules::compile(QStringLiteral("CHAPTER\\d{2,3}NAME="), QRegularExpression::CaseInsensitiveOption);
    return re;
}

const QRegularExpression& timeLine()
{
    static const QRegularExpression re = SidecarTextRules::compile(
        QStringLiteral("^CHAPTER(\\d{2,3})=(\\d{1,2}):(\\d{2}):(\\d{2})\\.(\\d{3})$"),
        QRegularExpression::CaseInsensitiveOption);
    return re;
}

const QRegularExpression& nameLine()
{
    static const QRegularExpression re = SidecarTextRules::compile(QStringLiteral("^CHAPTER(\\d{2,3})NAME=(.+)$"),
                                                                   QRegularExpression::CaseInsensitiveOption);
    return re;
}

int countMatches(const QRegularExpression& re, const QString& text)
{
    int n = 0;
    auto it = re.globalMatch(text);
    while (it.hasNext()) {
        it.next();
        ++n;
    }
    return n;
}

} // namespace

int MkvSimpleChaptersParser::confidence(const QString& text, const QUrl&) const
{
    const int times = countMatches(timeKeyCount(), text);
    int score = times >= 2 ? 50 : times == 1 ? 30 : 0;
    if (nameKeyCount().match(text).hasMatch())
        score += 40;
    return score;
}

SidecarParseResult MkvSimpleChaptersParser::parse(const QString& text, const QUrl& url) const
{
    SidecarParseResult result;
    result.format = SidecarFormat::mkvSimple;
    result.sourceURL = url;

    std::map<std::int64_t, std::int64_t> times;
    std::map<std::int64_t, QString> names;
    for (QStringView raw : SidecarTextRules::splitLines(text)) {
        const QString line = raw.trimmed().toString();
        if (line.isEmpty())
            continue;
        if (const auto m = timeLine().match(line); m.hasMatch()) {
            const auto number = SidecarTextRules::wholeNumber(m.capturedView(1));
            const auto h = SidecarTextRules::wholeNumber(m.capturedView(2));
            const auto mi = SidecarTextRules::wholeNumber(m.capturedView(3));
            const auto s = SidecarTextRules::wholeNumber(m.capturedView(4));
            const auto ms = SidecarTextRules::wholeNumber(m.capturedView(5));
            if (const auto t = SidecarTextRules::clockTime(*h, *mi, *s, *ms))
                times[*number] = *t;
            continue;
        }
        if (const auto m = nameLine().match(line); m.hasMatch())
            names[*SidecarTextRules::wholeNumber(m.capturedView(1))] = m.captured(2).trimmed();
    }

    for (const auto& [number, startMs] : times) {
        if (result.chapters.size() >= SidecarTextRules::kMaxChapters) {
            result.addWarning(QString::fromLatin1(SidecarTextRules::kChapterLimitMessage),
                              SidecarWarningSeverity::warning);
            break;
        }
        const auto name = names.find(number);
        const QString title =
            name != names.end() ? name->second : SidecarTextRules::chapterFallback(result.chapters.size());
        result.chapters.append(NormalizedChapter::make(title, startMs));
    }
    if (times.size() != names.size())
        result.addWarning(QStringLiteral("Some chapters have no CHAPTERXXNAME entry"), SidecarWarningSeverity::info);
    if (result.chapters.isEmpty())
        result.addWarning(QStringLiteral("No chapters found"), SidecarWarningSeverity::error);
    return result;
}

} // namespace folivox
