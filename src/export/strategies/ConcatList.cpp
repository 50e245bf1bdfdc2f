#include "export/strategies/ConcatList.h"

#include "platform/Error.h"

#include <QSaveFile>

namespace folivox {

void ConcatList::add(const QString& path, std::optional<double> inpoint, std::optional<double> duration)
{
    entries_.append(Entry{path, inpoint, duration});
}

QString ConcatList::quote(const QString& path)
{
    QString escaped = path;
    escaped.replace(QStringLiteral("'"), QStringLiteral("'\\''"));
    return u'\'' + escaped + u'\'';
}

QString ConcatList::seconds(double value)
{
    return QString::asprintf("%.6f", value);
}

QString ConcatList::text() const
{
    QString out;
    for (const Entry& e : entries_) {
        out += QStringLiteral("file ") + quote(e.path) + u'\n';
        if (e.inpoint)
            out += QStringLiteral("inpoint ") + seconds(*e.inpoint) + u'\n';
        if (e.duration)
            out += QStringLiteral("duration ") + seconds(*e.duration) + u'\n';
    }
    return out;
}

void ConcatList::write(const QString& path) const
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw GenericError(QStringLiteral("Cannot write the concat list ") + path + QStringLiteral(": ")
                           + file.errorString());
    const QByteArray bytes = text().toUtf8();
    if (file.write(bytes) != bytes.size() || !file.commit())
        throw GenericError(QStringLiteral("Cannot write the concat list ") + path + QStringLiteral(": ")
                           + file.errorString());
}

ConcatList ConcatList::parse(const QString& text)
{
    ConcatList list;
    const QStringList lines = text.split(u'\n', Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        if (line.startsWith(QLatin1String("file "))) {
            // Undo the quoting: inside quotes everything is literal; '\'' is a quote.
            QString raw = line.mid(5);
            QString path;
            bool quoted = false;
            for (qsizetype i = 0; i < raw.size(); ++i) {
                const QChar c = raw[i];
                if (c == u'\'') {
                    quoted = !quoted;
                } else if (c == u'\\' && !quoted && i + 1 < raw.size()) {
                    path += raw[++i];
                } else {
                    path += c;
                }
            }
            list.add(path);
        } else if (!list.entries_.isEmpty() && line.startsWith(QLatin1String("inpoint "))) {
            list.entries_.last().inpoint = line.mid(8).toDouble();
        } else if (!list.entries_.isEmpty() && line.startsWith(QLatin1String("duration "))) {
            list.entries_.last().duration = line.mid(9).toDouble();
        }
    }
    return list;
}

} // namespace folivox
