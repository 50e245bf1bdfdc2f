#include "cli/ProgressReporter.h"

#include "cli/Console.h"

#include <algorithm>
#include <cmath>

namespace folivox::cli {

ProgressReporter::ProgressReporter(Style style, std::FILE* stream)
    : style_(style)
    , stream_(stream)
{
}

ProgressReporter ProgressReporter::forConsole(bool quiet)
{
    if (quiet)
        return ProgressReporter(Style::Quiet);
    return ProgressReporter(Console::stderrIsTerminal() ? Style::Bar : Style::Lines);
}

void ProgressReporter::update(const QString& phase, double fraction)
{
    if (style_ == Style::Quiet)
        return;
    std::lock_guard lock(mutex_);
    if (!std::isfinite(fraction))
        fraction = 0;
    int percent = static_cast<int>(std::floor(std::clamp(fraction, 0.0, 1.0) * 100.0));
    if (phase != phase_) {
        phase_ = phase;
        percent_ = -1;
    }
    if (percent <= percent_)
        return;
    percent_ = percent;
    if (style_ == Style::Bar) {
        constexpr int width = 30;
        const int filled = percent * width / 100;
        const QString bar = QString(filled, u'#') + QString(width - filled, u'-');
        writeText(QStringLiteral("\r%1 [%2] %3%").arg(phase_, -24).arg(bar).arg(percent, 3), true);
    } else {
        writeText(QStringLiteral("%1: %2%\n").arg(phase_).arg(percent), false);
    }
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
