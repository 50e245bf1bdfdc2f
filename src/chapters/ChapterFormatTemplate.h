#pragma once

#include "chapters/FormatToken.h"

#include <QJsonObject>
#include <QList>

namespace folivox {

// A chapter name template: fixed text and variables in order, for example
// "Chapter " + chapterNumber(two digits) + ": " + chapterName.
struct ChapterFormatTemplate {
    QList<FormatToken> tokens;

    // {"tokens":[...]}. Throws ChapterFormatError.
    QJsonObject toJson() const;
    static ChapterFormatTemplate fromJson(const QJsonObject& json);

    bool operator==(const ChapterFormatTemplate&) const = default;
};

} // namespace folivox
