#pragma once

#include <QCache>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QPixmap>
#include <QSet>
#include <QString>
#include <QUuid>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace folivox {

// Book covers for the library's views, decoded off the main thread at the
// size they are shown. Asking for a picture that is not ready queues its
// file and answers with nothing; `ready` tells when it has come. The most
// recent request is decoded first (the rows just scrolled into view), and
// requests that wait too long behind newer ones are dropped: the view asks
// again when it paints them. JPEG thumbnails are decoded at their scaled
// size, which costs a fraction of a full decode.
class ThumbnailCache : public QObject {
    Q_OBJECT
public:
    explicit ThumbnailCache(QObject* parent = nullptr);
    // Stops the decoder (a decode under way finishes first).
    ~ThumbnailCache() override;

    // The picture of `path` fitted into size × size, or a null pixmap while
    // it is being read. `version` changes when the file does (a new cover).
    QPixmap thumbnail(const QUuid& id, const QString& path, const QString& version, int size);
    // Forgets every picture of the book.
    void forget(const QUuid& id);

    // Requests waiting for the decoder.
    int pending() const;

    static constexpr int kMaxWaiting = 256;

Q_SIGNALS:
    void ready(const QUuid& id);

private:
    struct Request {
        QString key;
        QUuid id;
        QString path;
        int size = 0;
    };

    void decodeLoop();
    void deliver(const Request& request, const QImage& image);
    static QString keyOf(const QUuid& id, const QString& version, int size);

    // Main thread.
    QCache<QString, QPixmap> pixmaps_;
    QSet<QString> failed_; // files that do not decode
    QSet<QString> asked_;  // queued or being decoded
    QHash<QUuid, QSet<QString>> keysOfBook_;

    mutable std::mutex mutex_; // guards the queue below
    std::condition_variable wake_;
    std::deque<Request> waiting_;
    bool stopping_ = false;
    std::thread decoder_;
};

} // namespace folivox
