#pragma once

#include "core/json/EnumNames.h"

#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <optional>

namespace folivox {

enum class SidecarWarningSeverity { info, warning, error };

template<>
struct EnumNames<SidecarWarningSeverity> {
    static constexpr const char* typeName = "SidecarWarningSeverity";
    static constexpr std::array items{
        std::pair{SidecarWarningSeverity::info, "info"},
        std::pair{SidecarWarningSeverity::warning, "warning"},
        std::pair{SidecarWarningSeverity::error, "error"},
    };
};

QString sidecarWarningSeverityRawValue(SidecarWarningSeverity severity);

// One fault found while reading a chapter file. lineNumber counts from 1 over
// every line of the file, blank ones included; a warning about the whole file
// has none.
struct SidecarWarning {
    QUuid id;
    QString message;
    SidecarWarningSeverity severity = SidecarWarningSeverity::info;
    std::optional<int> lineNumber;

    static SidecarWarning make(const QString& message, SidecarWarningSeverity severity,
                               std::optional<int> lineNumber = std::nullopt);

    QJsonObject toJson() const;
    // Throws DecodingError.
    static SidecarWarning fromJson(const QJsonObject& json);

    bool operator==(const SidecarWarning&) const = default;
};

} // namespace folivox
