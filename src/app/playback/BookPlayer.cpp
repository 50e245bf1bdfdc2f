#include "app/playback/BookPlayer.h"

#include "platform/L10n.h"
#include "platform/Log.h"

#include <QAudioDevice>
#include <QAudioOutput>
#include <QMediaDevices>
#include <QMediaPlayer>
#include <QTimer>

#include <QDateTime>

#include <cmath>

namespace folivox {

BookPlayer::BookPlayer(QObject* parent)
    : QObject(parent)
    , media_(new QMediaPlayer(this))
    , output_(new QAudioOutput(this))
    , silentClock_(new QTimer(this))
{
    silent_ = QMediaDevices::audioOutputs().isEmpty();
    silentClock_->setInterval(100);
    connect(silentClock_, &QTimer::timeout, this, &BookPlayer::onSilentTick);
    media_->setAudioOutput(output_);
    connect(media_, &QMediaPlayer::positionChanged, this, &BookPlayer::onMediaPosition);
    connect(media_, &QMediaPlayer::mediaStatusChanged, this,
            [this](QMediaPlayer::MediaStatus s) { onMediaStatus(static_cast<int>(s)); });
    connect(media_, &QMediaPlayer::errorOccurred, this, [this](QMediaPlayer::Error, const QString& text) {
        reportProblem(L10n::format(L10n::text("app.player.error", "Playback failed: %@"), {text}));
    });
}

void BookPlayer::preferFFmpegBackend()
{
    if (qEnvironmentVariableIsEmpty("QT_MEDIA_BACKEND"))
        qputenv("QT_MEDIA_BACKEND", "ffmpeg");
}

BookPlayer::~BookPlayer()
{
    media_->stop();
}

void BookPlayer::setBook(const std::vector<Track>& tracks, const std::vector<Bookmark>& chapters)
{
    const bool sameTracks = tracks == timeline_.tracks();
    timeline_ = PlaybackTimeline(tracks, chapters);
    if (!sameTracks) {
        stop();
        return;
    }
    setPosition(position_); // the chapter at this moment may have changed
}

void BookPlayer::playChapter(size_t chapter)
{
    if (chapter >= timeline_.chapterCount())
        return;
    moveTo(timeline_.chapterStart(chapter));
    play();
}

void BookPlayer::playTrack(size_t track)
{
    if (track >= timeline_.tracks().size())
        return;
    moveTo(timeline_.bookTime(track, 0));
    play();
}

void BookPlayer::play()
{
    if (timeline_.isEmpty())
        return;
    silent_ = QMediaDevices::audioOutputs().isEmpty();
    if (silent_) {
        reportProblem(L10n::text("app.player.noOutput", "No audio output is available: playback is silent."));
        media_->stop();
        loadedTrack_.reset();
        lastTickMs_ = QDateTime::currentMSecsSinceEpoch();
        silentClock_->start();
        setPlaying(true);
        return;
    }
    if (!loadedTrack_)
        moveTo(position_);
    media_->play();
    setPlaying(true);
}

void BookPlayer::onSilentTick()
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const double next = position_ + static_cast<double>(now - lastTickMs_) / 1000.0;
    lastTickMs_ = now;
    if (next >= duration()) {
        silentClock_->stop();
        setPosition(duration());
        setPlaying(false);
        return;
    }
    setPosition(next);
}

void BookPlayer::pause()
{
    silentClock_->stop();
    media_->pause();
    setPlaying(false);
}

void BookPlayer::togglePlayPause()
{
    if (playing_)
        pause();
    else
        play();
}

void BookPlayer::stop()
{
    if (loadedTrack_ || playing_)
        Log::write(QStringLiteral("[Player] stopped"));
    silentClock_->stop();
    media_->stop();
    media_->setSource(QUrl());
    loadedTrack_.reset();
    pendingSeekMs_.reset();
    setPlaying(false);
    setPosition(0);
}

void BookPlayer::seek(double bookSeconds)
{
    moveTo(bookSeconds);
}

void BookPlayer::nextChapter()
{
    if (const auto next = timeline_.nextChapter(position_))
        moveTo(timeline_.chapterStart(*next));
}

void BookPlayer::previousChapter()
{
    if (const auto previous = timeline_.previousChapter(position_))
        moveTo(timeline_.chapterStart(*previous));
}

void BookPlayer::moveTo(double bookSeconds)
{
    if (timeline_.isEmpty())
        return;
    const auto where = timeline_.locate(bookSeconds);
    if (!silent_)
        load(where.track, where.offset);
    setPosition(timeline_.bookTime(where.track, where.offset));
}

void BookPlayer::load(size_t track, double offset)
{
    const qint64 ms = static_cast<qint64>(std::llround(offset * 1000.0));
    if (loadedTrack_ != track) {
        loadedTrack_ = track;
        pendingSeekMs_ = ms;
        media_->setSource(timeline_.tracks()[track].url);
        if (playing_)
            media_->play();
        return;
    }
    const auto status = media_->mediaStatus();
    if (status == QMediaPlayer::LoadingMedia || status == QMediaPlayer::NoMedia)
        pendingSeekMs_ = ms;
    else
        media_->setPosition(ms);
}

void BookPlayer::onMediaStatus(int status)
{
    const auto s = static_cast<QMediaPlayer::MediaStatus>(status);
    if ((s == QMediaPlayer::LoadedMedia || s == QMediaPlayer::BufferedMedia) && pendingSeekMs_) {
        media_->setPosition(*pendingSeekMs_);
        pendingSeekMs_.reset();
        return;
    }
    if (s == QMediaPlayer::EndOfMedia && loadedTrack_) {
        const size_t next = *loadedTrack_ + 1;
        if (next < timeline_.tracks().size()) {
            load(next, 0);
            setPosition(timeline_.bookTime(next, 0));
            media_->play();
        } else {
            setPlaying(false);
        }
    }
    if (s == QMediaPlayer::InvalidMedia && loadedTrack_)
        reportProblem(L10n::format(L10n::text("app.player.invalid", "Cannot play %@."),
                                   {timeline_.tracks()[*loadedTrack_].url.toLocalFile()}));
}

void BookPlayer::onMediaPosition(qint64 ms)
{
    if (!loadedTrack_ || pendingSeekMs_)
        return;
    setPosition(timeline_.bookTime(*loadedTrack_, static_cast<double>(ms) / 1000.0));
}

void BookPlayer::setPosition(double bookSeconds)
{
    position_ = bookSeconds;
    Q_EMIT positionChanged(position_);
    const auto chapter = timeline_.chapterAt(position_);
    if (chapter != chapter_) {
        chapter_ = chapter;
        Q_EMIT currentChapterChanged(chapter ? static_cast<int>(*chapter) : -1);
    }
}

void BookPlayer::setPlaying(bool playing)
{
    if (playing == playing_)
        return;
    playing_ = playing;
    Q_EMIT playingChanged(playing_);
}

void BookPlayer::reportProblem(const QString& problem)
{
    if (problem == problem_)
        return;
    problem_ = problem;
    Log::write(QStringLiteral("[Player] ") + problem);
    Q_EMIT problemChanged(problem_);
}

} // namespace folivox
