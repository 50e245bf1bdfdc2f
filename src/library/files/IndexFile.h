#pragma once

#include "library/LibraryBookSummary.h"

#include <QJsonObject>

#include <vector>

namespace folivox {

// index.json: the summaries of every book, in the library's order.
struct IndexFile {
    int schemaVersion = 1;
    std::vector<LibraryBookSummary> books;

    QJsonObject toJson() const;
    static IndexFile fromJson(const QJsonObject& json);
};

} // namespace folivox
