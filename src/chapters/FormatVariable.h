#pragma once

#include "chapters/NumberingConfig.h"

#include <QJsonObject>
#include <QString>

namespace folivox {

// A value a chapter name template can insert. The numbering cases carry their
// NumberingConfig.
struct FormatVariable {
    enum class Kind { chapterNumber, chapterCount, chapterName, bookTitle };

    Kind kind = Kind::chapterName;
    NumberingConfig config; // chapterNumber and chapterCount only

    static FormatVariable chapterNumber(NumberingConfig config = {}) { return {Kind::chapterNumber, config}; }
    static FormatVariable chapterCount(NumberingConfig config = {}) { return {Kind::chapterCount, config}; }
    static FormatVariable chapterName() { return {Kind::chapterName, {}}; }
    static FormatVariable bookTitle() { return {Kind::bookTitle, {}}; }

    bool hasConfig() const { return kind == Kind::chapterNumber || kind == Kind::chapterCount; }
    QString caseName() const;
    // The localised label ("format.variable.<case>").
    QString label() const;

    // One key, the case's name: {"chapterNumber":{"config":{...}}} or
    // {"chapterName":{}}. Throws ChapterFormatError.
    QJsonObject toJson() const;
    static FormatVariable fromJson(const QJsonObject& json);

    bool operator==(const FormatVariable& other) const
    {
        return kind == other.kind && (!hasConfig() || config == other.config);
    }
};

} // namespace folivox
