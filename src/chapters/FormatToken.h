#pragma once

#include "chapters/FormatVariable.h"

#include <QJsonObject>
#include <QString>

namespace folivox {

// One piece of a chapter name template: fixed text or a variable.
struct FormatToken {
    enum class Kind { text, variable };

    Kind kind = Kind::text;
    QString text;
    FormatVariable variable;

    static FormatToken fixed(const QString& text) { return {Kind::text, text, {}}; }
    static FormatToken of(const FormatVariable& variable) { return {Kind::variable, {}, variable}; }

    // {"text":{"_0":"..."}} or {"variable":{"_0":{...}}}. Throws ChapterFormatError.
    QJsonObject toJson() const;
    static FormatToken fromJson(const QJsonObject& json);

    bool operator==(const FormatToken& other) const
    {
        return kind == other.kind && (kind == Kind::text ? text == other.text : variable == other.variable);
    }
};

} // namespace folivox
