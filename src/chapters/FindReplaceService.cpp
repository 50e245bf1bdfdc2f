#include "chapters/FindReplaceService.h"

#include "platform/L10n.h"

#include <QElapsedTimer>
#include <QRegularExpression>

namespace folivox {

QString FindReplaceError::displayText() const
{
    if (kind == Kind::invalidPattern)
        return L10n::format(L10n::text("batchrename.regex.invalidPattern", "Invalid pattern: %@"), {message});
    return message;
}

namespace {

// Expands $n, ${n}, \n and $$ in a regular-expression replacement.
QString expandReplacement(const QString& replacement, const QRegularExpressionMatch& m)
{
    QString out;
    for (qsizetype i = 0; i < replacement.size(); ++i) {
        const QChar c = replacement[i];
        if ((c == u'$' || c == u'\\') && i + 1 < replacement.size()) {
            const QChar n = replacement[i + 1];
            if (c == u'$' && n == u'$') {
                out += u'$';
                ++i;
                continue;
            }
            if (c == u'\\' && n == u'\\') {
                out += u'\\';
                ++i;
                continue;
            }
            if (c == u'$' && n == u'{') {
                const qsizetype close = replacement.indexOf(u'}', i + 2);
                bool ok = false;
                const int group = close > 0 ? replacement.mid(i + 2, close - i - 2).toInt(&ok) : -1;
                if (ok && group >= 0) {
                    out += m.captured(group);
                    i = close;
                    continue;
                }
            }
            if (n.isDigit() && n.unicode() < 0x80) {
                int group = n.unicode() - u'0';
                qsizetype j = i + 2;
                // Two digits when such a group exists ($12), else one.
                if (j < replacement.size() && replacement[j].unicode() >= u'0' && replacement[j].unicode() <= u'9') {
                    const int two = group * 10 + (replacement[j].unicode() - u'0');
                    if (two <= m.lastCapturedIndex()) {
                        group = two;
                        ++j;
                    }
                }
                out += m.captured(group);
                i = j - 1;
                continue;
            }
        }
        out += c;
    }
    return out;
}

} // namespace

FindReplaceResult FindReplaceService::apply(const QStringList& titles, const FindReplaceConfig& config) const
{
    FindReplaceResult result;
    result.titles = titles;
    if (config.find.isEmpty())
        return result;

    QRegularExpression::PatternOptions options = QRegularExpression::UseUnicodePropertiesOption;
    if (!config.matchCase)
        options |= QRegularExpression::CaseInsensitiveOption;
    const QString pattern = config.useRegex ? config.find : QRegularExpression::escape(config.find);
    const QRegularExpression re(pattern, options);
    if (!re.isValid()) {
        result.error = FindReplaceError::invalidPattern(re.errorString());
        return result;
    }

    QElapsedTimer timer;
    timer.start();
    const auto tooSlow = [&] {
        FindReplaceResult slow;
        slow.titles = titles;
        slow.error = FindReplaceError::tooSlow(
            L10n::text("batchrename.regex.tooSlow", "This pattern is too slow to preview — try simplifying it."));
        return slow;
    };

    QStringList out;
    out.reserve(titles.size());
    int matched = 0;
    for (const QString& title : titles) {
        QString replaced;
        qsizetype last = 0;
        bool any = false;
        auto it = re.globalMatch(title);
        while (it.hasNext()) {
            const QRegularExpressionMatch m = it.next();
            any = true;
            replaced += QStringView(title).mid(last, m.capturedStart() - last);
            replaced += config.useRegex ? expandReplacement(config.replace, m) : config.replace;
            last = m.capturedEnd();
            if (timer.elapsed() > timeLimit_.count())
                return tooSlow();
        }
        if (timer.elapsed() > timeLimit_.count())
            return tooSlow();
        if (!any) {
            out.append(title);
            continue;
        }
        replaced += QStringView(title).mid(last);
        out.append(replaced);
        ++matched;
    }
    result.titles = out;
    result.matchedCount = matched;
    return result;
}

} // namespace folivox
