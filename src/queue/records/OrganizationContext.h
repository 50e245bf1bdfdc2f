#pragma once

#include "core/book/BookMetadata.h"

#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// The values a folder template is filled from, taken from the book's tags
// when the job is queued. JSON: title, and each other value when present.
struct OrganizationContext {
    QString title;
    std::optional<QString> author;
    std::optional<QString> narrator;
    std::optional<QString> series;
    std::optional<QString> seriesIndex;
    std::optional<QString> year;
    std::optional<QString> genre;

    static OrganizationContext from(const BookMetadata& metadata);
    // The value of a placeholder name ("author"); empty when the book has none.
    QString value(const QString& name) const;

    QJsonObject toJson() const;
    static OrganizationContext fromJson(const QJsonObject& json);
    bool operator==(const OrganizationContext&) const = default;
};

} // namespace folivox
