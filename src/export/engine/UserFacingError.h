#pragma once

#include "export/engine/ExportFailureContext.h"

#include <QString>

#include <optional>

namespace folivox {

class ExportError;

// A failed build as the user reads it: a title, the message, the line that
// names the file the failed job was converting, and what to do about it.
struct UserFacingError {
    QString title;
    QString message;
    std::optional<QString> problemFile;
    std::optional<QString> recoverySuggestion;

    // The problem-file line for a failed job. A job whose source looks
    // damaged: "Problem file: %@. It looks damaged, …"; any other job: "The
    // export stopped while converting “%@”.". %@ is the first file name, or
    // with several names "%@ and %d more". No line when the job had no file.
    static std::optional<QString> problemFileLine(const ExportFailureContext& context);

    // The first name alone, or the first name and how many more files shared
    // the job (key "export.error.problemFile.nameAndMore").
    static QString nameAndMore(const QStringList& names);

    // The whole text for a failed build; the context adds the problem-file
    // line. A full disk and a cancel get their own recovery suggestion.
    static UserFacingError make(const ExportError& error, const std::optional<ExportFailureContext>& context);

    // All parts joined for a terminal: message, problem file, suggestion.
    QString fullText() const;
};

} // namespace folivox
