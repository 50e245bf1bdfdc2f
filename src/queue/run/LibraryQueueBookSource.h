#pragma once

#include "core/settings/ExportSettings.h"
#include "queue/run/QueueBookSource.h"

#include <QString>
#include <QStringList>

namespace folivox {

// The library on disk as the queue's book source. The library is opened
// (and locked) only while a book is read or a build recorded, never for the
// length of a build.
class LibraryQueueBookSource final : public QueueBookSource {
public:
    explicit LibraryQueueBookSource(QString libraryRoot);

    QueueBuildInput input(const QUuid& bookID) override;

    // Puts a finished build's record on the book (the service's onBookBuilt).
    void recordBuild(const QUuid& bookID, int revision, const QStringList& outputFiles, const ExportSettings& settings);

private:
    QString root_;
};

} // namespace folivox
