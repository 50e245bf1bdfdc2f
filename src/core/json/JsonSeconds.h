#pragma once

#include <cmath>

namespace folivox {

// Times in the command line's JSON: seconds as numbers, rounded to the
// millisecond, so that every document speaks one unit with one precision.
struct JsonSeconds {
    static double value(double seconds) { return std::round(seconds * 1000.0) / 1000.0; }
};

} // namespace folivox
