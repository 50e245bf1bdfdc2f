#pragma once

#include "queue/records/OrganizationContext.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace folivox {

// Sub-folders of the destination for a book, from a template of folder
// names with placeholders: "{author}/{series}/{title}". The placeholders are
// title, author, narrator, series, seriesIndex, year and genre. A folder
// whose placeholders are all empty for a book is left out (a book with no
// series goes straight into its author's folder), and each folder name is
// made safe for the file system. An empty template puts the book in the
// destination itself.
//
// replacesExisting: the user allowed the job to replace a book already at
// its planned output (-f when queuing); without it the job fails rather
// than write over a file that appeared there since.
//
// JSON: folderTemplate, replacesExisting.
struct OutputOrganization {
    QString folderTemplate;
    bool replacesExisting = false;

    static QStringList placeholderNames();

    // The placeholders of the template that are not known, for a usage error.
    QStringList unknownPlaceholders() const;
    // The relative folder for a book ("Le Guin/Earthsea"), empty for none.
    QString folderFor(const OrganizationContext& context) const;

    QJsonObject toJson() const;
    static OutputOrganization fromJson(const QJsonObject& json);
    bool operator==(const OutputOrganization&) const = default;
};

} // namespace folivox
