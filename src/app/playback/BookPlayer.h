#pragma once

#include "app/playback/PlaybackTimeline.h"

#include <QObject>
#include <QString>

#include <optional>

class QAudioOutput;
class QElapsedTimer;
class QMediaPlayer;
class QTimer;

namespace folivox {

// Plays the open book through Qt Multimedia: a track or a chapter from its
// start, pause, seeking on the book's clock, next and previous chapter, and
// the chapter playing now. Where it is in the book is kept here, not read
// back from the media backend, so that the chapter shown is right even on a
// machine without an audio output. There the media backend is left alone
// (Qt 6.4's FFmpeg backend crashes writing to a sink that failed to open):
// playback runs silently on a clock of its own, and the problem is reported.
class BookPlayer : public QObject {
    Q_OBJECT
public:
    explicit BookPlayer(QObject* parent = nullptr);
    ~BookPlayer() override;

    // Asks Qt Multimedia for its FFmpeg backend (the libraries Folivox uses
    // anyway) unless QT_MEDIA_BACKEND says otherwise. Call before the first
    // player exists.
    static void preferFFmpegBackend();

    // A new set of tracks stops the player; new chapters alone keep it going.
    void setBook(const std::vector<Track>& tracks, const std::vector<Bookmark>& chapters);

    void playChapter(size_t chapter);
    void playTrack(size_t track);
    void play();
    void pause();
    void togglePlayPause();
    // Stops and goes back to the start of the book.
    void stop();
    void seek(double bookSeconds);
    void nextChapter();
    void previousChapter();

    bool isPlaying() const { return playing_; }
    double position() const { return position_; }
    double duration() const { return timeline_.totalDuration(); }
    std::optional<size_t> currentChapter() const { return chapter_; }
    // Why nothing can be heard, when that is so.
    const QString& problem() const { return problem_; }
    const PlaybackTimeline& timeline() const { return timeline_; }

Q_SIGNALS:
    void positionChanged(double bookSeconds);
    void currentChapterChanged(int chapter); // -1 for none
    void playingChanged(bool playing);
    void problemChanged(const QString& problem);

private:
    void moveTo(double bookSeconds);
    void load(size_t track, double offset);
    void setPosition(double bookSeconds);
    void setPlaying(bool playing);
    void reportProblem(const QString& problem);
    void onMediaPosition(qint64 ms);
    void onMediaStatus(int status);
    void onSilentTick();

    QMediaPlayer* media_ = nullptr;
    QAudioOutput* output_ = nullptr;
    PlaybackTimeline timeline_;
    std::optional<size_t> loadedTrack_;
    std::optional<qint64> pendingSeekMs_;
    double position_ = 0;
    bool playing_ = false;
    std::optional<size_t> chapter_;
    QString problem_;
    // Playing without an audio output: the clock that moves the position.
    bool silent_ = false;
    QTimer* silentClock_ = nullptr;
    qint64 lastTickMs_ = 0;
};

} // namespace folivox
