#include "sidecars/parsers/MkvXMLChaptersParser.h"

#include "sidecars/parsers/SidecarTextRules.h"

#include <QXmlStreamReader>

#include <algorithm>

namespace folivox {

namespace {

// The bodies of "<ChapterAtom ...>" ... "</ChapterAtom>", each running to the
// first closing tag after its opening tag, as the non-greedy pattern
// <ChapterAtom[^>]*>(.*?)</ChapterAtom> would find them. Searching stops as
// soon as no closing tag is left, so unclosed atoms cost linear time.
QList<QStringView> atomBodies(const QString& text)
{
    static const QString openTag = QStringLiteral("<ChapterAtom");
    static const QString closeTag = QStringLiteral("</ChapterAtom>");
    QList<QStringView> bodies;
    qsizetype pos = 0;
    while (true) {
        const qsizetype open = text.indexOf(openTag, pos);
        if (open < 0)
            break;
        const qsizetype gt = text.indexOf(u'>', open + openTag.size());
        if (gt < 0)
            break;
        const qsizetype close = text.indexOf(closeTag, gt + 1);
        if (close < 0)
            break;
        bodies.append(QStringView(text).mid(gt + 1, close - gt - 1));
        pos = close + closeTag.size();
    }
    return bodies;
}

const QRegularExpression& startPattern()
{
    static const QRegularExpression re =
        SidecarTextRules::compile(QStringLiteral("<ChapterTimeStart>([^<]+)</ChapterTimeStart>"));
    return re;
}

const QRegularExpression& endPattern()
{
    static const QRegularExpression re =
        SidecarTextRules::compile(QStringLiteral("<ChapterTimeEnd>([^<]+)</ChapterTimeEnd>"));
    return re;
}

const QRegularExpression& stringPattern()
{
    static const QRegularExpression re =
        SidecarTextRules::compile(QStringLiteral("<ChapterString>([^<]+)</ChapterString>"));
    return re;
}

// Character data with its entities and character references decoded
// ("&amp;" -> "&", "&#233;" -> "é"). Text that is not well-formed on its own
// (a bare "&") is returned as written.
QString decodeCharacterData(const QString& raw)
{
    if (!raw.contains(u'&'))
        return raw;
    QXmlStreamReader reader(QStringLiteral("<t>") + raw + QStringLiteral("</t>"));
    QString out;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isCharacters())
            out += reader.text();
    }
    if (reader.hasError())
        return raw;
    return out;
}

} // namespace

int MkvXMLChaptersParser::confidence(const QString& text, const QUrl& url) const
{
    int score = SidecarTextRules::lowerExtension(url) == u"xml" ? 20 : 0;
    if (text.contains(QStringLiteral("<Chapters>")) || text.contains(QStringLiteral("<Chapters ")))
        score += 40;
    if (text.contains(QStringLiteral("<ChapterAtom>")) || text.contains(QStringLiteral("<ChapterAtom ")))
        score += 30;
    if (text.contains(QStringLiteral("<ChapterTimeStart>")))
        score += 20;
    if (text.contains(QStringLiteral("<ChapterDisplay>")))
        score += 10;
    return std::min(score, 100);
}

int MkvXMLChaptersParser::nestingDepth(const QString& text)
{
    int depth = 0;
    int deepest = 0;
    qsizetype pos = 0;
    while (true) {
        const qsizetype open = text.indexOf(u'<', pos);
        if (open < 0)
            break;
        const qsizetype close = text.indexOf(u'>', open + 1);
        if (close < 0)
            break;
        const QStringView tag = QStringView(text).mid(open + 1, close - open - 1);
        pos = close + 1;
        if (tag.startsWith(u'!') || tag.startsWith(u'?'))
            continue;
        if (tag.startsWith(u'/')) {
            depth = std::max(0, depth - 1);
            continue;
        }
        if (tag.endsWith(u'/'))
            continue;
        ++depth;
        deepest = std::max(deepest, depth);
    }
    return deepest;
}

std::optional<std::int64_t> MkvXMLChaptersParser::parseTime(QStringView text)
{
    const QList<QStringView> parts = text.trimmed().split(u':');
    if (parts.size() != 3)
        return std::nullopt;
    const auto hours = SidecarTextRules::wholeNumber(parts[0]);
    const auto minutes = SidecarTextRules::wholeNumber(parts[1]);
    if (!hours || !minutes || *hours > 240 || *minutes >= 60)
        return std::nullopt;
    const QList<QStringView> secParts = parts[2].split(u'.');
    if (secParts.size() > 2)
        return std::nullopt;
    const auto seconds = SidecarTextRules::wholeNumber(secParts[0]);
    if (!seconds || *seconds >= 60)
        return std::nullopt;
    std::int64_t nanos = 0;
    if (secParts.size() == 2) {
        const QStringView digits = secParts[1].left(9);
        for (qsizetype i = 0; i < 9; ++i) {
            int d = 0;
            if (i < digits.size()) {
                const char16_t c = digits[i].unicode();
                if (c < u'0' || c > u'9')
                    return std::nullopt;
                d = c - u'0';
            }
            nanos = nanos * 10 + d;
        }
        // Digits past the ninth are cut, but they must still be digits.
        for (QChar c : secParts[1].mid(9)) {
            if (c.unicode() < u'0' || c.unicode() > u'9')
                return std::nullopt;
        }
    }
    const std::int64_t total = ((*hours * 60 + *minutes) * 60 + *seconds) * 1000 + nanos / 1'000'000;
    if (total > SidecarTextRules::kMaxTimeMs)
        return std::nullopt;
    return total;
}

SidecarParseResult MkvXMLChaptersParser::parse(const QString& text, const QUrl& url) const
{
    SidecarParseResult result;
    result.format = SidecarFormat::mkvXML;
    result.sourceURL = url;

    const int depth = nestingDepth(text);
    if (depth > kMaxDepth) {
        result.addWarning(QStringLiteral("XML nesting depth %1 exceeds limit %2").arg(depth).arg(kMaxDepth),
                          SidecarWarningSeverity::error);
        return result;
    }

    for (QStringView bodyView : atomBodies(text)) {
        const QString body = bodyView.toString();
        const auto startMatch = startPattern().match(body);
        const auto start = startMatch.hasMatch() ? parseTime(decodeCharacterData(startMatch.captured(1)))
                                                 : std::nullopt;
        if (!start) {
            result.addWarning(QStringLiteral("ChapterAtom missing ChapterTimeStart"), SidecarWarningSeverity::warning);
            continue;
        }
        if (result.chapters.size() >= SidecarTextRules::kMaxChapters) {
            result.addWarning(QString::fromLatin1(SidecarTextRules::kChapterLimitMessage),
                              SidecarWarningSeverity::warning);
            break;
        }
        std::optional<std::int64_t> end;
        if (const auto m = endPattern().match(body); m.hasMatch())
            end = parseTime(decodeCharacterData(m.captured(1)));
        QString title;
        if (const auto m = stringPattern().match(body); m.hasMatch())
            title = decodeCharacterData(m.captured(1).trimmed()).trimmed();
        if (title.isEmpty())
            title = SidecarTextRules::chapterFallback(result.chapters.size());
        result.chapters.append(NormalizedChapter::make(title, *start, end));
    }

    if (result.chapters.isEmpty())
        result.addWarning(QStringLiteral("No ChapterAtom elements found"), SidecarWarningSeverity::error);
    return result;
}

} // namespace folivox
