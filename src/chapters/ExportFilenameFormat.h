#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace folivox {

// How an output file is named from the book's tags. Elements are joined by
// " - "; the cases ending in Brackets, Braces or Parens put the last element in
// "[...]", "{...}" or "(...)" instead. A series carries its index when it has
// one ("Series 3"). Elements without a value are left out with their joiner.
enum class ExportFilenameFormat {
    title,
    authorTitle,
    titleAuthor,
    seriesTitle,
    authorSeriesTitle,
    authorTitleSeries,
    authorTitleSeriesBrackets,
    authorTitleNarratorBraces,
    authorTitleNarratorParens,
    authorSeriesTitleNarratorBraces,
    authorSeriesTitleNarratorParens,
    authorTitleYear,
    titleYear,
};

struct ExportFilenameFields {
    QString title;
    QString author;
    QString series;
    QString seriesIndex;
    QString narrator;
    QString year;
};

// A group of cases for display.
struct ExportFilenameSection {
    QString title;
    QList<ExportFilenameFormat> cases;
};

class ExportFilenames {
public:
    ExportFilenames() = delete;

    static const QList<ExportFilenameFormat>& allCases();
    static QString rawValue(ExportFilenameFormat format);
    static std::optional<ExportFilenameFormat> fromRawValue(const QString& raw);
    static QList<ExportFilenameSection> sections();

    // The file name without extension, made safe for file systems: path
    // separators and colons become "-", control characters go, white space is
    // collapsed, leading dots are dropped, and the result is at most 200
    // characters. An empty result is "Untitled".
    static QString render(ExportFilenameFormat format, const ExportFilenameFields& fields);
    // The same format filled with sample tags, for pickers.
    static QString example(ExportFilenameFormat format);
    static QString sanitize(const QString& name);
};

} // namespace folivox
