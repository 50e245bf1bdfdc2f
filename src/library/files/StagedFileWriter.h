#pragma once

#include <QByteArray>
#include <QString>

#include <vector>

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

    // Writes `target` whole or not at all as far as a crash of the program
    // goes (staged, then renamed), without waiting for the disk: for files
    // that are not worth a flush of their own, such as logs. Writeback is
    // started at once, so that the next flush of the file system (on ext4,
    // the next journal commit) carries the file; a power cut before that may
    // lose it. Throws GenericError naming `target`.
    void writeUnflushed(const QString& target, const QByteArray& bytes) const;

    // Several files written as one step: each is written to the staging
    // folder, all are flushed to disk, then they are renamed into place in
    // the order they were added and their folders are flushed once each (a
    // folder shared by the files costs one flush, not one per file).
    // Fault points: "<point>.staged" (all flushed, none renamed) and
    // "<point>.replaced" (all in place). What is not committed is removed
    // when the batch ends.
    class Batch {
    public:
        explicit Batch(const StagedFileWriter& writer);
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

        // Throws GenericError naming `target`.
        void add(const QString& target, const QByteArray& bytes);
        // Throws GenericError naming the file that failed; files renamed
        // before it stay in place.
        void commit(const char* point);

    private:
        struct File {
            QString staged;
            QString target;
            int fd = -1;
        };
        void discard();

        const StagedFileWriter& writer_;
        std::vector<File> files_;
    };

    const QString& stagingFolder() const { return staging_; }

private:
    QString stagedName(const QString& target) const;
    void commit(const QString& staged, const QString& target, const char* point) const;

    QString staging_;
};

} // namespace folivox
