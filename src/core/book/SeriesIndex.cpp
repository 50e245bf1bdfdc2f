#include "core/book/SeriesIndex.h"

#include "core/json/DecodingError.h"

#include <QHashFunctions>
#include <QStringList>
#include <QVariant>

namespace folivox {

namespace {

bool allAsciiDigits(QStringView s)
{
    for (QChar c : s) {
        if (c < u'0' || c > u'9')
            return false;
    }
    return true;
}

} // namespace

SeriesIndex SeriesIndex::fromInteger(qint64 number)
{
    if (number <= 0)
        return SeriesIndex();
    return SeriesIndex(QString::number(number), Value{static_cast<quint64>(number), 0});
}

std::optional<SeriesIndex> SeriesIndex::parse(const QString& input)
{
    QString s = input.trimmed();
    s.replace(u',', u'.');
    if (s.isEmpty())
        return std::nullopt;
    if (s.startsWith(u'.'))
        s.prepend(u'0');

    const QStringList pieces = s.split(u'.', Qt::KeepEmptyParts);
    if (pieces.size() > 2)
        return std::nullopt;

    const QString& whole = pieces[0];
    if (whole.isEmpty() || whole.size() > maxIntegerDigits || !allAsciiDigits(whole))
        return std::nullopt;
    QString fraction;
    if (pieces.size() == 2) {
        fraction = pieces[1];
        if (fraction.isEmpty() || fraction.size() > maxFractionDigits || !allAsciiDigits(fraction))
            return std::nullopt;
    }

    QString canonicalWhole = whole;
    while (canonicalWhole.size() > 1 && canonicalWhole.startsWith(u'0'))
        canonicalWhole.remove(0, 1);
    while (fraction.endsWith(u'0'))
        fraction.chop(1);

    QString text = canonicalWhole;
    if (!fraction.isEmpty())
        text += u'.' + fraction;

    // The value is read from the canonical text, without any locale.
    bool ok = false;
    const quint64 wholeValue = canonicalWhole.toULongLong(&ok);
    if (!ok)
        return std::nullopt;
    int thousandths = 0;
    if (!fraction.isEmpty()) {
        thousandths = fraction.leftJustified(maxFractionDigits, u'0').toInt(&ok);
        if (!ok)
            return std::nullopt;
    }
    return SeriesIndex(text, Value{wholeValue, thousandths});
}

QString SeriesIndex::reducedInput(const QString& typed)
{
    QString out;
    bool seenSeparator = false;
    int wholeDigits = 0;
    int fractionDigits = 0;
    for (QChar c : typed) {
        if (c >= u'0' && c <= u'9') {
            if (!seenSeparator && wholeDigits < maxIntegerDigits) {
                out += c;
                ++wholeDigits;
            } else if (seenSeparator && fractionDigits < maxFractionDigits) {
                out += c;
                ++fractionDigits;
            }
        } else if ((c == u'.' || c == u',') && !seenSeparator) {
            seenSeparator = true;
            out += c;
        }
    }
    return out;
}

QString SeriesIndex::exchangingDecimalSeparator(const QString& text, const QLocale& locale)
{
    const QString separator = locale.decimalPoint();
    if (separator.isEmpty() || separator == QLatin1StringView("."))
        return text;
    QString out = text;
    out.replace(separator, QStringLiteral("."));
    return out;
}

QString SeriesIndex::paddedText(int minimumIntegerDigits) const
{
    const qsizetype dot = text_.indexOf(u'.');
    const QString whole = dot < 0 ? text_ : text_.left(dot);
    QString out = whole.rightJustified(minimumIntegerDigits, u'0');
    if (dot >= 0)
        out += text_.mid(dot);
    return out;
}

QJsonValue SeriesIndex::toJson() const
{
    if (!text_.contains(u'.')) {
        bool ok = false;
        const qint64 n = text_.toLongLong(&ok);
        if (ok)
            return QJsonValue(n);
    }
    return QJsonValue(text_);
}

QString SeriesIndex::notASeriesIndexMessage()
{
    return QStringLiteral("Not a series index (expected a number like 3 or 12.5)");
}

SeriesIndex SeriesIndex::fromJson(const QJsonValue& json)
{
    if (json.isDouble()) {
        // Qt's JSON parser keeps every number with an integral value as an
        // integer, so a stored 1234567.0 arrives here exactly like 1234567.
        // An integer is therefore taken only within the index's 6 digits;
        // above that it goes on to the number attempt, whose canonical form
        // fails to parse, as an over-long float must.
        if (json.toVariant().typeId() == QMetaType::LongLong) {
            const qint64 n = json.toInteger();
            if (n <= 999999)
                return fromInteger(n);
        }
    } else if (json.isString()) {
        if (auto parsed = parse(json.toString()))
            return *parsed;
    }
    if (json.isDouble()) {
        const QString formatted = QString::asprintf("%.3f", json.toDouble());
        if (auto parsed = parse(formatted))
            return *parsed;
    }
    throw DecodingError::dataCorrupted({}, notASeriesIndexMessage());
}

size_t qHash(const SeriesIndex& index, size_t seed) noexcept
{
    const SeriesIndex::Value v = index.value();
    return qHashMulti(seed, v.whole, v.thousandths);
}

} // namespace folivox
