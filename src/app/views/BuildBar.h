#pragma once

#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace folivox {

// The foot of the window: Build, Add to Queue, the phase of a running build
// with its progress, and Cancel.
class BuildBar : public QWidget {
    Q_OBJECT
public:
    explicit BuildBar(QWidget* parent = nullptr);

    void setBuildEnabled(bool enabled);
    void setQueueEnabled(bool enabled);
    void showRunning(const QString& phase, double fraction);
    void showIdle(const QString& message);

    QPushButton* buildButton() const { return build_; }
    QPushButton* cancelButton() const { return cancel_; }
    QPushButton* queueButton() const { return queue_; }
    QProgressBar* progressBar() const { return progress_; }
    QLabel* phaseLabel() const { return phase_; }

Q_SIGNALS:
    void buildRequested();
    void cancelRequested();
    void addToQueueRequested();

private:
    QPushButton* build_;
    QLabel* phase_;
    QProgressBar* progress_;
    QPushButton* cancel_;
    QPushButton* queue_;
};

} // namespace folivox
