#pragma once

#include <QByteArray>
#include <QString>

namespace folivox {

// Writes library files so that each one is either its old or its new whole
// self at every moment, also after a kill -9 or a power cut: the bytes go to
// a file in the library's staging folder, are flushed to disk, and the file
// is then renamed over the target (one atomic step on one file system).
// What a killed process leaves in the staging folder is removed by
// clearStaging() the next time the library is opened, under its lock.
//
// Fault-injection points, for tests that stop a write at each step:
// "<point>.staged" (the new bytes are on disk under the staging name) and
// "<point>.replaced" (the target now holds them).
class StagedFileWriter {
public:
    explicit StagedFileWriter(QString stagingFolder);

    // Throws GenericError naming `target` when any step fails; the target is
    // then left as it was.
    void write(const QString& target, const QByteArray& bytes, const char* point) const;
    // Makes `target` a second name of what `source` holds now (a hard link,
    // or a copy where links are not possible), in the same atomic way.
    void preserve(const QString& source, const QString& target, const char* point) const;

    // Removes everything in the staging folder (creating it if needed).
    void clearStaging() const;

    const QString& stagingFolder() const { return staging_; }

private:
    QString stagedName(const QString& target) const;
    void commit(const QString& staged, const QString& target, const char* point) const;

    QString staging_;
};

} // namespace folivox
