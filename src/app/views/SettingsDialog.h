#pragma once

#include "app/settings/AppPreferences.h"

#include <QDialog>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace folivox {

// The window's settings: default output folder, the preset a new book
// starts from, parallel jobs, the tools folder, and the folders the queue
// makes for each book (a template of the book's tags, checked as it is
// typed, with an example of where a book would go).
class SettingsDialog : public QDialog {
    Q_OBJECT
public:
    SettingsDialog(const AppPreferences& preferences, QWidget* parent = nullptr);

    AppPreferences preferences() const;

    QLineEdit* outputFolderEdit() const { return outputFolder_; }
    QComboBox* presetBox() const { return preset_; }
    QSpinBox* jobsSpin() const { return jobs_; }
    QLineEdit* toolsFolderEdit() const { return toolsFolder_; }
    QLineEdit* queueTemplateEdit() const { return queueTemplate_; }
    QLabel* queueTemplateExample() const { return templateExample_; }

Q_SIGNALS:
    void preferencesChosen(const folivox::AppPreferences& preferences);

private:
    void chooseFolder(QLineEdit* edit, const QString& title);

    QLineEdit* outputFolder_;
    QComboBox* preset_;
    QSpinBox* jobs_;
    QLineEdit* toolsFolder_;
    QLineEdit* queueTemplate_;
    QLabel* templateExample_;
    QPushButton* ok_;
};

} // namespace folivox
