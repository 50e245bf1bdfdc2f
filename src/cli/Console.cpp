#include "cli/Console.h"

#include <cstdio>
#include <unistd.h>

namespace folivox::cli {

void Console::out(const QString& text)
{
    const QByteArray b = text.toUtf8();
    std::fwrite(b.constData(), 1, static_cast<size_t>(b.size()), stdout);
    std::fflush(stdout);
}

void Console::err(const QString& text)
{
    const QByteArray b = text.toUtf8();
    std::fwrite(b.constData(), 1, static_cast<size_t>(b.size()), stderr);
    std::fflush(stderr);
}

bool Console::stderrIsTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

} // namespace folivox::cli
