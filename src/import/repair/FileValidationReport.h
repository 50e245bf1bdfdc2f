#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

namespace folivox {

class FFmpegWrapper;

// A built file checked against what was asked for: format, length and
// chapters, read back from the file through `ffmpeg -i`.
struct FileValidationReport {
    enum class ValidationStatus { pass, warning, fail, skipped };

    struct ValidationCheck {
        QString category;  // "Codec", "Sample Rate", "Channels", "Bitrate", "Duration",
                           // "Chapter Count", "Chapter Titles", "Chapter Timestamps"
        ValidationStatus status = ValidationStatus::skipped;
        QString expected;
        QString actual;
        std::optional<QString> detail;
    };

    struct MetadataEntry {
        QString key;
        QString value;
    };

    struct ChapterComparisonEntry {
        int index = 0;
        QString expectedTitle;
        std::optional<QString> actualTitle;
        bool titleMatch = false;
        double expectedDuration = 0;
        std::optional<double> actualDuration;
        bool durationMatch = false;
    };

    // What the file should be. Empty fields are not checked.
    struct Expectation {
        std::optional<QString> codec;        // "aac-lc", "he-aac", "mp3", ...
        std::optional<int> sampleRate;
        std::optional<int> channels;
        std::optional<int> bitrate;          // bits per second
        std::optional<double> duration;      // seconds: the sum of the track durations
        struct Chapter {
            QString title;
            double duration = 0;
        };
        QList<Chapter> chapters;
    };

    // A chapter as ffmpeg lists it.
    struct ListedChapter {
        double start = 0;
        double end = 0;
        QString title;
    };

    static constexpr double kBitrateTolerance = 0.20;  // 20 percent
    static constexpr double kDurationTolerance = 5.0;  // seconds
    static constexpr double kChapterDurationTolerance = 1.0;  // seconds

    QUrl fileURL;
    quint64 fileSize = 0;
    QList<ValidationCheck> checks;
    QList<MetadataEntry> metadataDump;
    QList<ChapterComparisonEntry> chaptersComparison;

    // True when no check failed.
    bool passed() const;

    // Reads the file with `ffmpeg -i` and checks it. Throws what the tool
    // layer throws for a missing binary or a refused path.
    static FileValidationReport validate(const QString& path, const Expectation& expected, const FFmpegWrapper& ffmpeg);

    // The checks over one `ffmpeg -i` text of a file.
    static FileValidationReport fromFFmpegOutput(const QString& path, quint64 fileSize, const Expectation& expected,
                                                 const QString& ffmpegOutput);

    // Chapters listed by "Chapter #(\d+):(\d+): start ([\d.]+), end ([\d.]+)",
    // with the title from the metadata lines below each.
    static QList<ListedChapter> parseChapters(const QString& ffmpegOutput);
    // The container's "Metadata:" block.
    static QList<MetadataEntry> parseMetadata(const QString& ffmpegOutput);

    static QString statusName(ValidationStatus status);
    QJsonObject toJson() const;
};

} // namespace folivox
