#include "cli/ProgressReporter.h"

#include "cli/Console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace folivox::cli {

namespace {

int terminalColumns()
{
    winsize size{};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

} // namespace

ProgressReporter::ProgressReporter(Style style, std::FILE* stream)
    : columns(terminalColumns)
    , style_(style)
    , stream_(stream)
{
    started_.start();
    phaseStarted_.start();
}

ProgressReporter ProgressReporter::forConsole(bool quiet)
{
    if (quiet)
        return ProgressReporter(Style::Quiet);
    return ProgressReporter(Console::stderrIsTerminal() ? Style::Bar : Style::Lines);
}

void ProgressReporter::setMediaSeconds(double seconds)
{
    std::lock_guard lock(mutex_);
    mediaSeconds_ = std::max(0.0, seconds);
}

QString ProgressReporter::durationText(double seconds)
{
    const qint64 s = static_cast<qint64>(std::llround(std::max(0.0, seconds)));
    if (s >= 3600)
        return QStringLiteral("%1:%2:%3").arg(s / 3600).arg((s / 60) % 60, 2, 10, QChar(u'0')).arg(s % 60, 2, 10, QChar(u'0'));
    return QStringLiteral("%1:%2").arg(s / 60).arg(s % 60, 2, 10, QChar(u'0'));
}

QString ProgressReporter::barText(const Line& line, int columns)
{
    const int limit = std::max(10, columns - 1);
    const int percent = static_cast<int>(std::floor(std::clamp(line.fraction, 0.0, 1.0) * 100.0));
    const QString percentText = QStringLiteral("%1%").arg(percent, 3);
    QString times = durationText(line.elapsedSeconds);
    if (line.remainingSeconds)
        times += QStringLiteral(" ETA ") + durationText(*line.remainingSeconds);
    const QString speed = line.speed ? QStringLiteral("%1×").arg(*line.speed, 0, 'f', *line.speed < 10 ? 1 : 0) : QString();

    // Pieces after the bar, dropped from the least needed as space runs out.
    QStringList tail{percentText, times, speed};
    tail.removeAll(QString());
    QString phase = line.phase;
    constexpr int minBar = 10;
    constexpr int minPhase = 12;
    const auto tailWidth = [&tail] {
        int w = 0;
        for (const QString& t : tail)
            w += static_cast<int>(t.size()) + 1;
        return w;
    };
    while (tail.size() > 1 && minPhase + 3 + minBar + tailWidth() > limit)
        tail.removeLast();
    int room = limit - tailWidth() - 3; // " [" and "]"
    int phaseWidth = std::min<int>(static_cast<int>(phase.size()), std::max(0, room - minBar));
    phaseWidth = std::min(phaseWidth, 28);
    if (phaseWidth < phase.size())
        phase = phaseWidth > 1 ? phase.left(phaseWidth - 1) + u'…' : QString();
    const int barWidth = std::clamp(room - static_cast<int>(phase.size()), 0, 40);
    const int filled = static_cast<int>(std::floor(std::clamp(line.fraction, 0.0, 1.0) * barWidth));
    QString text = phase;
    if (barWidth > 0)
        text += QStringLiteral(" [") + QString(filled, u'#') + QString(barWidth - filled, u'-') + u']';
    for (const QString& t : tail)
        text += u' ' + t;
    return text.left(limit);
}

void ProgressReporter::update(const QString& phase, double fraction)
{
    if (style_ == Style::Quiet)
        return;
    std::lock_guard lock(mutex_);
    if (!std::isfinite(fraction))
        fraction = 0;
    fraction = std::clamp(fraction, 0.0, 1.0);
    if (phase != phase_) {
        phase_ = phase;
        permille_ = -1;
        percent_ = -1;
        phaseStarted_.restart();
    }
    if (style_ == Style::Bar) {
        const int permille = static_cast<int>(std::floor(fraction * 1000.0));
        if (permille <= permille_)
            return;
        permille_ = permille;
        Line line;
        line.phase = phase_;
        line.fraction = fraction;
        line.elapsedSeconds = double(started_.elapsed()) / 1000.0;
        const double phaseSeconds = double(phaseStarted_.elapsed()) / 1000.0;
        if (fraction >= 0.02 && fraction < 1.0 && phaseSeconds >= 1.0)
            line.remainingSeconds = phaseSeconds * (1.0 - fraction) / fraction;
        if (mediaSeconds_ > 0 && phaseSeconds >= 1.0 && fraction > 0)
            line.speed = mediaSeconds_ * fraction / phaseSeconds;
        // Clear to the end of the line, so a shorter redraw leaves no rest.
        writeText(u'\r' + barText(line, columns ? columns() : 80) + QStringLiteral("\x1b[K"), true);
        return;
    }
    const int percent = static_cast<int>(std::floor(fraction * 100.0));
    if (percent <= percent_)
        return;
    percent_ = percent;
    writeText(QStringLiteral("%1: %2%\n").arg(phase_).arg(percent), false);
}

void ProgressReporter::finish()
{
    std::lock_guard lock(mutex_);
    if (barOpen_) {
        std::fputs("\n", stream_);
        std::fflush(stream_);
        barOpen_ = false;
    }
}

void ProgressReporter::writeText(const QString& text, bool redraw)
{
    const QByteArray b = text.toUtf8();
    std::fwrite(b.constData(), 1, static_cast<size_t>(b.size()), stream_);
    std::fflush(stream_);
    barOpen_ = redraw;
}

} // namespace folivox::cli
