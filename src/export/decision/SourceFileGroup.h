#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUrl>

#include <vector>

namespace folivox {

// A set of source files seen from one folder: the folder that holds them all,
// or, when they lie in different folders, their deepest common ancestor, which
// is then a made-up (synthesised) root rather than a folder the user chose.
struct SourceFileGroup {
    QUrl root;                      // a folder URL; empty for no files
    bool isSynthesizedRoot = false; // the files do not all sit directly in root
    QList<QUrl> files;              // in first-use order, each once

    // One group for all the files.
    static SourceFileGroup fromFiles(const QList<QUrl>& files);
    // One group per folder, in order of the folder's first file.
    static std::vector<SourceFileGroup> byFolder(const QList<QUrl>& files);

    // The file's path below root ("disc 2/03.mp3"); the file's own path when
    // it is not below root.
    QString relativePath(const QUrl& file) const;

    QJsonObject toJson() const;
    static SourceFileGroup fromJson(const QJsonObject& json);

    bool operator==(const SourceFileGroup&) const = default;
};

} // namespace folivox
