#pragma once

#include "import/TrackLoadOutcome.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// What the user is told after an import that repaired or skipped files.
struct ImportReport {
    QString title;
    QString message;

    // The most files a report lists by name.
    static constexpr int kListLimit = 10;

    // No report when every file loaded as it was. timeoutSeconds is the
    // stall interval named in the timeout reason.
    static std::optional<ImportReport> from(const TrackLoadOutcome& outcome, int timeoutSeconds = 10);

    // Fills "%1$d"/"%2$@"-style numbered placeholders, then the plain ones
    // ("%d", "%@") in order with the arguments that are left.
    static QString fill(const QString& pattern, const QStringList& args);
};

} // namespace folivox
