#pragma once

#include "build/SourceDamage.h"
#include "core/settings/ExportSettings.h"
#include "export/engine/ExportContext.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <vector>

namespace folivox {

// What one build made, for every front end to show in its own way.
struct BuildResult {
    // An input that could not be read and was left out of the book.
    struct SkippedFile {
        QString path;
        QString reason;
    };

    ExportOutcome outcome;
    QString title;
    int trackCount = 0;
    // Where the chapters came from: "audio", or the chapter file's name.
    QString chapterSource;
    // The book's length in seconds.
    double duration = 0;
    ExportSettings settings;
    QString logFile;
    // The file a cover was found in (a source's own picture, or an image
    // beside the audio); empty for a cover the user gave, or none.
    QString coverSource;
    // Damaged MP3 sources, with their holes and the chapters they fall in.
    SourceDamage damage;
    // Things the user should read: chapter-file warnings, sidecar decisions,
    // import reports.
    QStringList warnings;
    std::vector<SkippedFile> skippedFiles;

    QJsonObject toJson() const;
};

} // namespace folivox
