#include "chapters/NumberingConfig.h"

#include "chapters/ChapterFormatError.h"

#include <QJsonValue>

namespace folivox {

QString NumberingConfig::letters(long long number)
{
    // Bijective base 26: 1 = A, 26 = Z, 27 = AA.
    QString out;
    while (number > 0) {
        --number;
        out.prepend(QChar(u'A' + static_cast<char16_t>(number % 26)));
        number /= 26;
    }
    return out;
}

QString NumberingConfig::format(long long number) const
{
    if (style == Style::letter && number >= 1)
        return letters(number);
    const int width = padding == Padding::two ? 2 : padding == Padding::three ? 3 : 0;
    QString digits = QString::number(number < 0 ? -number : number);
    if (digits.size() < width)
        digits = QString(width - digits.size(), u'0') + digits;
    return number < 0 ? QStringLiteral("-") + digits : digits;
}

QJsonObject NumberingConfig::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("style"), style == Style::decimal ? QStringLiteral("decimal") : QStringLiteral("letter"));
    o.insert(QStringLiteral("padding"), padding == Padding::none  ? QStringLiteral("none")
                                        : padding == Padding::two ? QStringLiteral("two")
                                                                  : QStringLiteral("three"));
    o.insert(QStringLiteral("startNumber"), startNumber);
    return o;
}

NumberingConfig NumberingConfig::fromJson(const QJsonObject& json)
{
    NumberingConfig c;
    const QString style = json.value(QStringLiteral("style")).toString();
    if (style == u"decimal")
        c.style = Style::decimal;
    else if (style == u"letter")
        c.style = Style::letter;
    else
        throw ChapterFormatError(ChapterFormatError::Kind::invalidValue, QStringLiteral("style"));
    const QString padding = json.value(QStringLiteral("padding")).toString();
    if (padding == u"none")
        c.padding = Padding::none;
    else if (padding == u"two")
        c.padding = Padding::two;
    else if (padding == u"three")
        c.padding = Padding::three;
    else
        throw ChapterFormatError(ChapterFormatError::Kind::invalidValue, QStringLiteral("padding"));
    const QJsonValue start = json.value(QStringLiteral("startNumber"));
    if (!start.isDouble() || start.toDouble() != static_cast<double>(start.toInt()))
        throw ChapterFormatError(ChapterFormatError::Kind::invalidValue, QStringLiteral("startNumber"));
    c.startNumber = start.toInt();
    return c;
}

} // namespace folivox
