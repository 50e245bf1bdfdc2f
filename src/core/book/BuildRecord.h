#pragma once

#include "core/chapters/ChapterSnapshot.h"
#include "core/settings/ExportSettingsEnums.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>

#include <vector>

namespace folivox {

// The last build of a library book: when it ran, which revision of the book
// it built, with which settings (by fingerprint) and format, and every file it
// wrote with the size and modification time it had when the build ended.
// Comparing those with the disk tells whether the output is still the one the
// build made. The book's chapters as they were built (start, length, first
// track) tell whether the book can still be written into those files in place:
// they are compared with the book's chapters of now, on the same clock.
//
// JSON: builtAt, revision, settingsFingerprint, format and outputs are all
// required; each output has path, size and modifiedAt. chapters is left out
// when empty (records written before it was kept).
struct BuildRecord {
    struct Output {
        QString path;       // absolute local path
        quint64 size = 0;   // bytes
        QDateTime modifiedAt;

        QJsonObject toJson() const;
        static Output fromJson(const QJsonObject& json);
        bool operator==(const Output&) const = default;
    };

    QDateTime builtAt;
    int revision = 0;
    QString settingsFingerprint;
    OutputFormat format = OutputFormat::m4b;
    std::vector<Output> outputs;
    std::vector<ChapterSnapshot> chapters;

    QJsonObject toJson() const;
    static BuildRecord fromJson(const QJsonObject& json);
    bool operator==(const BuildRecord&) const = default;
};

} // namespace folivox
