#include "tools/ChapterListFile.h"

#include "tools/ToolError.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace folivox {

QString ChapterListFile::pathFor(const QString& mp4Path)
{
    const QFileInfo info(mp4Path);
    return info.path() + u'/' + info.completeBaseName() + QStringLiteral(".chapters.txt");
}

QList<ChapterEntry> ChapterListFile::parse(const QByteArray& bytes, const QString& fileName)
{
    QByteArray text = bytes;
    if (text.startsWith("\xEF\xBB\xBF"))
        text.remove(0, 3);
    static const QRegularExpression line(
        QStringLiteral("^(\\d+):([0-5]?\\d):([0-5]?\\d)(?:[.,](\\d{1,3}))?(?:[ \\t]+(.*))?$"));
    QList<ChapterEntry> out;
    const QList<QByteArray> lines = text.split('\n');
    for (qsizetype i = 0; i < lines.size(); ++i) {
        QByteArray raw = lines.at(i);
        if (raw.endsWith('\r'))
            raw.chop(1);
        const QString s = QString::fromUtf8(raw).trimmed();
        if (s.isEmpty() || s.startsWith(u'#'))
            continue;
        const QRegularExpressionMatch m = line.match(s);
        if (!m.hasMatch())
            throw ToolError(ToolError::Kind::chapterFileInvalid,
                            QStringLiteral("%1: line %2: expected \"HH:MM:SS.mmm Title\"").arg(fileName).arg(i + 1));
        bool ok = false;
        const std::int64_t hours = m.captured(1).toLongLong(&ok);
        if (!ok || hours > 10000000)
            throw ToolError(ToolError::Kind::chapterFileInvalid,
                            QStringLiteral("%1: line %2: time out of range").arg(fileName).arg(i + 1));
        QString fraction = m.captured(4);
        while (fraction.size() < 3)
            fraction.append(u'0');
        ChapterEntry e;
        e.startMs = ((hours * 60 + m.captured(2).toLongLong()) * 60 + m.captured(3).toLongLong()) * 1000
            + fraction.toLongLong();
        e.title = m.captured(5).trimmed();
        out.append(e);
    }
    return out;
}

QList<ChapterEntry> ChapterListFile::read(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        throw ToolError(ToolError::Kind::chapterFileUnreadable,
                        QStringLiteral("%1: cannot read the chapter list: %2").arg(QFileInfo(path).fileName(), f.errorString()));
    return parse(f.readAll(), QFileInfo(path).fileName());
}

QString ChapterListFile::formatTime(std::int64_t ms)
{
    const std::int64_t h = ms / 3600000;
    const std::int64_t m = (ms / 60000) % 60;
    const std::int64_t s = (ms / 1000) % 60;
    return QStringLiteral("%1:%2:%3.%4")
        .arg(h, 2, 10, QLatin1Char('0'))
        .arg(m, 2, 10, QLatin1Char('0'))
        .arg(s, 2, 10, QLatin1Char('0'))
        .arg(ms % 1000, 3, 10, QLatin1Char('0'));
}

QByteArray ChapterListFile::format(const QList<ChapterEntry>& chapters)
{
    QByteArray out;
    for (const ChapterEntry& c : chapters) {
        QString title = c.title;
        title.replace(u'\r', u' ').replace(u'\n', u' ');
        out += formatTime(c.startMs).toUtf8();
        out += ' ';
        out += title.toUtf8();
        out += '\n';
    }
    return out;
}

QList<ChapterEntry> ChapterListFile::normalized(QList<ChapterEntry> chapters, std::int64_t durationMs)
{
    std::stable_sort(chapters.begin(), chapters.end(),
                     [](const ChapterEntry& a, const ChapterEntry& b) { return a.startMs < b.startMs; });
    QList<ChapterEntry> out;
    for (const ChapterEntry& c : chapters) {
        if (c.startMs < 0 || c.startMs >= durationMs)
            continue;
        if (!out.isEmpty() && out.last().startMs == c.startMs)
            continue;
        out.append(c);
    }
    if (!out.isEmpty())
        out.first().startMs = 0;
    return out;
}

} // namespace folivox
