#pragma once

#include "build/BuildResult.h"
#include "build/SourceDamage.h"
#include "export/decision/ExportDecision.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <vector>

namespace folivox {

// What a build would do, without doing it (`folivox build --dry-run`).
struct BuildPlan {
    struct Chapter {
        QString title;
        double start = 0;    // seconds from the start of the book
        double duration = 0; // seconds
    };

    QString title;
    // The audio files in book order.
    QStringList inputs;
    std::vector<Chapter> chapters;
    QString chapterSource;
    ExportDecision::Strategy strategy = ExportDecision::Strategy::transcode;
    QStringList reasons;
    QString outputPath;
    // True when a file stands at the output and the build would replace it.
    bool replacesExisting = false;
    // The file a cover was found in (a source's own picture, or an image
    // beside the audio); empty for a cover the user gave, or none.
    QString coverSource;
    // Damaged MP3 sources, with their holes and the chapters they fall in.
    SourceDamage damage;
    QStringList warnings;
    std::vector<BuildResult::SkippedFile> skippedFiles;

    QJsonObject toJson() const;
};

} // namespace folivox
