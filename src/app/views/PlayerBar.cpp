#include "app/views/PlayerBar.h"

#include "app/book/OpenBook.h"
#include "app/models/TimeText.h"
#include "app/playback/BookPlayer.h"
#include "app/views/Ui.h"
#include "platform/L10n.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QSlider>
#include <QStyle>
#include <QToolButton>

#include <cmath>

namespace folivox {

PlayerBar::PlayerBar(BookPlayer& player, OpenBook& book, QWidget* parent)
    : QWidget(parent)
    , player_(player)
    , book_(book)
    , previous_(Ui::named(new QToolButton(this), "app.player.previous.name", "Previous chapter"))
    , play_(Ui::named(new QToolButton(this), "app.player.play.name", "Play or pause"))
    , next_(Ui::named(new QToolButton(this), "app.player.next.name", "Next chapter"))
    , slider_(Ui::named(new QSlider(Qt::Horizontal, this), "app.player.position.name", "Playing position"))
    , time_(new QLabel(this))
    , chapter_(new QLabel(this))
    , problem_(new QLabel(this))
{
    previous_->setIcon(style()->standardIcon(QStyle::SP_MediaSkipBackward));
    previous_->setToolTip(L10n::text("app.player.previous.tip", "Previous chapter (Ctrl+Left)"));
    next_->setIcon(style()->standardIcon(QStyle::SP_MediaSkipForward));
    next_->setToolTip(L10n::text("app.player.next.tip", "Next chapter (Ctrl+Right)"));
    play_->setToolTip(L10n::text("app.player.play.tip", "Play or pause (Ctrl+P)"));
    slider_->setRange(0, 0);
    Ui::setAccessibleName(time_, "app.player.time.name", "Time played");
    Ui::setAccessibleName(chapter_, "app.player.chapter.name", "Chapter playing");
    Ui::setAccessibleName(problem_, "app.player.problem.name", "Playback problem");
    problem_->setForegroundRole(QPalette::PlaceholderText);
    chapter_->setMinimumWidth(160);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 0, 6, 0);
    layout->addWidget(previous_);
    layout->addWidget(play_);
    layout->addWidget(next_);
    layout->addWidget(slider_, 1);
    layout->addWidget(time_);
    layout->addWidget(chapter_);
    layout->addWidget(problem_);

    connect(previous_, &QToolButton::clicked, &player_, &BookPlayer::previousChapter);
    connect(next_, &QToolButton::clicked, &player_, &BookPlayer::nextChapter);
    connect(play_, &QToolButton::clicked, &player_, &BookPlayer::togglePlayPause);
    connect(slider_, &QSlider::sliderMoved, this, [this](int ms) { player_.seek(ms / 1000.0); });
    connect(&player_, &BookPlayer::positionChanged, this, &PlayerBar::refresh);
    connect(&player_, &BookPlayer::playingChanged, this, &PlayerBar::refresh);
    connect(&player_, &BookPlayer::currentChapterChanged, this, &PlayerBar::refresh);
    connect(&player_, &BookPlayer::problemChanged, this, [this](const QString& p) {
        problem_->setText(p.isEmpty() ? QString() : L10n::text("app.player.silent", "(silent)"));
        problem_->setToolTip(p);
    });
    connect(&book_, &OpenBook::tracksChanged, this, &PlayerBar::refresh);
    connect(&book_, &OpenBook::chaptersChanged, this, &PlayerBar::refresh);
    refresh();
}

void PlayerBar::refresh()
{
    const bool empty = player_.timeline().isEmpty();
    setEnabled(!empty);
    play_->setIcon(style()->standardIcon(player_.isPlaying() ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    play_->setText(player_.isPlaying() ? L10n::text("app.player.pause", "Pause") : L10n::text("app.player.play", "Play"));
    const int total = static_cast<int>(std::lround(player_.duration() * 1000));
    if (slider_->maximum() != total)
        slider_->setRange(0, total);
    if (!slider_->isSliderDown())
        slider_->setValue(static_cast<int>(std::lround(player_.position() * 1000)));
    time_->setText(TimeText::format(player_.position(), false) + QStringLiteral(" / ")
                   + TimeText::format(player_.duration(), false));
    const auto c = player_.currentChapter();
    const auto& chapters = book_.chapters();
    chapter_->setText(c && *c < chapters.size() ? chapters[*c].title : QString());
}

} // namespace folivox
