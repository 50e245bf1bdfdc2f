#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <vector>

namespace folivox {

// One book found on disk, before it is imported.
struct BookCandidate {
    enum class Kind {
        folder,     // the audio files of one folder (with its disc folders)
        finishedBook, // one M4B file
        file,       // one audio file given on its own
    };
    Kind kind = Kind::folder;
    QString sourcePath;   // canonical path of the folder or file: the book's identity in the library
    QList<QUrl> files;    // the audio files to import
    QString fallbackTitle;
};

// Turns folders and files into books:
//  - a folder whose audio lies in it (and in its disc folders, "CD1",
//    "Disc 2", "disk_3", ...) is one book; disc folders belong to their
//    parent's book and order by their number;
//  - every other sub-folder is looked at the same way, so a tree of many
//    books gives a book per leaf folder;
//  - an M4B file is a finished book of its own, wherever it lies;
//  - hidden files and folders, and folders reached through symbolic links,
//    are skipped.
// Books come in the order of the folders, numbers in names by value.
class LibraryScanner {
public:
    static std::vector<BookCandidate> scan(const QString& path);
    static bool isDiscFolderName(const QString& name);
};

} // namespace folivox
