#pragma once

#include "chapters/ChapterFormatTemplate.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// Renders chapter name templates.
//
// chapterNumber is the chapter's position counted from the config's
// startNumber; chapterCount is the number the last chapter gets under the same
// config (so with the default start of 1 it is the number of chapters, and
// "Chapter 0 of 9" stays consistent when counting from 0). chapterName is the
// chapter's current title and bookTitle the book's.
class FormatStringService {
public:
    struct Context {
        int chapterIndex = 0; // from 0
        int chapterCount = 0;
        QString chapterName;
        QString bookTitle;
    };

    // The source's bitrate, when known, for templates shown beside export
    // settings; rendering does not use it.
    std::optional<int> sourceBitrateKbps;

    QString render(const ChapterFormatTemplate& format, const Context& context) const;
    // Every chapter of a book named by the same template.
    QStringList renderAll(const ChapterFormatTemplate& format, const QStringList& chapterNames,
                          const QString& bookTitle) const;
};

} // namespace folivox
