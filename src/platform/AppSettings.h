#pragma once

#include <QString>
#include <QVariant>

#include <memory>

class QSettings;

namespace folivox {

// The user's settings (the stand-in for user defaults). Backed by QSettings
// under the organisation "Folivox"; when FOLIVOX_HOME is set the settings live
// in "settings.ini" inside it, so tests and portable setups stay apart from
// the user's own.
class AppSettings {
public:
    AppSettings();
    ~AppSettings();

    QVariant value(const QString& key, const QVariant& defaultValue = {}) const;
    void setValue(const QString& key, const QVariant& value);
    void remove(const QString& key);
    bool contains(const QString& key) const;
    void sync();

private:
    std::unique_ptr<QSettings> settings_;
};

} // namespace folivox
