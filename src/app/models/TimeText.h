#pragma once

#include <QString>

#include <optional>

namespace folivox {

// Times as the window shows and reads them: "m:ss.mmm" under an hour,
// "h:mm:ss.mmm" from an hour up; short forms ("1:23:45", "83.5") are read too.
class TimeText {
public:
    static QString format(double seconds, bool withMilliseconds = true);
    // No value for text that is not a time.
    static std::optional<double> parse(const QString& text);
};

} // namespace folivox
