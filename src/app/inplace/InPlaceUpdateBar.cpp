#include "app/inplace/InPlaceUpdateBar.h"

#include "app/inplace/InPlaceUpdateViewModel.h"
#include "app/views/Ui.h"
#include "platform/L10n.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include <cmath>

namespace folivox {

InPlaceUpdateBar::InPlaceUpdateBar(InPlaceUpdateViewModel& model, QWidget* parent)
    : QWidget(parent)
    , model_(model)
    , update_(Ui::named(new QPushButton(L10n::text("app.inplace.button", "Update in Place"), this), "app.inplace.button.name",
                        "Write the tags into the built book without a rebuild"))
    , status_(new QLabel(this))
    , progress_(Ui::named(new QProgressBar(this), "app.inplace.progress.name", "Progress of the update in place"))
    , cancel_(Ui::named(new QPushButton(L10n::text("app.inplace.cancel", "Cancel"), this), "app.inplace.cancel.name",
                        "Cancel the update and put the files back"))
{
    Ui::setAccessibleName(status_, "app.inplace.status.name", "Update in place");
    status_->setWordWrap(true);
    status_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    progress_->setRange(0, 1000);
    progress_->setMaximumWidth(260);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(11, 2, 11, 2);
    layout->addWidget(update_);
    layout->addWidget(status_, 1);
    layout->addWidget(progress_);
    layout->addWidget(cancel_);
    connect(update_, &QPushButton::clicked, this, &InPlaceUpdateBar::updateRequested);
    connect(cancel_, &QPushButton::clicked, &model_, &InPlaceUpdateViewModel::cancel);
    connect(&model_, &InPlaceUpdateViewModel::changed, this, &InPlaceUpdateBar::refresh);
    refresh();
}

void InPlaceUpdateBar::setBlocked(bool blocked)
{
    blocked_ = blocked;
    refresh();
}

void InPlaceUpdateBar::refresh()
{
    using State = InPlaceUpdateViewModel::State;
    const State state = model_.state();
    setVisible(state != State::notBuilt);
    const bool running = state == State::running;
    progress_->setVisible(running);
    cancel_->setVisible(running);
    update_->setEnabled(state == State::eligible && !blocked_);
    const QStringList files = model_.outputFiles();
    switch (state) {
    case State::notBuilt:
        break;
    case State::eligible: {
        const QString what = files.size() == 1 ? QFileInfo(files.first()).fileName()
                                               : L10n::format(L10n::text("app.inplace.files", "%d files"), {QString::number(files.size())});
        status_->setText(blocked_ ? L10n::text("app.inplace.blocked", "Update in place waits for the build to end.")
                                  : L10n::format(L10n::text("app.inplace.eligible",
                                                            "The tags, cover and chapter titles can go into %@ without a rebuild."),
                                                 {what}));
        update_->setToolTip(status_->text());
        break;
    }
    case State::ineligible: {
        QStringList reasons;
        for (IneligibilityReason r : model_.ineligibilityReasons())
            reasons << ineligibilityReasonText(r);
        status_->setText(L10n::format(L10n::text("app.inplace.ineligible", "Update in place isn't possible: %@. Build the book again."),
                                      {reasons.join(QStringLiteral("; "))}));
        update_->setToolTip(reasons.join(u'\n'));
        break;
    }
    case State::running:
        status_->setText(model_.phase());
        progress_->setValue(int(std::lround(std::clamp(model_.fraction(), 0.0, 1.0) * 1000)));
        break;
    case State::finished:
        status_->setText(model_.outcomeText());
        break;
    }
}

} // namespace folivox
