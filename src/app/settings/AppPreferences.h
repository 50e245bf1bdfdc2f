#pragma once

#include "export/settings/ExportPreset.h"

#include <QString>

#include <optional>

namespace folivox {

// The window's settings, kept through AppSettings: where books go by
// default, the preset a new book starts from, how many encodes run at once
// (the engine's own "export.concurrency" key), a folder of helper tools
// (mp4tags, mp4art, mp4chaps) to use instead of the installed ones, and how
// the queue lays out the books it builds.
struct AppPreferences {
    QString defaultOutputFolder;
    ExportPreset defaultPreset = ExportPreset::balanced;
    std::optional<int> parallelJobs; // none: as many as the machine suits
    QString toolsFolder;             // empty: the installed tools
    // Folders inside the output folder for each queued book, from its tags
    // ("{author}/{series}"; empty: the output folder itself).
    QString queueFolderTemplate = defaultQueueFolderTemplate();

    static QString defaultQueueFolderTemplate() { return QStringLiteral("{author}/{series}"); }

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
