#pragma once

#include "chapters/BatchRenameOptions.h"
#include "chapters/FindReplaceResult.h"
#include "chapters/FindReplaceService.h"

#include <QStringList>

#include <optional>

namespace folivox {

struct BatchRenameResult {
    QStringList titles;
    // Set when the find and replace step failed; titles are then unchanged.
    std::optional<FindReplaceError> error;
};

// Cleans a list of chapter titles through a fixed pipeline.
//
// Stage one looks at all titles together (two or more): the start, then the
// end, that they all share is cut. The cut stops at a word boundary, so
// "Chapter 1" and "Chapter 10" lose "Chapter " and not "Chapter 1".
//
// Stage two treats each title alone, in this order: numeric prefix, trailing
// numbers, file extension, bracket contents, all brackets, common prefixes
// ("Chapter 5:", "Part II -"), repeated words, find and replace, white space
// then delimiters, case, trimming, numbering.
//
// No removal step leaves a title empty: a step that would remove everything
// keeps the title as it was before that step.
class BatchRenameService {
public:
    explicit BatchRenameService(FindReplaceService finder = FindReplaceService()) : finder_(finder) {}

    BatchRenameResult apply(const QStringList& titles, const BatchRenameOptions& options, bool findUsesRegex = false,
                            bool findMatchesCase = false) const;

    // The steps on their own.
    static QStringList removeRepeatedBeginning(const QStringList& titles);
    static QStringList removeRepeatedEnd(const QStringList& titles);
    static QString removeNumericPrefix(const QString& title);
    static QString removeTrailingNumbers(const QString& title);
    static QString removeFileExtension(const QString& title);
    static QString removeBracketContents(const QString& title);
    static QString removeAllBrackets(const QString& title);
    static QString removeCommonPrefixes(const QString& title);
    static QString removeDuplicateWords(const QString& title);
    static QString normalizeWhitespace(const QString& title);
    static QString normalizeDelimiters(const QString& title);
    static QString changeCase(const QString& title, CapitalizationStyle style);
    static QString numbered(const QString& title, int number, const BatchRenameOptions& options);

    static const QStringList& audioExtensions();

private:
    FindReplaceService finder_;
};

} // namespace folivox
