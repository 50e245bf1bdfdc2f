#include "core/book/TagTextRepair.h"

#include <QChar>
#include <QList>
#include <QStringDecoder>

namespace folivox {

namespace {

// Windows-1252 characters in 0x80..0x9F, by byte. 0 marks a byte the code page
// leaves undefined; Latin-1 readers turn those into C1 controls instead.
constexpr char16_t kWindows1252High[32] = {
    0x20AC, 0x0000, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x0000, 0x017D, 0x0000, 0x0000, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x0000, 0x017E, 0x0178};

// The byte a character came from when UTF-8 was read as Latin-1 or
// Windows-1252; -1 when it can't have come from a single byte.
int singleByteOf(char32_t c)
{
    if (c <= 0xFF)
        return static_cast<int>(c);
    for (int i = 0; i < 32; ++i) {
        if (kWindows1252High[i] != 0 && kWindows1252High[i] == c)
            return 0x80 + i;
    }
    return -1;
}

bool isLineBreak(char32_t c)
{
    return c == 0x0A || c == 0x0B || c == 0x0C || c == 0x0D || c == 0x85 || c == 0x2028 || c == 0x2029;
}

// Fillers that render as nothing but are not classed as white space.
bool isBlankFiller(char32_t c)
{
    return c == 0x115F || c == 0x1160 || c == 0x3164 || c == 0xFFA0;
}

bool isSpaceLike(char32_t c)
{
    return c == 0x09 || isLineBreak(c) || isBlankFiller(c) || QChar::isSpace(c);
}

// Removable at the ends of a text: white space and every format character
// (joiners and direction marks are harmless only between visible characters).
bool isEdgeTrimmable(char32_t c)
{
    return isSpaceLike(c) || QChar::category(c) == QChar::Other_Format || TagTextRepair::isInvisible(c);
}

std::optional<QString> repairOnce(const QString& text)
{
    bool hasLeadCandidate = false;
    QByteArray bytes;
    bytes.reserve(text.size());
    for (char32_t c : text.toUcs4()) {
        const int b = singleByteOf(c);
        if (b < 0)
            return std::nullopt; // a character no single-byte reading produces
        if (b >= 0xC2 && b <= 0xF4)
            hasLeadCandidate = true;
        bytes.append(static_cast<char>(b));
    }
    if (!hasLeadCandidate)
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString decoded = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    for (char32_t c : decoded.toUcs4()) {
        if (c >= 0x80 && c <= 0x9F)
            return std::nullopt; // C1 controls: not a plausible original
    }
    if (decoded == text)
        return std::nullopt;
    return decoded;
}

} // namespace

bool TagTextRepair::isInvisible(char32_t c)
{
    if (c < 0x20)
        return c != 0x09 && !isLineBreak(c);
    if (c == 0x7F)
        return true;
    if (c >= 0x80 && c <= 0x9F)
        return c != 0x85;
    switch (c) {
    case 0x00AD: // soft hyphen
    case 0x034F: // combining grapheme joiner
    case 0x061C: // Arabic letter mark
    case 0x180E: // Mongolian vowel separator
    case 0x200B: // zero-width space
    case 0xFEFF: // byte order mark / zero-width no-break space
    case 0xFFFC: // object replacement character
    case 0xFFFE:
    case 0xFFFF:
        return true;
    default:
        break;
    }
    if (c >= 0x2060 && c <= 0x2064) // word joiner, invisible operators
        return true;
    if (c >= 0x202A && c <= 0x202E) // bidirectional embeddings and overrides
        return true;
    if (c >= 0x2066 && c <= 0x2069) // bidirectional isolates
        return true;
    if (c >= 0xFFF9 && c <= 0xFFFB) // interlinear annotation controls
        return true;
    if (c >= 0x1BCA0 && c <= 0x1BCA3) // shorthand format controls
        return true;
    return false;
}

QString TagTextRepair::removeInvisibleCharacters(const QString& text, bool keepLineBreaks)
{
    QList<uint> out;
    const QList<uint> in = text.toUcs4();
    out.reserve(in.size());
    for (qsizetype i = 0; i < in.size(); ++i) {
        const char32_t c = in[i];
        if (isInvisible(c))
            continue;
        if (isLineBreak(c)) {
            if (!keepLineBreaks) {
                out.append(u' ');
            } else if (c == 0x0D && i + 1 < in.size() && in[i + 1] == 0x0A) {
                continue; // CR LF becomes one "\n"
            } else {
                out.append(u'\n');
            }
            continue;
        }
        if (c == 0x09 && !keepLineBreaks) {
            out.append(u' ');
            continue;
        }
        out.append(c);
    }
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(out.constData()), out.size());
}

std::optional<QString> TagTextRepair::repairMojibake(const QString& text)
{
    std::optional<QString> result;
    QString current = text;
    for (int round = 0; round < 3; ++round) {
        auto next = repairOnce(current);
        if (!next)
            break;
        current = *next;
        result = current;
    }
    return result;
}

QString TagTextRepair::repair(const QString& text, Kind kind)
{
    if (text.isEmpty())
        return text;
    const bool multiLine = kind == Kind::freeText;

    // Marks that no single-byte reading produces are dropped before the
    // mojibake test, so a stray zero-width space does not block a repair; C1
    // controls are kept until then since they can be part of the damage.
    QString s;
    s.reserve(text.size());
    for (char32_t c : text.toUcs4()) {
        if (isInvisible(c) && c > 0xFF)
            continue;
        s.append(QString::fromUcs4(&c, 1));
    }
    if (auto fixed = repairMojibake(s))
        s = *fixed;
    s = removeInvisibleCharacters(s, multiLine).normalized(QString::NormalizationForm_C);

    const QList<uint> cps = s.toUcs4();
    qsizetype begin = 0;
    qsizetype end = cps.size();
    while (begin < end && isEdgeTrimmable(cps[begin]))
        ++begin;
    while (end > begin && isEdgeTrimmable(cps[end - 1]))
        --end;

    QList<uint> out;
    out.reserve(end - begin);
    if (multiLine) {
        for (qsizetype i = begin; i < end; ++i)
            out.append(isBlankFiller(cps[i]) ? uint(u' ') : cps[i]);
    } else {
        // A single space stays as written (a no-break space included); a run
        // of white space, or a tab, becomes one ordinary space.
        for (qsizetype i = begin; i < end;) {
            if (!isSpaceLike(cps[i])) {
                out.append(cps[i++]);
                continue;
            }
            qsizetype j = i;
            while (j < end && isSpaceLike(cps[j]))
                ++j;
            const bool plain = j - i == 1 && QChar::isSpace(cps[i]) && cps[i] != 0x09 && !isBlankFiller(cps[i]);
            out.append(plain ? cps[i] : uint(u' '));
            i = j;
        }
    }
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(out.constData()), out.size());
}

} // namespace folivox
