#include "app/settings/AppPreferences.h"

#include "export/strategies/ConcurrencyPlan.h"
#include "platform/AppSettings.h"

#include <QDir>
#include <QStandardPaths>

namespace folivox {

namespace {
const QString kOutputFolder = QStringLiteral("app.defaultOutputFolder");
const QString kPreset = QStringLiteral("app.defaultPreset");
const QString kToolsFolder = QStringLiteral("app.toolsFolder");
const QString kQueueFolderTemplate = QStringLiteral("app.queue.folderTemplate");

// The tools folder the program was started with, so that clearing the
// setting goes back to it.
const QByteArray& startupToolsDir()
{
    static const QByteArray dir = qgetenv("FOLIVOX_TOOLS_DIR");
    return dir;
}
} // namespace

AppPreferences AppPreferences::load()
{
    startupToolsDir();
    AppSettings settings;
    AppPreferences p;
    p.defaultOutputFolder = settings.value(kOutputFolder).toString();
    if (p.defaultOutputFolder.isEmpty())
        p.defaultOutputFolder = fallbackOutputFolder();
    p.defaultPreset = enumFromName<ExportPreset>(settings.value(kPreset).toString()).value_or(ExportPreset::balanced);
    bool ok = false;
    const int jobs = settings.value(QString::fromLatin1(ConcurrencyPlan::settingsKey)).toInt(&ok);
    if (ok && jobs > 0)
        p.parallelJobs = jobs;
    p.toolsFolder = settings.value(kToolsFolder).toString();
    if (settings.contains(kQueueFolderTemplate))
        p.queueFolderTemplate = settings.value(kQueueFolderTemplate).toString();
    return p;
}

void AppPreferences::save() const
{
    AppSettings settings;
    settings.setValue(kOutputFolder, defaultOutputFolder);
    settings.setValue(kPreset, enumName(defaultPreset));
    if (parallelJobs)
        settings.setValue(QString::fromLatin1(ConcurrencyPlan::settingsKey), *parallelJobs);
    else
        settings.remove(QString::fromLatin1(ConcurrencyPlan::settingsKey));
    settings.setValue(kToolsFolder, toolsFolder);
    settings.setValue(kQueueFolderTemplate, queueFolderTemplate);
    settings.sync();
}

void AppPreferences::applyToolsFolder() const
{
    const QByteArray original = startupToolsDir();
    if (!toolsFolder.isEmpty())
        qputenv("FOLIVOX_TOOLS_DIR", QDir(toolsFolder).absolutePath().toUtf8());
    else if (!original.isEmpty())
        qputenv("FOLIVOX_TOOLS_DIR", original);
    else
        qunsetenv("FOLIVOX_TOOLS_DIR");
}

QString AppPreferences::fallbackOutputFolder()
{
    const QString music = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    if (!music.isEmpty() && QDir(music).exists())
        return music;
    return QDir::homePath();
}

} // namespace folivox
