#pragma once

#include "export/settings/UserExportPreset.h"

#include <QJsonValue>
#include <QString>
#include <QUuid>

#include <mutex>
#include <optional>
#include <vector>

namespace folivox {

class AppSettings;

// The user's saved export presets, kept in the settings under
// "export.userPresets" as the text of one JSON array. Rows are read one at a
// time: a row that does not decode is left out of the list and the others
// stay. Such a row is kept in storage as it was (it may come from a newer
// version), and written back after the readable rows on every save.
//
// Names are compared trimmed and without regard to case; two presets never
// share a name.
class UserPresetStore {
public:
    static constexpr const char* settingsKey = "export.userPresets";

    // One stored row: the preset when it decoded.
    struct LenientRow {
        std::optional<UserExportPreset> preset;
        static LenientRow fromJson(const QJsonValue& json);
    };

    // The result of a rename.
    struct RenameResult {
        enum class Kind { renamed, nameTaken, unchanged, notFound };
        Kind kind = Kind::notFound;
        std::optional<UserExportPreset> preset; // for renamed: the preset as now stored
        QString takenName;                      // for nameTaken: the name asked for

        static RenameResult renamed(UserExportPreset p) { return {Kind::renamed, std::move(p), {}}; }
        static RenameResult nameTaken(QString name) { return {Kind::nameTaken, std::nullopt, std::move(name)}; }
        static RenameResult unchanged() { return {Kind::unchanged, std::nullopt, {}}; }
        static RenameResult notFound() { return {Kind::notFound, std::nullopt, {}}; }
    };

    // Reads and writes through `settings`, which must outlive the store.
    explicit UserPresetStore(AppSettings& settings);

    // The readable presets, in stored order.
    std::vector<UserExportPreset> presets() const;
    std::optional<UserExportPreset> preset(const QUuid& id) const;

    // True when another preset (not `except`) has this name.
    bool isNameTaken(const QString& name, const std::optional<QUuid>& except = std::nullopt) const;

    // Saves new settings under a name. No value when the trimmed name is
    // empty or already taken; nothing is stored then.
    std::optional<UserExportPreset> add(const QString& name, const ExportSettings& settings);

    // nameTaken leaves the preset as it was. A name equal to the current one
    // (after trimming) or an empty name is `unchanged`.
    RenameResult rename(const QUuid& id, const QString& newName);

    // Replaces the settings of a saved preset; false when there is none.
    bool updateSettings(const QUuid& id, const ExportSettings& settings);

    // False when there is no preset with this id.
    bool remove(const QUuid& id);

private:
    struct Stored {
        std::vector<UserExportPreset> presets;
        std::vector<QJsonValue> unreadable;
    };
    Stored load() const;
    void save(const Stored& stored);
    static bool sameName(const QString& a, const QString& b);

    AppSettings& settings_;
    mutable std::mutex mutex_;
};

} // namespace folivox
