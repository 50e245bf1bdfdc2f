#include "sidecars/parsers/CueParser.h"

#include "sidecars/parsers/SidecarTextRules.h"

#include <algorithm>
#include <array>

namespace folivox {

namespace {

QString afterKeyword(const QString& trimmedLine, qsizetype keywordLength)
{
    return trimmedLine.mid(keywordLength).trimmed();
}

// The three whole-number fields of an INDEX value, or nothing.
std::optional<std::array<std::int64_t, 3>> indexFields(const QString& value)
{
    const QStringList parts = value.split(u':');
    if (parts.size() != 3)
        return std::nullopt;
    std::array<std::int64_t, 3> out{};
    for (int i = 0; i < 3; ++i) {
        const auto n = SidecarTextRules::wholeNumber(parts[i]);
        if (!n)
            return std::nullopt;
        out[static_cast<size_t>(i)] = *n;
    }
    return out;
}

// A FILE name that stays inside the sheet's folder, or nothing.
std::optional<QString> acceptedFileName(const QString& rest)
{
    QString name;
    if (rest.startsWith(u'"')) {
        const qsizetype close = rest.indexOf(u'"', 1);
        name = close < 0 ? rest.mid(1) : rest.mid(1, close - 1);
    } else {
        name = rest.section(u' ', 0, 0, QString::SectionSkipEmpty);
    }
    if (name.isEmpty() || name.startsWith(u'/') || name.startsWith(u'\\') || (name.size() >= 2 && name[1] == u':')
        || name.contains(QStringLiteral("..")))
        return std::nullopt;
    return name;
}

} // namespace

int CueParser::confidence(const QString& text, const QUrl& url) const
{
    int score = SidecarTextRules::lowerExtension(url) == u"cue" ? 50 : 0;
    const QString upper = text.toUpper();
    if (upper.contains(QStringLiteral("FILE "))
        && (upper.contains(QStringLiteral(" WAVE")) || upper.contains(QStringLiteral(" MP3"))
            || upper.contains(QStringLiteral(" AIFF")) || upper.contains(QStringLiteral(" FLAC"))))
        score += 30;
    if (upper.contains(QStringLiteral("TRACK ")) && upper.contains(QStringLiteral(" AUDIO")))
        score += 20;
    if (upper.contains(QStringLiteral("INDEX 01")) || upper.contains(QStringLiteral("INDEX 00")))
        score += 20;
    return std::min(score, 100);
}

SidecarParseResult CueParser::parse(const QString& text, const QUrl& url) const
{
    SidecarParseResult result;
    result.format = SidecarFormat::cue;
    result.sourceURL = url;

    const QList<QStringView> lines = SidecarTextRules::splitLines(text);
    QStringList upperLines;
    QStringList trimmedLines;
    upperLines.reserve(lines.size());
    trimmedLines.reserve(lines.size());
    for (QStringView l : lines) {
        trimmedLines.append(l.trimmed().toString());
        upperLines.append(trimmedLines.back().toUpper());
    }

    // First pass: a last field of 75..99 can't be a CUE frame, so the file
    // writes hundredths of a second. One such line decides for the file.
    bool hundredths = false;
    for (const QString& upper : upperLines) {
        if (!upper.startsWith(QStringLiteral("INDEX 01")))
            continue;
        const QStringList parts = afterKeyword(upper, 8).split(u':');
        if (parts.size() != 3)
            continue;
        const auto last = SidecarTextRules::wholeNumber(parts[2]);
        if (last && *last >= 75 && *last <= 99) {
            hundredths = true;
            break;
        }
    }
    if (hundredths)
        result.addWarning(QStringLiteral("Timestamps use hundredths of a second, not CUE frames"),
                          SidecarWarningSeverity::info);
    const std::int64_t divisor = hundredths ? 100 : 75;

    bool atDiscLevel = true;
    bool trackOpen = false;
    bool sawFile = false;
    std::optional<QString> pendingTitle;
    std::int64_t pendingTrackNumber = 0;
    std::int64_t pendingStart = 0;

    auto closeTrack = [&] {
        if (!trackOpen)
            return;
        const QString title = pendingTitle ? *pendingTitle : QStringLiteral("Track %1").arg(pendingTrackNumber);
        result.chapters.append(NormalizedChapter::make(title, pendingStart));
        trackOpen = false;
    };

    for (qsizetype i = 0; i < lines.size(); ++i) {
        const int lineNumber = static_cast<int>(i + 1);
        const QString& trimmed = trimmedLines[i];
        const QString& upper = upperLines[i];
        if (trimmed.isEmpty() || upper.startsWith(QStringLiteral("REM ")))
            continue;

        if (upper.startsWith(QStringLiteral("FILE "))) {
            if (sawFile) {
                result.addWarning(QStringLiteral("Multiple FILE directives found; using first file only"),
                                  SidecarWarningSeverity::warning, lineNumber);
                continue;
            }
            sawFile = true;
            result.referencedAudioFile = acceptedFileName(afterKeyword(trimmed, 5));
            continue;
        }
        if (atDiscLevel && (upper.startsWith(QStringLiteral("PERFORMER ")) || upper.startsWith(QStringLiteral("TITLE "))))
            continue; // the album's own title never becomes a chapter
        if (upper.startsWith(QStringLiteral("TRACK "))) {
            const QString rest = afterKeyword(trimmed, 6);
            const auto number = SidecarTextRules::wholeNumber(rest.section(u' ', 0, 0, QString::SectionSkipEmpty));
            if (!number)
                continue;
            if (trackOpen && result.chapters.size() >= SidecarTextRules::kMaxChapters) {
                // The open track is still closed below, as at the end of the text.
                result.addWarning(QString::fromLatin1(SidecarTextRules::kChapterLimitMessage),
                                  SidecarWarningSeverity::warning);
                break;
            }
            closeTrack();
            pendingTrackNumber = *number;
            pendingTitle.reset();
            pendingStart = 0;
            atDiscLevel = false;
            continue;
        }
        if (atDiscLevel)
            continue;
        if (upper.startsWith(QStringLiteral("TITLE "))) {
            QString value = afterKeyword(trimmed, 6);
            if (value.size() >= 2 && value.startsWith(u'"') && value.endsWith(u'"'))
                value = value.mid(1, value.size() - 2);
            pendingTitle = value;
            continue;
        }
        if (upper.startsWith(QStringLiteral("INDEX 01"))) {
            const auto fields = indexFields(afterKeyword(trimmed, 8));
            if (!fields)
                continue;
            auto [minutes, seconds, fraction] = *fields;
            if (minutes > 14'400 || seconds > 59)
                continue;
            if (fraction >= divisor) {
                fraction = 0;
                result.addWarning(QStringLiteral("INDEX fraction out of range; chapter kept at whole-second precision"),
                                  SidecarWarningSeverity::warning, lineNumber);
            }
            const std::int64_t ms = minutes * 60'000 + seconds * 1000 + fraction * 1000 / divisor;
            if (ms > SidecarTextRules::kMaxTimeMs)
                continue;
            pendingStart = ms;
            trackOpen = true;
            continue;
        }
        // PERFORMER within a track, INDEX 00 and everything else: no effect.
    }
    closeTrack();

    if (result.chapters.isEmpty())
        result.addWarning(QStringLiteral("No chapters found in CUE file"), SidecarWarningSeverity::error);
    if (!result.referencedAudioFile)
        result.addWarning(QStringLiteral("No FILE directive found"), SidecarWarningSeverity::warning);
    return result;
}

} // namespace folivox
