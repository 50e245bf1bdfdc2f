#pragma once

#include "export/settings/ExportPreset.h"

#include <QString>

#include <optional>

namespace folivox {

// The window's settings, kept through AppSettings: where books go by
// default, the preset a new book starts from, how many encodes run at once
// (the engine's own "export.concurrency" key) and a folder of helper tools
// (mp4tags, mp4art, mp4chaps) to use instead of the installed ones.
struct AppPreferences {
    QString defaultOutputFolder;
    ExportPreset defaultPreset = ExportPreset::balanced;
    std::optional<int> parallelJobs; // none: as many as the machine suits
    QString toolsFolder;             // empty: the installed tools

    static AppPreferences load();
    void save() const;

    // Points the tool lookup at toolsFolder (FOLIVOX_TOOLS_DIR) when one is
    // set; otherwise leaves the environment as the program found it.
    void applyToolsFolder() const;

    // The user's Music folder, else home.
    static QString fallbackOutputFolder();

    bool operator==(const AppPreferences&) const = default;
};

} // namespace folivox
