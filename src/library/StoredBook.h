#pragma once

#include "core/book/BookStateDTO.h"

#include <QJsonObject>
#include <QMap>
#include <QString>

namespace folivox {

// book.json: one book's state and the names of its files under assets/
// (asset key within the book -> file name).
struct StoredBook {
    int schemaVersion = 1;
    BookStateDTO state;
    QMap<QString, QString> assetRefs;

    QJsonObject toJson() const;
    static StoredBook fromJson(const QJsonObject& json);
};

} // namespace folivox
