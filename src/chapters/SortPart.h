#pragma once

#include <QList>
#include <QString>

namespace folivox {

// A piece of a name for comparison: a run of digits (compared by value) or a
// run of anything else (compared without regard to case). "Part 10" then
// orders after "Part 9".
struct SortPart {
    enum class Kind { number, text };

    Kind kind = Kind::text;
    long long number = 0;
    QString text;

    static QList<SortPart> split(const QString& name);
    // Negative, 0 or positive. Numbers order before text at the same place.
    static int compare(const QString& a, const QString& b);

    bool operator==(const SortPart&) const = default;
};

} // namespace folivox
