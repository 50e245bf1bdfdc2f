#pragma once

#include <QList>

namespace folivox::test {

// Process ids of this process's live (not yet reaped) children, read from /proc.
QList<int> liveChildren();

// Prints every child still alive (waiting briefly for late exits) and returns
// how many there were. Run at the end of each test program.
int reportLeftoverChildren();

} // namespace folivox::test
