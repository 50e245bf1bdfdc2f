#pragma once

#include "build/BuildResult.h"

#include <QWidget>

class QLabel;
class QListWidget;
class QPushButton;
class QTableWidget;

namespace folivox {

// What the last build made: the file, the strategy and the reasons for it,
// the chapters as they lie in the output, warnings; a button that shows
// the file in the file manager and one that opens the build's log.
class ResultPanel : public QWidget {
    Q_OBJECT
public:
    explicit ResultPanel(QWidget* parent = nullptr);

    void showResult(const BuildResult& result);
    void showFailure(const QString& message, const QString& logFile);
    void clear();

    const QString& logFile() const { return logFile_; }
    const QString& outputPath() const { return outputPath_; }
    QLabel* headline() const { return headline_; }
    QTableWidget* chapterTable() const { return chapters_; }
    QPushButton* showFileButton() const { return showFile_; }
    QPushButton* showLogButton() const { return showLog_; }

    // A human name for a strategy ("Copied without re-encoding", ...).
    static QString strategyText(int strategy);

Q_SIGNALS:
    void showLogRequested();

private:
    void showInFileManager();

    QLabel* headline_;
    QLabel* strategy_;
    QListWidget* reasons_;
    QTableWidget* chapters_;
    QPushButton* showFile_;
    QPushButton* showLog_;
    QString logFile_;
    QString outputPath_;
};

} // namespace folivox
