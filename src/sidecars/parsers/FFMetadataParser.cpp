#include "sidecars/parsers/FFMetadataParser.h"

#include "sidecars/parsers/SidecarTextRules.h"

#include <cmath>

namespace folivox {

namespace {

bool startsWithHeader(const QString& text)
{
    return text.trimmed().startsWith(QStringLiteral(";FFMETADATA1"));
}

// Milliseconds from a whole number of timebase units, or nothing when the
// result is not a usable time.
std::optional<std::int64_t> toMilliseconds(std::int64_t units, double timebase)
{
    const double ms = std::trunc(static_cast<double>(units) * timebase * 1000.0);
    if (!(ms >= 0.0 && ms <= static_cast<double>(SidecarTextRules::kMaxTimeMs)))
        return std::nullopt;
    return static_cast<std::int64_t>(ms);
}

} // namespace

int FFMetadataParser::confidence(const QString& text, const QUrl&) const
{
    if (startsWithHeader(text))
        return 100;
    if (text.contains(QStringLiteral("[CHAPTER]")) && text.contains(QStringLiteral("TIMEBASE=")))
        return 80;
    return 0;
}

SidecarParseResult FFMetadataParser::parse(const QString& text, const QUrl& url) const
{
    SidecarParseResult result;
    result.format = SidecarFormat::ffmetadata;
    result.sourceURL = url;

    const QList<QStringView> lines = SidecarTextRules::splitLines(text);
    if (lines.isEmpty() || !lines.front().trimmed().startsWith(u";FFMETADATA1"))
        result.addWarning(QStringLiteral("Missing ;FFMETADATA1 header"), SidecarWarningSeverity::info);

    struct Section {
        double timebase = 0.001;
        std::optional<std::int64_t> start;
        std::optional<std::int64_t> end;
        std::optional<QString> title;
    };
    std::optional<Section> section;
    bool stopped = false;

    // Closes the open chapter section; false when the chapter limit stops the file.
    auto closeSection = [&](std::optional<int> closingLine) -> bool {
        if (!section)
            return true;
        const Section s = *section;
        section.reset();
        std::optional<std::int64_t> startMs;
        std::optional<std::int64_t> endMs;
        bool usable = false;
        if (s.start) {
            startMs = toMilliseconds(*s.start, s.timebase);
            usable = startMs.has_value();
            if (s.end) {
                endMs = toMilliseconds(*s.end, s.timebase);
                usable = usable && endMs.has_value();
            }
        }
        if (!usable) {
            result.addWarning(QStringLiteral("Chapter section missing START time"), SidecarWarningSeverity::warning,
                              closingLine);
            return true;
        }
        if (result.chapters.size() >= SidecarTextRules::kMaxChapters) {
            result.addWarning(QString::fromLatin1(SidecarTextRules::kChapterLimitMessage),
                              SidecarWarningSeverity::warning);
            return false;
        }
        const QString title = s.title ? *s.title : SidecarTextRules::chapterFallback(result.chapters.size());
        result.chapters.append(NormalizedChapter::make(title, *startMs, endMs));
        return true;
    };

    for (qsizetype i = 0; i < lines.size(); ++i) {
        const int lineNumber = static_cast<int>(i + 1);
        const QStringView line = lines[i].trimmed();
        if (line.isEmpty() || line.startsWith(u';'))
            continue;
        if (line.startsWith(u'[') && line.endsWith(u']')) {
            if (!closeSection(lineNumber)) {
                stopped = true;
                break;
            }
            const QStringView name = line.mid(1, line.size() - 2);
            if (name.toString().toUpper() == u"CHAPTER")
                section = Section{};
            continue;
        }
        if (!section)
            continue;
        const qsizetype eq = line.indexOf(u'=');
        if (eq < 0)
            continue;
        const QString key = line.left(eq).trimmed().toString().toUpper();
        const QStringView value = line.mid(eq + 1).trimmed();
        if (key == u"TIMEBASE") {
            const QList<QStringView> parts = value.split(u'/');
            if (parts.size() != 2)
                continue;
            const auto num = SidecarTextRules::decimalNumber(parts[0]);
            const auto den = SidecarTextRules::decimalNumber(parts[1]);
            if (!num || !den || *den == 0.0)
                continue;
            section->timebase = *num / *den;
        } else if (key == u"START") {
            section->start = SidecarTextRules::wholeNumber(value);
        } else if (key == u"END") {
            section->end = SidecarTextRules::wholeNumber(value);
        } else if (key == u"TITLE") {
            section->title = value.toString();
        }
    }
    if (!stopped)
        closeSection(std::nullopt);

    if (result.chapters.isEmpty())
        result.addWarning(QStringLiteral("No valid chapters found"), SidecarWarningSeverity::error);
    return result;
}

} // namespace folivox
