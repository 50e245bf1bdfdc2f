#pragma once

#include <QElapsedTimer>
#include <QString>

#include <cstdio>
#include <mutex>

namespace folivox::cli {

// Shows a run's progress on stderr: a redrawn bar on a terminal, plain lines
// otherwise (one each time the whole percent or the phase changes), nothing
// when quiet. Progress never goes backwards within a phase. Thread-safe.
class ProgressReporter {
public:
    enum class Style { Bar, Lines, Quiet };

    explicit ProgressReporter(Style style, std::FILE* stream = stderr);
    // Bar on a terminal, lines otherwise, or quiet.
    static ProgressReporter forConsole(bool quiet);

    void update(const QString& phase, double fraction);
    // Ends the bar's line.
    void finish();

    Style style() const { return style_; }

private:
    void writeText(const QString& text, bool redraw);

    Style style_;
    std::FILE* stream_;
    std::mutex mutex_;
    QString phase_;
    int percent_ = -1;
    bool barOpen_ = false;
};

} // namespace folivox::cli
