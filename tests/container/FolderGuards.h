#pragma once
// Test helpers that make a folder refuse new entries, for root and others.

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QString>
#include <QUuid>

#include <sys/stat.h>

namespace folivox::test {

// While it lives, no file can be created in the folder (chmod 0555, or the
// immutable attribute where the tests run as root). ok() says whether that
// could be arranged on this machine.
class FolderRefusingNewFiles {
public:
    explicit FolderRefusingNewFiles(const QString& folder) : folder_(folder)
    {
        ::chmod(QFile::encodeName(folder).constData(), 0555);
        if (refuses()) {
            ok_ = true;
            return;
        }
        if (QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), folder}) == 0) {
            immutable_ = true;
            ok_ = refuses();
        }
    }
    ~FolderRefusingNewFiles()
    {
        if (immutable_)
            QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), folder_});
        ::chmod(QFile::encodeName(folder_).constData(), 0755);
    }
    bool ok() const { return ok_; }

private:
    bool refuses() const
    {
        QFile probe(folder_ + QStringLiteral("/probe-") + QUuid::createUuid().toString(QUuid::WithoutBraces));
        if (probe.open(QIODevice::WriteOnly)) {
            probe.close();
            probe.remove();
            return false;
        }
        return true;
    }
    QString folder_;
    bool ok_ = false;
    bool immutable_ = false;
};

inline unsigned modeOf(const QString& path)
{
    struct stat st{};
    ::lstat(QFile::encodeName(path).constData(), &st);
    return unsigned(st.st_mode & 07777);
}

} // namespace folivox::test
