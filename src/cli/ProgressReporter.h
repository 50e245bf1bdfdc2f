#pragma once

#include <QElapsedTimer>
#include <QString>
#include <QStringList>

#include <cstdio>
#include <functional>
#include <optional>
#include <mutex>

namespace folivox::cli {

// Shows a run's progress on stderr: a bar redrawn in place on a terminal
// (phase, bar, percent, elapsed time, time left and speed against real time,
// fitted to the terminal's width), plain lines otherwise (one each time the
// whole percent or the phase changes), nothing when quiet. Progress never
// goes backwards within a phase. Thread-safe.
class ProgressReporter {
public:
    enum class Style { Bar, Lines, Quiet };

    explicit ProgressReporter(Style style, std::FILE* stream = stderr);
    // Bar on a terminal, lines otherwise, or quiet.
    static ProgressReporter forConsole(bool quiet);

    void update(const QString& phase, double fraction);
    // The length of the audio being worked on, for the speed (× real time).
    void setMediaSeconds(double seconds);
    // Ends the bar's line.
    void finish();

    Style style() const { return style_; }

    // The bar's line for a terminal of `columns` columns: never longer than
    // columns - 1, dropping the speed, then the times, then narrowing the
    // bar and the phase text as the terminal narrows.
    struct Line {
        QString phase;
        double fraction = 0;
        double elapsedSeconds = 0;
        std::optional<double> remainingSeconds;
        std::optional<double> speed;
    };
    static QString barText(const Line& line, int columns);
    static QString durationText(double seconds);

    // The terminal's width (80 when it cannot be told); replaceable for tests.
    std::function<int()> columns;

private:
    void writeText(const QString& text, bool redraw);

    Style style_;
    std::FILE* stream_;
    std::mutex mutex_;
    QString phase_;
    int permille_ = -1;
    int percent_ = -1;
    bool barOpen_ = false;
    double mediaSeconds_ = 0;
    QElapsedTimer started_;
    QElapsedTimer phaseStarted_;
};

} // namespace folivox::cli
