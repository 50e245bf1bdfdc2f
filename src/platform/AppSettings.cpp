#include "platform/AppSettings.h"

#include "platform/AppPaths.h"

#include <QSettings>

namespace folivox {

AppSettings::AppSettings()
{
    if (!qEnvironmentVariableIsEmpty("FOLIVOX_HOME")) {
        settings_ = std::make_unique<QSettings>(AppPaths::appSupportDir() + QStringLiteral("/settings.ini"),
                                                QSettings::IniFormat);
    } else {
        settings_ = std::make_unique<QSettings>(QStringLiteral("Folivox"), QStringLiteral("Folivox"));
    }
}

AppSettings::~AppSettings() = default;

QVariant AppSettings::value(const QString& key, const QVariant& defaultValue) const
{
    return settings_->value(key, defaultValue);
}

void AppSettings::setValue(const QString& key, const QVariant& value)
{
    settings_->setValue(key, value);
}

void AppSettings::remove(const QString& key)
{
    settings_->remove(key);
}

bool AppSettings::contains(const QString& key) const
{
    return settings_->contains(key);
}

void AppSettings::sync()
{
    settings_->sync();
}

} // namespace folivox
