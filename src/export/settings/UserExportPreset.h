#pragma once

#include "core/settings/ExportSettings.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>

namespace folivox {

// A set of export settings the user saved under a name. All four keys are
// required on decode.
struct UserExportPreset {
    QUuid id = QUuid::createUuid();
    QString name;
    ExportSettings settings;
    QDateTime createdAt = QDateTime::currentDateTimeUtc();

    QJsonObject toJson() const;
    static UserExportPreset fromJson(const QJsonObject& json);

    bool operator==(const UserExportPreset&) const = default;
};

} // namespace folivox
