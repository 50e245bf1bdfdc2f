#include "app/library/ThumbnailCache.h"

#include <QImageReader>

namespace folivox {

ThumbnailCache::ThumbnailCache(QObject* parent)
    : QObject(parent)
{
    // About 600 grid covers at 150 px.
    pixmaps_.setMaxCost(64 * 1024 * 1024);
    decoder_ = std::thread([this] { decodeLoop(); });
}

ThumbnailCache::~ThumbnailCache()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        waiting_.clear();
    }
    wake_.notify_all();
    decoder_.join();
}

QString ThumbnailCache::keyOf(const QUuid& id, const QString& version, int size)
{
    return id.toString(QUuid::Id128) + u'/' + version + u'/' + QString::number(size);
}

int ThumbnailCache::pending() const
{
    std::lock_guard lock(mutex_);
    return static_cast<int>(waiting_.size());
}

QPixmap ThumbnailCache::thumbnail(const QUuid& id, const QString& path, const QString& version, int size)
{
    const QString key = keyOf(id, version, size);
    if (const QPixmap* hit = pixmaps_.object(key))
        return *hit;
    if (path.isEmpty() || failed_.contains(key) || asked_.contains(key))
        return {};
    // Newest first; the oldest requests give way (they are asked again when
    // their books come into view again).
    QStringList dropped;
    {
        std::lock_guard lock(mutex_);
        waiting_.push_front(Request{key, id, path, size});
        while (static_cast<int>(waiting_.size()) > kMaxWaiting) {
            dropped << waiting_.back().key;
            waiting_.pop_back();
        }
    }
    asked_.insert(key);
    for (const QString& d : dropped)
        asked_.remove(d);
    wake_.notify_one();
    return {};
}

void ThumbnailCache::forget(const QUuid& id)
{
    for (const QString& key : keysOfBook_.take(id)) {
        pixmaps_.remove(key);
        failed_.remove(key);
        asked_.remove(key);
    }
}

void ThumbnailCache::decodeLoop()
{
    for (;;) {
        Request request;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
            if (stopping_)
                return;
            request = waiting_.front();
            waiting_.pop_front();
        }
        QImageReader reader(request.path);
        reader.setAutoTransform(true);
        const QSize full = reader.size();
        if (full.isValid())
            reader.setScaledSize(full.scaled(request.size, request.size, Qt::KeepAspectRatio));
        QImage image = reader.read();
        if (!image.isNull() && (image.width() > request.size || image.height() > request.size))
            image = image.scaled(request.size, request.size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        QMetaObject::invokeMethod(this, [this, request, image] { deliver(request, image); }, Qt::QueuedConnection);
    }
}

void ThumbnailCache::deliver(const Request& request, const QImage& image)
{
    asked_.remove(request.key);
    keysOfBook_[request.id].insert(request.key);
    if (image.isNull()) {
        failed_.insert(request.key);
        return;
    }
    auto* pixmap = new QPixmap(QPixmap::fromImage(image));
    pixmaps_.insert(request.key, pixmap, pixmap->width() * pixmap->height() * 4);
    Q_EMIT ready(request.id);
}

} // namespace folivox
