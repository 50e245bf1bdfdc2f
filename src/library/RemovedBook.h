#pragma once

#include "library/LibraryBookSummary.h"

#include <QJsonObject>

namespace folivox {

// A book taken out of the library: its place in the list, its summary, and
// whether its folder reached the trash (so that it can be put back). The
// same record is kept beside the folder in the trash, so a later process can
// put the book back at its place too.
struct RemovedBook {
    int index = 0;
    LibraryBookSummary summary;
    bool restorable = false;

    QJsonObject toJson() const;
    static RemovedBook fromJson(const QJsonObject& json);
};

} // namespace folivox
