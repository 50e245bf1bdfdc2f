#pragma once

#include <QUuid>
#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QPushButton;
class QTableView;
class QTableWidget;

namespace folivox {

class QueueController;
class QueueJobModel;
class QueueWorkspace;

// The build queue: every job with its status, progress and phase; Start,
// Stop After Current, Resume, and for the selected job Cancel, Retry and
// Remove; the attempts of the selected job with each one's log. A halt is a
// banner with its message and the action that clears it (retrying the job
// that failed); the counts of a run are a banner when the run ends. All of
// it is the queue controller's published state.
class QueueView : public QWidget {
    Q_OBJECT
public:
    QueueView(QueueWorkspace& queue, QWidget* parent = nullptr);

    QUuid selectedJob() const;
    void selectJob(const QUuid& id);

    // A message over the jobs (a refused action); empty hides it.
    void showMessage(const QString& text);
    QString message() const;

    QueueJobModel* model() const { return model_; }
    QTableView* jobList() const { return jobs_; }
    QPushButton* startButton() const { return start_; }
    QPushButton* stopButton() const { return stop_; }
    QPushButton* resumeButton() const { return resume_; }
    QPushButton* cancelButton() const { return cancel_; }
    QPushButton* retryButton() const { return retry_; }
    QPushButton* removeButton() const { return remove_; }
    QWidget* haltBanner() const { return haltBar_; }
    QLabel* haltLabel() const { return haltLabel_; }
    QPushButton* haltRetryButton() const { return haltRetry_; }
    QWidget* summaryBanner() const { return summaryBar_; }
    QLabel* summaryLabel() const { return summaryLabel_; }
    QTableWidget* attemptList() const { return attempts_; }
    QPlainTextEdit* logView() const { return log_; }
    QLabel* statusLabel() const { return status_; }

    static QString summaryText(int built, int failed, int skipped, int cancelled);

private:
    void refresh();
    void refreshAttempts();
    void showLogOfAttempt(int row);
    // Runs an action of the queue; a refusal becomes the view's message.
    void act(const std::function<void()>& action);

    QueueWorkspace& queue_;
    QueueController* controller_;
    QueueJobModel* model_ = nullptr;
    QTableView* jobs_;
    QPushButton* start_;
    QPushButton* stop_;
    QPushButton* resume_;
    QPushButton* cancel_;
    QPushButton* retry_;
    QPushButton* remove_;
    QWidget* haltBar_;
    QLabel* haltLabel_;
    QPushButton* haltRetry_;
    QWidget* summaryBar_;
    QLabel* summaryLabel_;
    QWidget* messageBar_;
    QLabel* messageLabel_;
    QTableWidget* attempts_;
    QPlainTextEdit* log_;
    QLabel* status_;
    QUuid attemptsOf_;
    int attemptCount_ = -1;
};

} // namespace folivox
