#include "sidecars/discovery/SidecarFileCache.h"

namespace folivox {

QString SidecarFileCache::key(const QString& path, std::int64_t size, const QDateTime& modified)
{
    return path + u'\n' + QString::number(size) + u'\n' + QString::number(modified.toMSecsSinceEpoch());
}

std::optional<QString> SidecarFileCache::text(const QString& key)
{
    std::lock_guard lock(lock_);
    const auto it = index_.constFind(key);
    if (it == index_.constEnd())
        return std::nullopt;
    entries_.splice(entries_.begin(), entries_, it.value());
    return entries_.front().text;
}

void SidecarFileCache::insert(const QString& key, const QString& text, std::int64_t cost)
{
    if (cost > kMaxTotalCost)
        return;
    std::lock_guard lock(lock_);
    if (const auto it = index_.constFind(key); it != index_.constEnd()) {
        totalCost_ -= it.value()->cost;
        entries_.erase(it.value());
        index_.remove(key);
    }
    entries_.push_front(Entry{key, text, cost});
    index_.insert(key, entries_.begin());
    totalCost_ += cost;
    evictLocked();
}

void SidecarFileCache::evictLocked()
{
    while (!entries_.empty() && (static_cast<int>(entries_.size()) > kMaxEntries || totalCost_ > kMaxTotalCost)) {
        const Entry& last = entries_.back();
        totalCost_ -= last.cost;
        index_.remove(last.key);
        entries_.pop_back();
    }
}

int SidecarFileCache::count() const
{
    std::lock_guard lock(lock_);
    return static_cast<int>(entries_.size());
}

std::int64_t SidecarFileCache::totalCost() const
{
    std::lock_guard lock(lock_);
    return totalCost_;
}

void SidecarFileCache::clear()
{
    std::lock_guard lock(lock_);
    entries_.clear();
    index_.clear();
    totalCost_ = 0;
}

} // namespace folivox
