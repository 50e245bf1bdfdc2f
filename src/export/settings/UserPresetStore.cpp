#include "export/settings/UserPresetStore.h"

#include "core/json/DecodingError.h"
#include "core/json/JsonReader.h"
#include "platform/AppSettings.h"
#include "platform/Log.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>

namespace folivox {

UserPresetStore::LenientRow UserPresetStore::LenientRow::fromJson(const QJsonValue& json)
{
    try {
        return LenientRow{JsonReader::decode<UserExportPreset>(json, {})};
    } catch (const DecodingError& e) {
        Log::write(QStringLiteral("[Presets] Dropped a saved preset that cannot be read: %1").arg(e.description()));
        return LenientRow{std::nullopt};
    }
}

UserPresetStore::UserPresetStore(AppSettings& settings) : settings_(settings) {}

UserPresetStore::Stored UserPresetStore::load() const
{
    Stored stored;
    const QString text = settings_.value(QString::fromLatin1(settingsKey)).toString();
    if (text.isEmpty())
        return stored;
    QJsonArray rows;
    try {
        rows = JsonReader::parseArray(text.toUtf8());
    } catch (const DecodingError& e) {
        Log::write(QStringLiteral("[Presets] Saved presets cannot be read: %1").arg(e.description()));
        return stored;
    }
    for (const QJsonValue& row : rows) {
        LenientRow decoded = LenientRow::fromJson(row);
        if (decoded.preset)
            stored.presets.push_back(std::move(*decoded.preset));
        else
            stored.unreadable.push_back(row);
    }
    return stored;
}

void UserPresetStore::save(const Stored& stored)
{
    QJsonArray rows;
    for (const UserExportPreset& p : stored.presets)
        rows.append(p.toJson());
    for (const QJsonValue& row : stored.unreadable)
        rows.append(row);
    settings_.setValue(QString::fromLatin1(settingsKey),
                       QString::fromUtf8(QJsonDocument(rows).toJson(QJsonDocument::Compact)));
    settings_.sync();
}

bool UserPresetStore::sameName(const QString& a, const QString& b)
{
    return a.trimmed().compare(b.trimmed(), Qt::CaseInsensitive) == 0;
}

std::vector<UserExportPreset> UserPresetStore::presets() const
{
    std::lock_guard lock(mutex_);
    return load().presets;
}

std::optional<UserExportPreset> UserPresetStore::preset(const QUuid& id) const
{
    std::lock_guard lock(mutex_);
    for (UserExportPreset& p : load().presets) {
        if (p.id == id)
            return std::move(p);
    }
    return std::nullopt;
}

bool UserPresetStore::isNameTaken(const QString& name, const std::optional<QUuid>& except) const
{
    std::lock_guard lock(mutex_);
    const Stored stored = load();
    return std::any_of(stored.presets.begin(), stored.presets.end(), [&](const UserExportPreset& p) {
        return (!except || p.id != *except) && sameName(p.name, name);
    });
}

std::optional<UserExportPreset> UserPresetStore::add(const QString& name, const ExportSettings& settings)
{
    const QString trimmed = name.trimmed();
    if (trimmed.isEmpty())
        return std::nullopt;
    std::lock_guard lock(mutex_);
    Stored stored = load();
    for (const UserExportPreset& p : stored.presets) {
        if (sameName(p.name, trimmed))
            return std::nullopt;
    }
    UserExportPreset preset;
    preset.name = trimmed;
    preset.settings = settings;
    stored.presets.push_back(preset);
    save(stored);
    return preset;
}

UserPresetStore::RenameResult UserPresetStore::rename(const QUuid& id, const QString& newName)
{
    const QString trimmed = newName.trimmed();
    std::lock_guard lock(mutex_);
    Stored stored = load();
    auto it = std::find_if(stored.presets.begin(), stored.presets.end(),
                           [&](const UserExportPreset& p) { return p.id == id; });
    if (it == stored.presets.end())
        return RenameResult::notFound();
    if (trimmed.isEmpty() || trimmed == it->name)
        return RenameResult::unchanged();
    for (const UserExportPreset& other : stored.presets) {
        if (other.id != id && sameName(other.name, trimmed))
            return RenameResult::nameTaken(trimmed);
    }
    it->name = trimmed;
    save(stored);
    return RenameResult::renamed(*it);
}

bool UserPresetStore::updateSettings(const QUuid& id, const ExportSettings& settings)
{
    std::lock_guard lock(mutex_);
    Stored stored = load();
    for (UserExportPreset& p : stored.presets) {
        if (p.id == id) {
            p.settings = settings;
            save(stored);
            return true;
        }
    }
    return false;
}

bool UserPresetStore::remove(const QUuid& id)
{
    std::lock_guard lock(mutex_);
    Stored stored = load();
    const auto before = stored.presets.size();
    std::erase_if(stored.presets, [&](const UserExportPreset& p) { return p.id == id; });
    if (stored.presets.size() == before)
        return false;
    save(stored);
    return true;
}

} // namespace folivox
