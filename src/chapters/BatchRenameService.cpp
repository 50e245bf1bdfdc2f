#include "chapters/BatchRenameService.h"

#include <QRegularExpression>

#include <array>

namespace folivox {

namespace {

QRegularExpression compile(const QString& pattern)
{
    QRegularExpression re(pattern,
                          QRegularExpression::CaseInsensitiveOption | QRegularExpression::UseUnicodePropertiesOption);
    if (!re.isValid())
        qFatal("Invalid built-in pattern %s: %s", qPrintable(pattern), qPrintable(re.errorString()));
    re.optimize();
    return re;
}

// Keeps the title as it was when a step would leave nothing.
QString orOriginal(const QString& result, const QString& original)
{
    return result.trimmed().isEmpty() ? original : result;
}

QString removeAll(QString title, const QRegularExpression& re)
{
    return title.remove(re);
}

bool isWordChar(QChar c)
{
    return c.isLetterOrNumber();
}

// The words of the common-prefix step ("Chapter 5", "Pt. II", "Kapitel 3").
const QString& commonWords()
{
    static const QString words = QStringLiteral(
        "chapter|chap\\.?|ch\\.?|part|pt\\.?|track|trk\\.?|section|sect\\.?|book|volume|vol\\.?|episode|ep\\.?|"
        "disc|disk|cd|side|kapitel|chapitre|cap[ií]tulo|capitolo|hoofdstuk|teil|partie|parte");
    return words;
}

} // namespace

const QStringList& BatchRenameService::audioExtensions()
{
    static const QStringList extensions = {
        QStringLiteral("mp3"), QStringLiteral("m4a"), QStringLiteral("m4b"), QStringLiteral("aac"),
        QStringLiteral("flac"), QStringLiteral("wav"), QStringLiteral("aiff"), QStringLiteral("aif"),
        QStringLiteral("ogg"), QStringLiteral("oga"), QStringLiteral("opus"), QStringLiteral("wma"),
        QStringLiteral("alac"), QStringLiteral("ape"), QStringLiteral("wv"), QStringLiteral("mka"),
        QStringLiteral("mp4"), QStringLiteral("caf"), QStringLiteral("mp2"), QStringLiteral("ac3")};
    return extensions;
}

QStringList BatchRenameService::removeRepeatedBeginning(const QStringList& titles)
{
    if (titles.size() < 2)
        return titles;
    QString prefix = titles.front();
    for (const QString& t : titles) {
        qsizetype n = 0;
        while (n < prefix.size() && n < t.size() && prefix[n] == t[n])
            ++n;
        prefix.truncate(n);
    }
    while (!prefix.isEmpty()) {
        bool ok = true;
        for (const QString& t : titles) {
            const bool splitsWord = t.size() > prefix.size() && isWordChar(prefix.back()) && isWordChar(t[prefix.size()]);
            if (splitsWord || t.mid(prefix.size()).trimmed().isEmpty()) {
                ok = false;
                break;
            }
        }
        if (ok)
            break;
        prefix.chop(1);
    }
    QStringList out;
    for (const QString& t : titles)
        out.append(t.mid(prefix.size()).trimmed());
    return out;
}

QStringList BatchRenameService::removeRepeatedEnd(const QStringList& titles)
{
    if (titles.size() < 2)
        return titles;
    QString suffix = titles.front();
    for (const QString& t : titles) {
        qsizetype n = 0;
        while (n < suffix.size() && n < t.size() && suffix[suffix.size() - 1 - n] == t[t.size() - 1 - n])
            ++n;
        suffix = suffix.right(n);
    }
    while (!suffix.isEmpty()) {
        bool ok = true;
        for (const QString& t : titles) {
            const qsizetype cut = t.size() - suffix.size();
            const bool splitsWord = cut > 0 && isWordChar(suffix.front()) && isWordChar(t[cut - 1]);
            if (splitsWord || t.left(cut).trimmed().isEmpty()) {
                ok = false;
                break;
            }
        }
        if (ok)
            break;
        suffix.remove(0, 1);
    }
    QStringList out;
    for (const QString& t : titles)
        out.append(t.left(t.size() - suffix.size()).trimmed());
    return out;
}

QString BatchRenameService::removeNumericPrefix(const QString& title)
{
    static const std::array<QRegularExpression, 3> patterns = {
        compile(QStringLiteral("^(?:Track\\s*)?(?:\\d+|[IVXLC]+)[\\s\\-–—:.)]+\\s*")),
        compile(QStringLiteral("^CD\\d+\\s*[-–—]?\\s*(?:Track\\s*)?\\d*\\s*[-–—]?\\s*")),
        compile(QStringLiteral("^Disc\\s*\\d+\\s*[-–—]?\\s*")),
    };
    QString t = title;
    for (const auto& re : patterns)
        t = removeAll(t, re);
    return orOriginal(t, title);
}

QString BatchRenameService::removeTrailingNumbers(const QString& title)
{
    static const std::array<QRegularExpression, 2> patterns = {
        compile(QStringLiteral("\\s*[-–—_:.,]*\\s*\\d+\\s*$")),
        compile(QStringLiteral("\\s*[-–—_:.,]+\\s*[IVXLC]+\\s*$")),
    };
    QString t = title;
    while (true) {
        QString next = t;
        for (const auto& re : patterns)
            next = removeAll(next, re);
        if (next == t)
            break;
        t = next;
    }
    return orOriginal(t.trimmed(), title);
}

QString BatchRenameService::removeFileExtension(const QString& title)
{
    for (const QString& ext : audioExtensions()) {
        const QString suffix = u'.' + ext;
        if (title.size() > suffix.size() && title.endsWith(suffix, Qt::CaseInsensitive))
            return title.left(title.size() - suffix.size());
    }
    return title;
}

QString BatchRenameService::removeBracketContents(const QString& title)
{
    // A bracketed part between two words leaves one space, so that
    // "Intro (Part 1) End" becomes "Intro End" and not "IntroEnd".
    static const QRegularExpression re = compile(QStringLiteral("\\s*\\([^)]*\\)\\s*|\\s*\\[[^\\]]*\\]\\s*"));
    QString out;
    qsizetype last = 0;
    auto it = re.globalMatch(title);
    while (it.hasNext()) {
        const auto m = it.next();
        out += QStringView(title).mid(last, m.capturedStart() - last);
        last = m.capturedEnd();
        if (!out.isEmpty() && !out.back().isSpace() && last < title.size())
            out += u' ';
    }
    out += QStringView(title).mid(last);
    return orOriginal(out.trimmed(), title);
}

QString BatchRenameService::removeAllBrackets(const QString& title)
{
    QString out;
    for (QChar c : title) {
        if (c != u'(' && c != u')' && c != u'[' && c != u']' && c != u'{' && c != u'}')
            out += c;
    }
    return orOriginal(out, title);
}

QString BatchRenameService::removeCommonPrefixes(const QString& title)
{
    // A word boundary after the number keeps "Particle" from reading as
    // "Part" + "IC"; one before the word at the end keeps "Counterpart 2".
    static const QRegularExpression start =
        compile(QStringLiteral("^(?:") + commonWords() + QStringLiteral(")\\s*(?:\\d+|[IVXLC]+)\\b[\\s\\.\\-–—:,]*"));
    static const QRegularExpression end = compile(QStringLiteral("[\\s\\,\\-–—:]*\\b(?:") + commonWords()
                                                  + QStringLiteral(")\\s*(?:\\d+|[IVXLC]+)\\s*$"));
    QString t = removeAll(title, start);
    t = removeAll(t, end);
    return orOriginal(t, title);
}

QString BatchRenameService::removeDuplicateWords(const QString& title)
{
    static const QRegularExpression re = compile(QStringLiteral("\\b(\\w{1,100})\\s+\\1\\b"));
    QString t = title;
    return t.replace(re, QStringLiteral("\\1"));
}

QString BatchRenameService::normalizeWhitespace(const QString& title)
{
    return title.simplified();
}

QString BatchRenameService::normalizeDelimiters(const QString& title)
{
    // Underscores are spaces; a dash standing between spaces, any en or em
    // dash, and a bar become " - ". Hyphens inside words stay.
    static const QRegularExpression underscores = compile(QStringLiteral("_+"));
    static const QRegularExpression dashes =
        compile(QStringLiteral("\\s*[–—―|]+\\s*|\\s+-+\\s*|\\s*-+\\s+"));
    QString t = title;
    t.replace(underscores, QStringLiteral(" "));
    t.replace(dashes, QStringLiteral(" - "));
    return t.simplified();
}

QString BatchRenameService::changeCase(const QString& title, CapitalizationStyle style)
{
    switch (style) {
    case CapitalizationStyle::unchanged: return title;
    case CapitalizationStyle::lowercase: return title.toLower();
    case CapitalizationStyle::uppercase: return title.toUpper();
    case CapitalizationStyle::titleCase:
    case CapitalizationStyle::sentenceCase: break;
    }

    // Text in capitals throughout is lowered first; otherwise words with
    // capitals inside ("iPhone", "BBC") are kept as written.
    bool hasLower = false;
    for (QChar c : title)
        hasLower = hasLower || c.isLower();
    const QString base = hasLower ? title : title.toLower();

    static const QStringList smallWords = {
        QStringLiteral("a"),   QStringLiteral("an"),  QStringLiteral("and"),  QStringLiteral("as"),
        QStringLiteral("at"),  QStringLiteral("but"), QStringLiteral("by"),   QStringLiteral("for"),
        QStringLiteral("from"), QStringLiteral("in"), QStringLiteral("into"), QStringLiteral("nor"),
        QStringLiteral("of"),  QStringLiteral("on"),  QStringLiteral("or"),   QStringLiteral("over"),
        QStringLiteral("per"), QStringLiteral("the"), QStringLiteral("to"),   QStringLiteral("vs"),
        QStringLiteral("via"), QStringLiteral("with")};

    // Split into words (runs without white space), keeping the spaces.
    QList<std::pair<qsizetype, qsizetype>> words;
    for (qsizetype i = 0; i < base.size();) {
        if (base[i].isSpace()) {
            ++i;
            continue;
        }
        qsizetype j = i;
        while (j < base.size() && !base[j].isSpace())
            ++j;
        words.append({i, j});
        i = j;
    }

    QString out = base;
    bool sentenceStart = true;
    for (qsizetype w = 0; w < words.size(); ++w) {
        const auto [from, to] = words[w];
        const QString word = base.mid(from, to - from);
        qsizetype firstLetter = from;
        while (firstLetter < to && !base[firstLetter].isLetter())
            ++firstLetter;
        const QString core = word.toLower();
        QString core2 = core;
        while (!core2.isEmpty() && !core2.front().isLetterOrNumber())
            core2.remove(0, 1);
        while (!core2.isEmpty() && !core2.back().isLetterOrNumber())
            core2.chop(1);

        if (style == CapitalizationStyle::titleCase) {
            bool innerCapital = false;
            for (qsizetype k = firstLetter + 1; k < to; ++k)
                innerCapital = innerCapital || base[k].isUpper();
            const bool edge = w == 0 || w + 1 == words.size();
            if (innerCapital) {
                // keep as written
            } else if (!edge && smallWords.contains(core2)) {
                for (qsizetype k = from; k < to; ++k)
                    out[k] = base[k].toLower();
            } else if (firstLetter < to) {
                out[firstLetter] = base[firstLetter].toUpper();
            }
        } else {
            // Sentence case: lower everything, then capitalise the first word
            // with a letter and each after ".", "!" or "?"; "I" stays "I".
            for (qsizetype k = from; k < to; ++k)
                out[k] = base[k].toLower();
            if (core2 == u"i")
                out[firstLetter] = u'I';
            if (sentenceStart && firstLetter < to) {
                out[firstLetter] = base[firstLetter].toUpper();
                sentenceStart = false;
            }
            if (word.endsWith(u'.') || word.endsWith(u'!') || word.endsWith(u'?'))
                sentenceStart = true;
        }
    }
    return out;
}

QString BatchRenameService::numbered(const QString& title, int number, const BatchRenameOptions& options)
{
    const int width = options.numberingFormat == NumberingFormat::twoDigits     ? 2
                      : options.numberingFormat == NumberingFormat::threeDigits ? 3
                                                                                : 1;
    QString digits = QString::number(number < 0 ? -number : number);
    if (digits.size() < width)
        digits = QString(width - digits.size(), u'0') + digits;
    if (number < 0)
        digits.prepend(u'-');
    return options.numberingPrefix + digits + options.numberingSeparator + title;
}

BatchRenameResult BatchRenameService::apply(const QStringList& input, const BatchRenameOptions& o, bool findUsesRegex,
                                            bool findMatchesCase) const
{
    BatchRenameResult result;
    QStringList titles = input;
    if (o.removeRepeatedBeginning)
        titles = removeRepeatedBeginning(titles);
    if (o.removeRepeatedEnd)
        titles = removeRepeatedEnd(titles);

    for (QString& t : titles) {
        if (o.removeNumericPrefix)
            t = removeNumericPrefix(t);
        if (o.removeTrailingNumbers)
            t = removeTrailingNumbers(t);
        if (o.removeFileExtensions)
            t = removeFileExtension(t);
        if (o.removeBracketContents)
            t = removeBracketContents(t);
        if (o.removeAllBrackets)
            t = removeAllBrackets(t);
        if (o.removeCommonPrefixes)
            t = removeCommonPrefixes(t);
        if (o.removeDuplicateWords)
            t = removeDuplicateWords(t);
    }
    if (o.findReplaceEnabled) {
        FindReplaceResult r =
            finder_.apply(titles, FindReplaceConfig{o.findText, o.replaceText, findUsesRegex, findMatchesCase});
        if (r.error) {
            result.titles = input;
            result.error = r.error;
            return result;
        }
        titles = r.titles;
    }
    for (qsizetype i = 0; i < titles.size(); ++i) {
        QString& t = titles[i];
        if (o.normalizeWhitespace)
            t = normalizeWhitespace(t);
        if (o.normalizeDelimiters)
            t = normalizeDelimiters(t);
        if (o.changeCaseEnabled)
            t = changeCase(t, o.capitalization);
        if (o.trimWhitespace)
            t = t.trimmed();
        if (o.addNumbering)
            t = numbered(t, o.numberingStart + static_cast<int>(i), o);
    }
    result.titles = titles;
    return result;
}

} // namespace folivox
