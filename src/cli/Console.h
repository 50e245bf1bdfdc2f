#pragma once

#include <QString>

namespace folivox::cli {

// Writes to the terminal as UTF-8, unbuffered on stderr.
class Console {
public:
    static void out(const QString& text);
    static void err(const QString& text);
    // True when stderr is an interactive terminal (progress shows as a bar).
    static bool stderrIsTerminal();
};

} // namespace folivox::cli
