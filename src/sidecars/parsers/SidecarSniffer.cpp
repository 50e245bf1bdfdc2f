#include "sidecars/parsers/SidecarSniffer.h"

#include "sidecars/parsers/AudacityLabelsParser.h"
#include "sidecars/parsers/MkvXMLChaptersParser.h"
#include "sidecars/parsers/SidecarTextRules.h"

#include <algorithm>
#include <array>

namespace folivox {

namespace {

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

int cueScore(const QString& ext, const QString& trimmed)
{
    int score = ext == u"cue" ? 50 : 0;
    const QString upper = trimmed.toUpper();
    if (upper.contains(QStringLiteral("FILE "))
        && (upper.contains(QStringLiteral(" WAVE")) || upper.contains(QStringLiteral(" MP3"))
            || upper.contains(QStringLiteral(" AIFF"))))
        score += 30;
    if (upper.contains(QStringLiteral("TRACK ")) && upper.contains(QStringLiteral(" AUDIO")))
        score += 20;
    if (upper.contains(QStringLiteral("INDEX 01")) || upper.contains(QStringLiteral("INDEX 00")))
        score += 20;
    if (upper.contains(QStringLiteral("PERFORMER ")))
        score += 5;
    if (upper.contains(QStringLiteral("TITLE ")))
        score += 5;
    return std::min(score, 100);
}

int ffmetadataScore(const QString& trimmed)
{
    if (trimmed.startsWith(QStringLiteral(";FFMETADATA1")))
        return 100;
    if (trimmed.contains(QStringLiteral("[CHAPTER]")) && trimmed.contains(QStringLiteral("TIMEBASE=")))
        return 80;
    return 0;
}

int mkvSimpleScore(const QString& trimmed)
{
    static const QRegularExpression times =
        SidecarTextRules::compile(QStringLiteral("CHAPTER\\d{2}="), QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression names =
        SidecarTextRules::compile(QStringLiteral("CHAPTER\\d{2}NAME="), QRegularExpression::CaseInsensitiveOption);
    const int n = countMatches(times, trimmed);
    int score = n >= 2 ? 50 : n == 1 ? 30 : 0;
    if (names.match(trimmed).hasMatch())
        score += 40;
    return score;
}

int mp4chapsScore(const QString& ext, const QString& trimmed)
{
    static const QRegularExpression line = SidecarTextRules::compile(
        QStringLiteral("^\\d{1,2}:\\d{2}:\\d{2}[.,]\\d{3}\\s+"),
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::MultilineOption);
    int score = ext == u"txt" ? 40 : 0;
    const int n = countMatches(line, trimmed);
    if (n >= 3)
        score += 60;
    else if (n >= 1)
        score += 40;
    return score;
}

int simpleTextScore(const QString& ext, const QString& trimmed)
{
    if (ext != u"txt")
        return 0;
    // Anchored at the start of the text only, so each counts at most once.
    static const std::array<QRegularExpression, 4> patterns = {
        SidecarTextRules::compile(QStringLiteral("^\\d{1,2}:\\d{2}:\\d{2}"), QRegularExpression::CaseInsensitiveOption),
        SidecarTextRules::compile(QStringLiteral("^\\d{1,2}:\\d{2}\\s"), QRegularExpression::CaseInsensitiveOption),
        SidecarTextRules::compile(QStringLiteral("^\\[\\d{1,2}:\\d{2}"), QRegularExpression::CaseInsensitiveOption),
        SidecarTextRules::compile(QStringLiteral("^\\(\\d{1,2}:\\d{2}"), QRegularExpression::CaseInsensitiveOption),
    };
    int score = 0;
    for (const auto& re : patterns) {
        const int n = countMatches(re, trimmed);
        if (n > 2)
            score = std::max(score, 60);
        else if (n >= 1)
            score = std::max(score, 30);
    }
    return score;
}

} // namespace

SidecarSniffer::Result SidecarSniffer::sniff(const QString& text, const QUrl& url) const
{
    const QString ext = SidecarTextRules::lowerExtension(url);
    const QString trimmed = text.trimmed();
    static const MkvXMLChaptersParser mkvXML;

    const std::array<std::pair<SidecarFormat, int (*)(const QString&, const QString&, const QUrl&)>, 7> rules = {{
        {SidecarFormat::cue, [](const QString& e, const QString& t, const QUrl&) { return cueScore(e, t); }},
        {SidecarFormat::ffmetadata, [](const QString&, const QString& t, const QUrl&) { return ffmetadataScore(t); }},
        {SidecarFormat::mkvXML,
         [](const QString&, const QString& t, const QUrl& u) { return mkvXML.confidence(t, u); }},
        {SidecarFormat::mkvSimple, [](const QString&, const QString& t, const QUrl&) { return mkvSimpleScore(t); }},
        {SidecarFormat::mp4chaps, [](const QString& e, const QString& t, const QUrl&) { return mp4chapsScore(e, t); }},
        {SidecarFormat::audacityLabels,
         [](const QString&, const QString& t, const QUrl&) { return AudacityLabelsParser::labelConfidence(t); }},
        {SidecarFormat::simpleText,
         [](const QString& e, const QString& t, const QUrl&) { return simpleTextScore(e, t); }},
    }};
    for (const auto& [format, score] : rules) {
        const int s = score(ext, trimmed, url);
        if (s > 0)
            return Result{format, s};
    }
    return Result{};
}

} // namespace folivox
