#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <memory>
#include <mutex>

namespace folivox {

// Lists a folder once and keeps its entry names, so that discovery over
// thousands of audio files in one folder touches the disk once. Names are
// keyed in canonical composed form (NFC), lower-cased; each key maps to the
// name as it is on disk. Thread-safe: the map and the count each have their own
// lock, held only for lookups and inserts, never while listing.
class SidecarDirectoryListingCache {
public:
    struct Listing {
        // lower-cased NFC name -> name on disk, for every entry
        QHash<QString, QString> names;
        // names on disk of the regular files, in name order
        QStringList regularFiles;
    };

    // The listing of a folder (absolute path), listed on first request. A
    // folder that can't be read gives an empty listing.
    std::shared_ptr<const Listing> listing(const QString& folderPath);
    // The on-disk name of an entry, matched without regard to case or
    // Unicode composition; empty when there is none.
    QString existingName(const QString& folderPath, const QString& name);

    static QString key(const QString& name);

    // How many folders were really listed since creation or the last clear.
    int listedCount() const;
    void clear();

private:
    mutable std::mutex mapLock_;
    QHash<QString, std::shared_ptr<const Listing>> listings_;
    mutable std::mutex countLock_;
    int listedCount_ = 0;
};

} // namespace folivox
