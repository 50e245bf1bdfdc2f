#include "sidecars/parsers/SidecarTextRules.h"

#include <QFileInfo>
#include <QtGlobal>

#include <clocale>
#include <cstdlib>
#include <locale.h>

namespace folivox {

bool SidecarTextRules::isNewline(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= 0x0A && u <= 0x0D) || u == 0x85 || u == 0x2028 || u == 0x2029;
}

QList<QStringView> SidecarTextRules::splitLines(const QString& text)
{
    return firstLines(text, -1);
}

QList<QStringView> SidecarTextRules::firstLines(const QString& text, int maxLines)
{
    QList<QStringView> lines;
    const QStringView all(text);
    qsizetype start = 0;
    for (qsizetype i = 0; i < all.size(); ++i) {
        if (maxLines >= 0 && lines.size() >= maxLines)
            return lines;
        if (isNewline(all[i])) {
            lines.append(all.mid(start, i - start));
            start = i + 1;
        }
    }
    if (maxLines < 0 || lines.size() < maxLines)
        lines.append(all.mid(start));
    return lines;
}

QString SidecarTextRules::lowerFileName(const QUrl& url)
{
    const QString path = url.isLocalFile() ? url.toLocalFile() : url.path();
    return QFileInfo(path).fileName().toLower();
}

QString SidecarTextRules::lowerExtension(const QUrl& url)
{
    const QString name = lowerFileName(url);
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot < 0)
        return {};
    return name.mid(dot + 1);
}

std::optional<std::int64_t> SidecarTextRules::clockTime(std::int64_t hours, std::int64_t minutes,
                                                        std::int64_t seconds, std::int64_t milliseconds)
{
    if (hours < 0 || hours >= 241 || minutes < 0 || minutes >= 60 || seconds < 0 || seconds >= 60
        || milliseconds < 0 || milliseconds >= 1000)
        return std::nullopt;
    const std::int64_t total = ((hours * 60 + minutes) * 60 + seconds) * 1000 + milliseconds;
    if (total > kMaxTimeMs)
        return std::nullopt;
    return total;
}

std::optional<std::int64_t> SidecarTextRules::fractionMilliseconds(QStringView digits)
{
    if (digits.isEmpty() || digits.size() > 3)
        return std::nullopt;
    std::int64_t v = 0;
    for (qsizetype i = 0; i < 3; ++i) {
        int d = 0;
        if (i < digits.size()) {
            const char16_t c = digits[i].unicode();
            if (c < u'0' || c > u'9')
                return std::nullopt;
            d = c - u'0';
        }
        v = v * 10 + d;
    }
    return v;
}

std::optional<std::int64_t> SidecarTextRules::wholeNumber(QStringView text)
{
    if (text.isEmpty())
        return std::nullopt;
    std::int64_t v = 0;
    for (QChar ch : text) {
        const char16_t c = ch.unicode();
        if (c < u'0' || c > u'9')
            return std::nullopt;
        if (v > (INT64_MAX - 9) / 10)
            return std::nullopt;
        v = v * 10 + (c - u'0');
    }
    return v;
}

std::optional<double> SidecarTextRules::decimalNumber(QStringView text)
{
    if (text.isEmpty() || text.front().isSpace())
        return std::nullopt;
    QByteArray bytes;
    bytes.reserve(text.size());
    for (QChar ch : text) {
        const char16_t c = ch.unicode();
        if (c == 0 || c > 0x7F)
            return std::nullopt; // strtod reads ASCII only, and stops at a NUL
        bytes.append(static_cast<char>(c));
    }
    // The C locale, whatever the process locale says about the decimal point.
    static const locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(nullptr));
    char* end = nullptr;
    const double v = strtod_l(bytes.constData(), &end, cLocale);
    if (end != bytes.constData() + bytes.size())
        return std::nullopt;
    return v;
}

bool SidecarTextRules::startsWithMinusSign(QStringView line)
{
    return line.size() >= 2 && (line[0] == u'-' || line[0] == QChar(0x2212)) && line[1] >= u'0' && line[1] <= u'9';
}

QString SidecarTextRules::chapterFallback(qsizetype chaptersHeld)
{
    return QStringLiteral("Chapter %1").arg(chaptersHeld + 1);
}

QRegularExpression SidecarTextRules::compile(const QString& pattern, QRegularExpression::PatternOptions options)
{
    QRegularExpression re(pattern, options);
    if (!re.isValid())
        qFatal("Invalid built-in pattern %s: %s", qPrintable(pattern), qPrintable(re.errorString()));
    re.optimize();
    return re;
}

} // namespace folivox
