#include "platform/L10n.h"

#include <QHash>

#include <mutex>

namespace folivox {

namespace {
std::mutex gMutex;
QHash<QString, QString>& overrides()
{
    static QHash<QString, QString> table;
    return table;
}
} // namespace

QString L10n::text(const char* key, const char* defaultText)
{
    std::lock_guard lock(gMutex);
    const auto& table = overrides();
    if (!table.isEmpty()) {
        auto it = table.constFind(QString::fromUtf8(key));
        if (it != table.constEnd())
            return it.value();
    }
    return QString::fromUtf8(defaultText);
}

QString L10n::format(const QString& pattern, const QStringList& args)
{
    QString out;
    out.reserve(pattern.size() + 16);
    int next = 0;
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        const QChar c = pattern[i];
        if (c != u'%' || i + 1 >= pattern.size()) {
            out.append(c);
            continue;
        }
        const QChar n = pattern[i + 1];
        if (n == u'%') {
            out.append(u'%');
            ++i;
            continue;
        }
        qsizetype len = 0;
        if (n == u'@' || n == u'd' || n == u's')
            len = 1;
        else if (pattern.mid(i + 1, 2) == u"ld" )
            len = 2;
        else if (pattern.mid(i + 1, 3) == u"lld")
            len = 3;
        if (len == 0) {
            out.append(c);
            continue;
        }
        out.append(next < args.size() ? args[next] : QString());
        ++next;
        i += len;
    }
    return out;
}

void L10n::setOverride(const QString& key, const QString& text)
{
    std::lock_guard lock(gMutex);
    overrides().insert(key, text);
}

void L10n::clearOverrides()
{
    std::lock_guard lock(gMutex);
    overrides().clear();
}

} // namespace folivox
