#pragma once

#include <QString>
#include <QUuid>

namespace folivox {

// Tells the user that a saved preset was applied in a reduced form, because
// the book's sources could not use all of it. appliedSummary is the summary
// of the settings actually applied (ExportSettings::summary()).
struct UserPresetCapWarning {
    QUuid id = QUuid::createUuid();
    QString presetName;
    QString appliedSummary;

    bool operator==(const UserPresetCapWarning&) const = default;
};

} // namespace folivox
