#include "app/queue/QueueView.h"

#include "app/queue/QueueJobModel.h"
#include "app/queue/QueueProgressDelegate.h"
#include "app/queue/QueueWorkspace.h"
#include "app/views/Ui.h"
#include "core/json/EnumNames.h"
#include "platform/Error.h"
#include "platform/L10n.h"
#include "queue/run/QueueController.h"
#include "queue/run/QueueService.h"

#include <QFile>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTableView>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace folivox {

namespace {

QString outcomeText(const JobAttempt& a)
{
    if (!a.outcome)
        return a.endedAt ? QString() : L10n::text("app.queue.attempt.open", "Running, or cut short");
    switch (a.outcome->kind) {
    case JobAttempt::Outcome::Kind::success:
        return L10n::format(L10n::text("app.queue.attempt.success", "Built: %@"), {a.outcome->outputPath});
    case JobAttempt::Outcome::Kind::failure:
        return L10n::format(L10n::text("app.queue.attempt.failure", "Failed (%@): %@"),
                            {enumName(a.outcome->errorClass), a.outcome->message});
    case JobAttempt::Outcome::Kind::cancelled:
        return L10n::text("app.queue.attempt.cancelled", "Cancelled");
    }
    return {};
}

} // namespace

QString QueueView::summaryText(int built, int failed, int skipped, int cancelled)
{
    return L10n::format(L10n::text("app.queue.summary", "The queue has finished: %d built, %d failed, %d skipped, %d cancelled."),
                        {QString::number(built), QString::number(failed), QString::number(skipped), QString::number(cancelled)});
}

QueueView::QueueView(QueueWorkspace& queue, QWidget* parent)
    : QWidget(parent)
    , queue_(queue)
    , controller_(queue.controller())
    , jobs_(Ui::named(new QTableView(this), "app.queue.jobs.name", "Queued builds"))
    , start_(Ui::named(new QPushButton(L10n::text("app.queue.start", "Start"), this), "app.queue.start.name",
                       "Start building the queued books"))
    , stop_(Ui::named(new QPushButton(L10n::text("app.queue.stop", "Stop After Current"), this), "app.queue.stop.name",
                      "Stop the queue when the book being built is done"))
    , resume_(Ui::named(new QPushButton(L10n::text("app.queue.resume", "Resume"), this), "app.queue.resume.name",
                        "Build the interrupted jobs again"))
    , cancel_(Ui::named(new QPushButton(L10n::text("app.queue.cancel", "Cancel"), this), "app.queue.cancel.name",
                        "Cancel the selected job"))
    , retry_(Ui::named(new QPushButton(L10n::text("app.queue.retry", "Retry"), this), "app.queue.retry.name",
                       "Put the selected job back in the queue"))
    , remove_(Ui::named(new QPushButton(L10n::text("app.queue.remove", "Remove"), this), "app.queue.remove.name",
                        "Take the selected job out of the queue"))
    , attempts_(Ui::named(new QTableWidget(this), "app.queue.attempts.name", "Attempts of the selected job"))
    , log_(Ui::named(new QPlainTextEdit(this), "app.queue.log.name", "Log of the selected attempt"))
    , status_(new QLabel(this))
{
    start_->setToolTip(L10n::text("app.queue.start.tip", "Build the waiting jobs one after the other"));
    stop_->setToolTip(L10n::text("app.queue.stop.tip", "Let the book being built finish, then stop"));
    resume_->setToolTip(L10n::text("app.queue.resume.tip", "Jobs cut short when Folivox quit go back in the queue and the run starts"));
    QFont bold = start_->font();
    bold.setBold(true);
    start_->setFont(bold);

    auto* top = new QHBoxLayout;
    top->addWidget(Ui::heading(L10n::text("app.queue.heading", "Queue"), this));
    top->addSpacing(12);
    top->addWidget(start_);
    top->addWidget(stop_);
    top->addWidget(resume_);
    top->addSpacing(18);
    top->addWidget(cancel_);
    top->addWidget(retry_);
    top->addWidget(remove_);
    top->addStretch();
    top->addWidget(status_);

    haltBar_ = Ui::banner(this, QColor(250, 215, 210), haltLabel_);
    Ui::setAccessibleName(haltLabel_, "app.queue.halt.name", "Why the queue is paused");
    haltRetry_ = Ui::named(new QPushButton(L10n::text("app.queue.halt.retry", "Retry Failed Build"), haltBar_),
                           "app.queue.halt.retry.name", "Retry the build that paused the queue");
    haltRetry_->setToolTip(L10n::text("app.queue.halt.retry.tip",
                                      "Once the cause is fixed: the failed build goes back in the queue, and the queue "
                                      "can start again"));
    haltBar_->layout()->addWidget(haltRetry_);
    haltBar_->hide();

    summaryBar_ = Ui::banner(this, QColor(215, 235, 215), summaryLabel_);
    Ui::setAccessibleName(summaryLabel_, "app.queue.summary.name", "How the last run ended");
    auto* seen = Ui::named(new QPushButton(L10n::text("app.queue.summary.dismiss", "Dismiss"), summaryBar_),
                           "app.queue.summary.dismiss.name", "Dismiss the run's summary");
    summaryBar_->layout()->addWidget(seen);
    summaryBar_->hide();

    messageBar_ = Ui::banner(this, QColor(255, 236, 200), messageLabel_);
    auto* dismiss = Ui::named(new QPushButton(L10n::text("app.queue.message.dismiss", "Dismiss"), messageBar_),
                              "app.queue.message.dismiss.name", "Dismiss the message");
    messageBar_->layout()->addWidget(dismiss);
    messageBar_->hide();

    attempts_->setColumnCount(3);
    attempts_->setHorizontalHeaderLabels({L10n::text("app.queue.attempt.started", "Started"),
                                          L10n::text("app.queue.attempt.ended", "Ended"),
                                          L10n::text("app.queue.attempt.outcome", "Outcome")});
    attempts_->verticalHeader()->hide();
    attempts_->setSelectionBehavior(QAbstractItemView::SelectRows);
    attempts_->setSelectionMode(QAbstractItemView::SingleSelection);
    attempts_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    attempts_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    attempts_->horizontalHeader()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    attempts_->horizontalHeader()->setStretchLastSection(true);
    log_->setReadOnly(true);
    log_->setLineWrapMode(QPlainTextEdit::NoWrap);
    QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    log_->setFont(mono);
    log_->setPlaceholderText(L10n::text("app.queue.log.placeholder", "Choose an attempt to read its log."));

    auto* details = new QSplitter(Qt::Horizontal, this);
    details->addWidget(attempts_);
    details->addWidget(log_);
    details->setStretchFactor(0, 2);
    details->setStretchFactor(1, 3);
    auto* split = new QSplitter(Qt::Vertical, this);
    split->addWidget(jobs_);
    split->addWidget(details);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 4);
    layout->addLayout(top);
    layout->addWidget(haltBar_);
    layout->addWidget(summaryBar_);
    layout->addWidget(messageBar_);
    layout->addWidget(split, 1);

    if (!controller_) {
        messageLabel_->setText(L10n::format(L10n::text("app.queue.unavailable", "The queue can't be used here: %@"),
                                            {queue_.unavailableReason()}));
        messageBar_->show();
        dismiss->hide();
        for (QWidget* w : {static_cast<QWidget*>(start_), static_cast<QWidget*>(stop_), static_cast<QWidget*>(resume_),
                           static_cast<QWidget*>(cancel_), static_cast<QWidget*>(retry_), static_cast<QWidget*>(remove_)})
            w->setEnabled(false);
        return;
    }

    model_ = new QueueJobModel(*controller_, this);
    jobs_->setModel(model_);
    jobs_->setItemDelegateForColumn(QueueJobModel::progress, new QueueProgressDelegate(jobs_));
    jobs_->setSelectionBehavior(QAbstractItemView::SelectRows);
    jobs_->setSelectionMode(QAbstractItemView::SingleSelection);
    jobs_->verticalHeader()->hide();
    jobs_->setAlternatingRowColors(true);
    jobs_->setShowGrid(false);
    jobs_->setWordWrap(false);
    jobs_->setTextElideMode(Qt::ElideMiddle);
    jobs_->horizontalHeader()->setSectionResizeMode(QueueJobModel::book, QHeaderView::Interactive);
    jobs_->horizontalHeader()->resizeSection(QueueJobModel::book, 260);
    jobs_->horizontalHeader()->resizeSection(QueueJobModel::status, 100);
    jobs_->horizontalHeader()->resizeSection(QueueJobModel::progress, 130);
    jobs_->horizontalHeader()->resizeSection(QueueJobModel::detail, 330);
    jobs_->horizontalHeader()->setStretchLastSection(true);

    connect(controller_, &QueueController::changed, this, &QueueView::refresh);
    connect(jobs_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &QueueView::refresh);
    connect(attempts_, &QTableWidget::currentCellChanged, this, [this](int row) { showLogOfAttempt(row); });
    connect(start_, &QPushButton::clicked, this, [this] {
        act([this] {
            if (!controller_->start() && !controller_->isProcessing()) {
                if (controller_->singleExportActive())
                    showMessage(L10n::text("app.queue.start.single", "The queue waits while a book is being built in the book view."));
                else if (!controller_->haltMessage())
                    showMessage(L10n::text("app.queue.start.nothing", "No job is waiting to be built."));
            }
        });
    });
    connect(stop_, &QPushButton::clicked, this, [this] { act([this] { controller_->stop(); }); });
    connect(resume_, &QPushButton::clicked, this, [this] { act([this] { controller_->resume(); }); });
    connect(cancel_, &QPushButton::clicked, this, [this] { act([this] { controller_->cancel(selectedJob()); }); });
    connect(retry_, &QPushButton::clicked, this, [this] { act([this] { controller_->retry(selectedJob()); }); });
    connect(remove_, &QPushButton::clicked, this, [this] { act([this] { controller_->remove(selectedJob()); }); });
    connect(haltRetry_, &QPushButton::clicked, this, [this] {
        act([this] {
            const auto halt = controller_->service().halt();
            if (halt && halt->jobID)
                controller_->retry(*halt->jobID);
        });
    });
    connect(seen, &QPushButton::clicked, this, [this] {
        controller_->markRunSummarySeen();
        refresh();
    });
    connect(dismiss, &QPushButton::clicked, this, [this] { showMessage(QString()); });
    refresh();
}

QUuid QueueView::selectedJob() const
{
    if (!jobs_->selectionModel())
        return {};
    const QModelIndexList rows = jobs_->selectionModel()->selectedRows();
    return rows.isEmpty() ? QUuid() : rows.first().data(QueueJobModel::IdRole).toUuid();
}

void QueueView::selectJob(const QUuid& id)
{
    if (!model_)
        return;
    const QModelIndex i = model_->indexOf(id);
    if (i.isValid()) {
        jobs_->selectRow(i.row());
        jobs_->scrollTo(i);
    }
}

void QueueView::showMessage(const QString& text)
{
    messageLabel_->setText(text);
    messageBar_->setVisible(!text.isEmpty());
}

QString QueueView::message() const
{
    return messageBar_->isVisible() ? messageLabel_->text() : QString();
}

void QueueView::act(const std::function<void()>& action)
{
    showMessage(QString());
    try {
        action();
    } catch (const Error& e) {
        showMessage(e.description());
    }
    refresh();
}

void QueueView::refresh()
{
    if (!controller_)
        return;
    const std::vector<QueueJob>& jobs = controller_->jobs();
    const auto count = [&jobs](QueueJobStatus s) {
        return std::count_if(jobs.begin(), jobs.end(), [s](const QueueJob& j) { return j.status == s; });
    };
    const bool processing = controller_->isProcessing();
    const bool halted = controller_->haltMessage().has_value();
    start_->setEnabled(!processing && !halted && !controller_->singleExportActive() && count(QueueJobStatus::pending) > 0);
    stop_->setEnabled(processing);
    resume_->setEnabled(!halted && count(QueueJobStatus::interrupted) > 0);

    const QUuid selected = selectedJob();
    const QueueJob* job = nullptr;
    for (const QueueJob& j : jobs)
        if (j.id == selected)
            job = &j;
    const auto is = [job](std::initializer_list<QueueJobStatus> statuses) {
        return job && std::find(statuses.begin(), statuses.end(), job->status) != statuses.end();
    };
    cancel_->setEnabled(is({QueueJobStatus::pending, QueueJobStatus::interrupted, QueueJobStatus::running}));
    retry_->setEnabled(is({QueueJobStatus::failed, QueueJobStatus::cancelled, QueueJobStatus::interrupted, QueueJobStatus::skipped}));
    remove_->setEnabled(job != nullptr);

    if (halted) {
        haltLabel_->setText(*controller_->haltMessage());
        const auto halt = controller_->service().halt();
        haltRetry_->setEnabled(halt && halt->jobID);
        haltBar_->show();
    } else {
        haltBar_->hide();
    }
    const auto& summary = controller_->lastRunSummary();
    if (summary && !controller_->runSummarySeen() && !processing) {
        summaryLabel_->setText(summaryText(summary->built, summary->failed, summary->skipped, summary->cancelled));
        summaryBar_->show();
    } else {
        summaryBar_->hide();
    }

    if (processing) {
        int position = 0;
        QString title;
        const qsizetype total = jobs.size() - controller_->runBaselineTerminal();
        for (const QueueJob& j : jobs) {
            if (QueueJobStatusLabel::isFinished(j.status))
                ++position;
            if (j.status == QueueJobStatus::running)
                title = j.displayTitle;
        }
        status_->setText(title.isEmpty() ? L10n::text("app.queue.status.running", "Running…")
                                         : L10n::format(L10n::text("app.queue.status.building", "Building “%@” — %d of %d"),
                                                        {title, QString::number(position - controller_->runBaselineTerminal() + 1),
                                                         QString::number(std::max<qsizetype>(total, 1))}));
    } else {
        const qsizetype waiting = count(QueueJobStatus::pending);
        status_->setText(waiting == 0 ? QString()
                                      : L10n::format(L10n::text("app.queue.status.waiting", "%d waiting"), {QString::number(waiting)}));
    }
    refreshAttempts();
}

void QueueView::refreshAttempts()
{
    const QUuid selected = selectedJob();
    const QueueJob* job = nullptr;
    for (const QueueJob& j : controller_->jobs())
        if (j.id == selected)
            job = &j;
    const int count = job ? int(job->attempts.size()) : 0;
    if (selected == attemptsOf_ && count == attemptCount_) {
        // The same attempts: only the last one's ending may have changed.
        if (job && count > 0) {
            const JobAttempt& a = job->attempts.back();
            attempts_->item(count - 1, 1)->setText(a.endedAt ? QLocale().toString(a.endedAt->toLocalTime(), QLocale::ShortFormat) : QString());
            attempts_->item(count - 1, 2)->setText(outcomeText(a));
        }
        return;
    }
    attemptsOf_ = selected;
    attemptCount_ = count;
    attempts_->setRowCount(count);
    for (int i = 0; i < count; ++i) {
        const JobAttempt& a = job->attempts[size_t(i)];
        attempts_->setItem(i, 0, new QTableWidgetItem(QLocale().toString(a.startedAt.toLocalTime(), QLocale::ShortFormat)));
        attempts_->setItem(i, 1, new QTableWidgetItem(a.endedAt ? QLocale().toString(a.endedAt->toLocalTime(), QLocale::ShortFormat) : QString()));
        auto* outcome = new QTableWidgetItem(outcomeText(a));
        outcome->setToolTip(outcomeText(a));
        attempts_->setItem(i, 2, outcome);
    }
    log_->clear();
    if (count > 0) {
        attempts_->selectRow(count - 1);
        showLogOfAttempt(count - 1);
    }
}

void QueueView::showLogOfAttempt(int row)
{
    log_->clear();
    const QUuid selected = selectedJob();
    for (const QueueJob& j : controller_->jobs()) {
        if (j.id != selected || row < 0 || row >= int(j.attempts.size()))
            continue;
        const JobAttempt& a = j.attempts[size_t(row)];
        if (!a.logPath) {
            log_->setPlaceholderText(a.endedAt ? L10n::text("app.queue.log.none", "No log was kept for this attempt.")
                                               : L10n::text("app.queue.log.running", "The log is written when the attempt ends."));
            return;
        }
        QFile f(*a.logPath);
        if (!f.open(QIODevice::ReadOnly)) {
            log_->setPlaceholderText(L10n::format(L10n::text("app.queue.log.gone", "The log %@ can't be read."), {*a.logPath}));
            return;
        }
        QString text = QString::fromUtf8(f.readAll());
        // One log file per job: it holds the last attempt's log.
        if (row + 1 < int(j.attempts.size()) && j.attempts.back().logPath == a.logPath)
            text.prepend(L10n::text("app.queue.log.latest", "(The job keeps the log of its latest attempt; this is it.)\n\n"));
        log_->setPlainText(text);
    }
}

} // namespace folivox
