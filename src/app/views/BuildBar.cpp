#include "app/views/BuildBar.h"

#include "app/views/Ui.h"
#include "platform/L10n.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include <cmath>

namespace folivox {

BuildBar::BuildBar(QWidget* parent)
    : QWidget(parent)
    , build_(Ui::named(new QPushButton(L10n::text("app.build.button", "Build"), this), "app.build.button.name",
                       "Build the audiobook"))
    , phase_(new QLabel(this))
    , progress_(Ui::named(new QProgressBar(this), "app.build.progress.name", "Build progress"))
    , cancel_(Ui::named(new QPushButton(L10n::text("app.build.cancel", "Cancel"), this), "app.build.cancel.name",
                        "Cancel the build"))
    , queue_(Ui::named(new QPushButton(L10n::text("app.build.queue", "Add to Queue"), this), "app.build.queue.name",
                       "Add the book to the build queue"))
{
    queue_->setToolTip(L10n::text("app.build.queue.tip", "Build it later, with the other queued books (Ctrl+Shift+B)"));
    build_->setDefault(true);
    build_->setToolTip(L10n::text("app.build.tip", "Build the audiobook (Ctrl+B)"));
    QFont f = build_->font();
    f.setBold(true);
    build_->setFont(f);
    build_->setMinimumWidth(110);
    cancel_->setToolTip(L10n::text("app.build.cancel.tip", "Stop the build and remove what it wrote (Esc)"));
    Ui::setAccessibleName(phase_, "app.build.phase.name", "Build status");
    phase_->setMinimumWidth(260);
    progress_->setRange(0, 1000);
    progress_->setTextVisible(true);
    auto* layout = new QHBoxLayout(this);
    layout->addWidget(build_);
    layout->addWidget(queue_);
    layout->addWidget(phase_, 1);
    layout->addWidget(progress_, 2);
    layout->addWidget(cancel_);
    connect(build_, &QPushButton::clicked, this, &BuildBar::buildRequested);
    connect(cancel_, &QPushButton::clicked, this, &BuildBar::cancelRequested);
    connect(queue_, &QPushButton::clicked, this, &BuildBar::addToQueueRequested);
    showIdle(QString());
}

void BuildBar::setBuildEnabled(bool enabled)
{
    build_->setEnabled(enabled && !cancel_->isVisible());
}

void BuildBar::setQueueEnabled(bool enabled)
{
    queue_->setEnabled(enabled);
}

void BuildBar::showRunning(const QString& phase, double fraction)
{
    build_->setEnabled(false);
    cancel_->setVisible(true);
    cancel_->setEnabled(true);
    progress_->setVisible(true);
    phase_->setText(phase);
    progress_->setValue(static_cast<int>(std::lround(std::clamp(fraction, 0.0, 1.0) * 1000)));
    progress_->setFormat(QStringLiteral("%1%").arg(std::lround(std::clamp(fraction, 0.0, 1.0) * 100)));
}

void BuildBar::showIdle(const QString& message)
{
    cancel_->setVisible(false);
    progress_->setVisible(false);
    progress_->setValue(0);
    phase_->setText(message);
    build_->setEnabled(true);
}

} // namespace folivox
