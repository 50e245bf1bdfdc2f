#pragma once

#include <QByteArray>
#include <QString>

namespace folivox::test {

// A tmpfs of a given size mounted on a folder, for tests of a full or
// read-only disk. Mounting needs root: mounted() says whether it worked, and
// a test skips when it did not. Unmounted on destruction (lazily when busy).
class SmallVolume {
public:
    // folder is created when missing; options as for mount(8), "size=8k".
    SmallVolume(const QString& folder, const QByteArray& options);
    ~SmallVolume();
    SmallVolume(const SmallVolume&) = delete;
    SmallVolume& operator=(const SmallVolume&) = delete;

    bool mounted() const { return mounted_; }
    // Why mounting failed, for the skip message.
    const QString& failure() const { return failure_; }
    const QString& path() const { return folder_; }
    QString filePath(const QString& name) const;

    // Remounts with new options ("size=8m", "ro"); true when it worked.
    bool remount(const QByteArray& options);
    // Fills the free space with one file of that name.
    void fill(const QString& name = QStringLiteral("filler")) const;

private:
    QString folder_;
    bool mounted_ = false;
    QString failure_;
};

} // namespace folivox::test
