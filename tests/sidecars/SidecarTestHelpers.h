#pragma once

#include "sidecars/parsers/SidecarParseResult.h"

#include <QStringList>
#include <QUrl>

#include <gtest/gtest.h>

#include <optional>

namespace folivox::test {

inline QUrl fileUrl(const QString& name)
{
    return QUrl::fromLocalFile(QStringLiteral("/books/") + name);
}

// "severity|line|message" for compact comparisons; line "-" when absent.
inline QStringList describeWarnings(const SidecarParseResult& r)
{
    QStringList out;
    for (const auto& w : r.warnings)
        out << QStringLiteral("%1|%2|%3")
                   .arg(sidecarWarningSeverityRawValue(w.severity),
                        w.lineNumber ? QString::number(*w.lineNumber) : QStringLiteral("-"), w.message);
    return out;
}

inline QStringList titles(const QList<NormalizedChapter>& chapters)
{
    QStringList out;
    for (const auto& c : chapters)
        out << c.title;
    return out;
}

inline QList<qint64> starts(const QList<NormalizedChapter>& chapters)
{
    QList<qint64> out;
    for (const auto& c : chapters)
        out << c.startMs;
    return out;
}

inline QList<std::optional<qint64>> ends(const QList<NormalizedChapter>& chapters)
{
    QList<std::optional<qint64>> out;
    for (const auto& c : chapters)
        out << (c.endMs ? std::optional<qint64>(*c.endMs) : std::nullopt);
    return out;
}

} // namespace folivox::test

// Printing Qt values in gtest failure messages.
QT_BEGIN_NAMESPACE
inline void PrintTo(const QString& s, std::ostream* os)
{
    *os << '"' << s.toStdString() << '"';
}
inline void PrintTo(const QStringList& l, std::ostream* os)
{
    *os << '[' << l.join(QStringLiteral(", ")).toStdString() << ']';
}
QT_END_NAMESPACE
