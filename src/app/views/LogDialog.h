#pragma once

#include <QDialog>

class QPlainTextEdit;

namespace folivox {

// A build's log, read from its file, for whoever wants to see what happened.
class LogDialog : public QDialog {
    Q_OBJECT
public:
    LogDialog(const QString& logFile, QWidget* parent = nullptr);
    QPlainTextEdit* text() const { return text_; }

private:
    QPlainTextEdit* text_;
};

} // namespace folivox
