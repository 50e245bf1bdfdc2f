#pragma once

#include "inplace/InPlaceSourceFormat.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// What an in-place update writes into: one file, or the per-chapter files
// of a book, each with the title of the chapter it holds.
struct InPlaceUpdateMode {
    enum class Kind { singleFile, multipleFiles };

    struct FileUpdate {
        QString url; // absolute local path
        QString chapterTitle;
        std::optional<QByteArray> artworkData;

        bool operator==(const FileUpdate&) const = default;
    };

    Kind kind = Kind::singleFile;
    // singleFile
    QString url;
    InPlaceSourceFormat format = InPlaceSourceFormat::m4b;
    // multipleFiles
    QList<FileUpdate> files;

    static InPlaceUpdateMode singleFile(QString url, InPlaceSourceFormat format);
    static InPlaceUpdateMode multipleFiles(QList<FileUpdate> files);

    // Every file the update writes, in order.
    QStringList paths() const;

    bool operator==(const InPlaceUpdateMode&) const = default;
};

} // namespace folivox
