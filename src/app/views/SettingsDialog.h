#pragma once

#include "app/settings/AppPreferences.h"

#include <QDialog>

class QComboBox;
class QLineEdit;
class QSpinBox;

namespace folivox {

// The window's settings: default output folder, the preset a new book
// starts from, parallel jobs and the tools folder.
class SettingsDialog : public QDialog {
    Q_OBJECT
public:
    SettingsDialog(const AppPreferences& preferences, QWidget* parent = nullptr);

    AppPreferences preferences() const;

    QLineEdit* outputFolderEdit() const { return outputFolder_; }
    QComboBox* presetBox() const { return preset_; }
    QSpinBox* jobsSpin() const { return jobs_; }
    QLineEdit* toolsFolderEdit() const { return toolsFolder_; }

Q_SIGNALS:
    void preferencesChosen(const folivox::AppPreferences& preferences);

private:
    void chooseFolder(QLineEdit* edit, const QString& title);

    QLineEdit* outputFolder_;
    QComboBox* preset_;
    QSpinBox* jobs_;
    QLineEdit* toolsFolder_;
};

} // namespace folivox
