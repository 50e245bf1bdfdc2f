#include "sidecars/discovery/SidecarDirectoryListingCache.h"

#include <QDir>
#include <QFileInfo>

namespace folivox {

QString SidecarDirectoryListingCache::key(const QString& name)
{
    return name.normalized(QString::NormalizationForm_C).toLower();
}

std::shared_ptr<const SidecarDirectoryListingCache::Listing>
SidecarDirectoryListingCache::listing(const QString& folderPath)
{
    {
        std::lock_guard lock(mapLock_);
        const auto it = listings_.constFind(folderPath);
        if (it != listings_.constEnd())
            return it.value();
    }
    auto fresh = std::make_shared<Listing>();
    const QDir dir(folderPath);
    const QFileInfoList entries =
        dir.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    fresh->names.reserve(entries.size());
    for (const QFileInfo& fi : entries) {
        const QString name = fi.fileName();
        fresh->names.insert(key(name), name);
        if (fi.isFile())
            fresh->regularFiles.append(name);
    }
    {
        std::lock_guard lock(countLock_);
        ++listedCount_;
    }
    std::lock_guard lock(mapLock_);
    // Another task may have listed the same folder meanwhile; keep the first.
    const auto it = listings_.constFind(folderPath);
    if (it != listings_.constEnd())
        return it.value();
    listings_.insert(folderPath, fresh);
    return fresh;
}

QString SidecarDirectoryListingCache::existingName(const QString& folderPath, const QString& name)
{
    const auto l = listing(folderPath);
    return l->names.value(key(name));
}

int SidecarDirectoryListingCache::listedCount() const
{
    std::lock_guard lock(countLock_);
    return listedCount_;
}

void SidecarDirectoryListingCache::clear()
{
    {
        std::lock_guard lock(mapLock_);
        listings_.clear();
    }
    std::lock_guard lock(countLock_);
    listedCount_ = 0;
}

} // namespace folivox
