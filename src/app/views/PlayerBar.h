#pragma once

#include <QWidget>

class QLabel;
class QSlider;
class QToolButton;

namespace folivox {

class BookPlayer;
class OpenBook;

// Listening: previous and next chapter, play and pause, a slider over the
// whole book, the time, and the chapter playing now.
class PlayerBar : public QWidget {
    Q_OBJECT
public:
    PlayerBar(BookPlayer& player, OpenBook& book, QWidget* parent = nullptr);

    QToolButton* playButton() const { return play_; }
    QSlider* slider() const { return slider_; }
    QLabel* chapterLabel() const { return chapter_; }

private:
    void refresh();

    BookPlayer& player_;
    OpenBook& book_;
    QToolButton* previous_;
    QToolButton* play_;
    QToolButton* next_;
    QSlider* slider_;
    QLabel* time_;
    QLabel* chapter_;
    QLabel* problem_;
};

} // namespace folivox
