#pragma once

#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QStringView>
#include <QUrl>

#include <cstdint>
#include <optional>

namespace folivox {

// Rules shared by every chapter file parser.
class SidecarTextRules {
public:
    // A file holds at most this many chapters.
    static constexpr int kMaxChapters = 500;
    // One time is at most 240 hours; the value itself is allowed.
    static constexpr std::int64_t kMaxTimeMs = 864'000'000;

    // Splits at every newline character (LF, VT, FF, CR, NEL, U+2028, U+2029).
    // CR LF is two breaks, so a CR LF file has a blank line after each line.
    // The views point into text, which must outlive them.
    static QList<QStringView> splitLines(const QString& text);
    // The first maxLines lines of the same split, without splitting the rest.
    static QList<QStringView> firstLines(const QString& text, int maxLines);
    static bool isNewline(QChar c);
    // Calls visit(line, lineNumber) for each line in order until it returns
    // false; lines after that are not split.
    // Of the first maxLines non-blank lines (trimmed), how many match at
    // least one of the patterns. The parsers' confidence tests share it.
    template <typename Patterns> static int countMatchingLines(const QString& text, const Patterns& patterns, int maxLines)
    {
        int matching = 0;
        int looked = 0;
        forEachLine(text, [&](QStringView raw, int) {
            const QString line = raw.trimmed().toString();
            if (line.isEmpty())
                return true;
            for (const auto& re : patterns) {
                if (re.match(line).hasMatch()) {
                    ++matching;
                    break;
                }
            }
            return ++looked < maxLines;
        });
        return matching;
    }

    template <typename Visit> static void forEachLine(const QString& text, Visit visit)
    {
        const QStringView all(text);
        qsizetype start = 0;
        int number = 1;
        for (qsizetype i = 0; i <= all.size(); ++i) {
            if (i == all.size() || isNewline(all[i])) {
                if (!visit(all.mid(start, i - start), number++))
                    return;
                start = i + 1;
            }
        }
    }

    // The lower-cased extension of the URL's file name ("" when it has none).
    static QString lowerExtension(const QUrl& url);
    static QString lowerFileName(const QUrl& url);

    // Clock time: hours under 241, minutes and seconds under 60, milliseconds
    // under 1000, and the total within kMaxTimeMs; otherwise no time.
    static std::optional<std::int64_t> clockTime(std::int64_t hours, std::int64_t minutes, std::int64_t seconds,
                                                 std::int64_t milliseconds);
    // A fraction of one to three digits filled with zeros on the right: "5" is 500.
    static std::optional<std::int64_t> fractionMilliseconds(QStringView digits);

    // ASCII digits only, at least one; leading zeros allowed. Values too large
    // for 64 bits are refused.
    static std::optional<std::int64_t> wholeNumber(QStringView text);
    // What a C-locale strtod accepts whole; empty text and text starting with
    // white space are refused.
    static std::optional<double> decimalNumber(QStringView text);

    // A minus sign ("-" or U+2212) directly before a digit: the line's time
    // is negative. "- 0:05" (a dash, then a space) is a list bullet instead.
    static bool startsWithMinusSign(QStringView line);

    // The "Chapter N" fallback.
    static QString chapterFallback(qsizetype chaptersHeld);

    // Compiles a pattern once; a pattern that does not compile is a
    // programming fault and ends the program.
    static QRegularExpression compile(const QString& pattern,
                                      QRegularExpression::PatternOptions options = QRegularExpression::NoPatternOption);

    static constexpr const char* kChapterLimitMessage = "Chapter limit reached (500), truncating";
};

} // namespace folivox
