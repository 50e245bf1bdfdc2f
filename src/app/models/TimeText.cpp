#include "app/models/TimeText.h"

#include <QRegularExpression>

#include <cmath>

namespace folivox {

QString TimeText::format(double seconds, bool withMilliseconds)
{
    const qint64 totalMs = std::llround(std::max(0.0, seconds) * 1000.0);
    const qint64 ms = totalMs % 1000;
    const qint64 s = (totalMs / 1000) % 60;
    const qint64 m = (totalMs / 60000) % 60;
    const qint64 h = totalMs / 3600000;
    QString text = h > 0 ? QString::asprintf("%lld:%02lld:%02lld", h, m, s) : QString::asprintf("%lld:%02lld", m, s);
    if (withMilliseconds)
        text += QString::asprintf(".%03lld", ms);
    return text;
}

std::optional<double> TimeText::parse(const QString& text)
{
    static const QRegularExpression pattern(QStringLiteral(R"(^\s*(?:(?:(\d+):)?(\d+):)?(\d+(?:[.,]\d+)?)\s*$)"));
    const auto m = pattern.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    const double h = m.captured(1).isEmpty() ? 0 : m.captured(1).toDouble();
    const double min = m.captured(2).isEmpty() ? 0 : m.captured(2).toDouble();
    QString secText = m.captured(3);
    secText.replace(QLatin1Char(','), QLatin1Char('.'));
    const double s = secText.toDouble();
    if ((!m.captured(2).isEmpty() && s >= 60) || (!m.captured(1).isEmpty() && min >= 60))
        return std::nullopt;
    return h * 3600 + min * 60 + s;
}

} // namespace folivox
