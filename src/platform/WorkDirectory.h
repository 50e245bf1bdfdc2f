#pragma once

#include <QString>

namespace folivox {

// A private folder for one piece of temporary work: <temp>/FolivoxWork/<UUID>.
// Made on construction and removed with everything in it on destruction, so
// every exit path of the work that owns it cleans up.
class WorkDirectory {
public:
    WorkDirectory();
    ~WorkDirectory();
    WorkDirectory(const WorkDirectory&) = delete;
    WorkDirectory& operator=(const WorkDirectory&) = delete;
    WorkDirectory(WorkDirectory&& other) noexcept;
    WorkDirectory& operator=(WorkDirectory&& other) noexcept;

    const QString& path() const { return path_; }
    // A path inside the folder.
    QString filePath(const QString& name) const;
    // Keeps the folder on destruction (hand it over to someone else).
    void release() { path_.clear(); }

private:
    QString path_;
};

} // namespace folivox
