#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>

#include <cstdint>
#include <list>
#include <mutex>
#include <optional>

namespace folivox {

// Decoded chapter-file text kept in memory between discoveries. At most 50
// entries and a total cost of 5,242,880, the cost of an entry being the file's
// size; the least recently used entries go first. The key joins the file's
// path, size and modification date, so an edited file misses by itself.
// Thread-safe.
class SidecarFileCache {
public:
    static constexpr int kMaxEntries = 50;
    static constexpr std::int64_t kMaxTotalCost = 5'242'880;

    static QString key(const QString& path, std::int64_t size, const QDateTime& modified);

    std::optional<QString> text(const QString& key);
    // An entry costing more than the whole cache is not kept.
    void insert(const QString& key, const QString& text, std::int64_t cost);

    int count() const;
    std::int64_t totalCost() const;
    void clear();

private:
    struct Entry {
        QString key;
        QString text;
        std::int64_t cost = 0;
    };
    void evictLocked();

    mutable std::mutex lock_;
    std::list<Entry> entries_; // most recently used first
    QHash<QString, std::list<Entry>::iterator> index_;
    std::int64_t totalCost_ = 0;
};

} // namespace folivox
