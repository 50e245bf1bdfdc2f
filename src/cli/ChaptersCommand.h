#pragma once

#include "cli/Command.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace folivox::cli {

// `folivox chapters [--json] FILE [--audio AUDIO...]`: parses one chapter
// file and shows its format, chapters and warnings. With audio files it also
// validates the chapters against the audio's total length and scores how well
// the file fits the audio (points, evidence and confidence).
//
// Audio durations come through a DurationProbe; the default reads them in
// process with libavformat.
class ChaptersCommand : public Command {
public:
    // Milliseconds, or nothing when the length can't be read.
    using DurationProbe = std::function<std::optional<std::int64_t>(const QString& path)>;

    explicit ChaptersCommand(DurationProbe probe = audioDuration);

    QString name() const override { return QStringLiteral("chapters"); }
    QString summary() const override { return QStringLiteral("parse a chapter file, optionally against audio"); }
    QString usage() const override;
    int run(const QStringList& args) override;

    static std::optional<std::int64_t> audioDuration(const QString& path);

private:
    DurationProbe probe_;
};

} // namespace folivox::cli
