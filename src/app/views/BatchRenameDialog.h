#pragma once

#include "chapters/BatchRenameOptions.h"

#include <QDialog>
#include <QStringList>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QSpinBox;
class QTableWidget;

namespace folivox {

// Batch rename of the chapter titles with every option of the pipeline and a
// preview that follows each change; Apply hands the new titles to the book
// as one undoable edit.
class BatchRenameDialog : public QDialog {
    Q_OBJECT
public:
    BatchRenameDialog(const QStringList& titles, QWidget* parent = nullptr);

    BatchRenameOptions options() const;
    // The titles as the pipeline makes them now (the originals when it fails).
    const QStringList& preview() const { return preview_; }
    QTableWidget* previewTable() const { return table_; }
    QLabel* errorLabel() const { return error_; }
    // The option switches by field name ("removeNumericPrefix", ...).
    QCheckBox* option(const QString& field) const;
    QLineEdit* findEdit() const { return find_; }
    QLineEdit* replaceEdit() const { return replace_; }
    QComboBox* caseBox() const { return case_; }

Q_SIGNALS:
    void titlesChosen(const QStringList& titles);

private:
    void update();

    QStringList titles_;
    QStringList preview_;
    std::vector<std::pair<QString, QCheckBox*>> switches_;
    QLineEdit* find_;
    QLineEdit* replace_;
    QCheckBox* regex_;
    QCheckBox* matchCase_;
    QLineEdit* prefix_;
    QSpinBox* start_;
    QComboBox* numberFormat_;
    QLineEdit* separator_;
    QComboBox* case_;
    QTableWidget* table_;
    QLabel* error_;
};

} // namespace folivox
