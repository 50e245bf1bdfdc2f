#include "library/LibraryScanner.h"

#include "import/ImportCoordinator.h"
#include "import/TrackOrdering.h"

#include <QCollator>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace folivox {

namespace {

constexpr int kMaxDepth = 32;

QString canonical(const QFileInfo& info)
{
    const QString c = info.canonicalFilePath();
    return c.isEmpty() ? info.absoluteFilePath() : c;
}

bool isAudio(const QFileInfo& info)
{
    return ImportCoordinator::audioExtensions().contains(info.suffix().toLower());
}

bool isFinishedBook(const QFileInfo& info)
{
    return info.suffix().compare(QStringLiteral("m4b"), Qt::CaseInsensitive) == 0;
}

struct Listing {
    QFileInfoList files;
    QFileInfoList folders;
};

Listing list(const QString& folder, const QCollator& collator)
{
    Listing l;
    const QFileInfoList entries =
        QDir(folder).entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QFileInfo& e : entries) {
        if (e.fileName().startsWith(u'.'))
            continue;
        if (e.isDir()) {
            if (!e.isSymLink())
                l.folders << e;
        } else if (isAudio(e)) {
            l.files << e;
        }
    }
    const auto byName = [&collator](const QFileInfo& a, const QFileInfo& b) {
        return collator.compare(a.fileName(), b.fileName()) < 0;
    };
    std::stable_sort(l.files.begin(), l.files.end(), byName);
    std::stable_sort(l.folders.begin(), l.folders.end(), byName);
    return l;
}

// The non-M4B audio of a disc folder and everything below it; M4B files
// found there become books of their own.
void collectDisc(const QString& folder, const QCollator& collator, int depth, QList<QUrl>& files,
                 std::vector<BookCandidate>& finished)
{
    if (depth > kMaxDepth)
        return;
    const Listing l = list(folder, collator);
    for (const QFileInfo& f : l.files) {
        if (isFinishedBook(f))
            finished.push_back({BookCandidate::Kind::finishedBook, canonical(f), {QUrl::fromLocalFile(canonical(f))},
                                f.completeBaseName()});
        else
            files << QUrl::fromLocalFile(canonical(f));
    }
    for (const QFileInfo& sub : l.folders)
        collectDisc(sub.absoluteFilePath(), collator, depth + 1, files, finished);
}

bool containsAudio(const QString& folder, const QCollator& collator, int depth)
{
    if (depth > kMaxDepth)
        return false;
    const Listing l = list(folder, collator);
    if (!l.files.isEmpty())
        return true;
    return std::any_of(l.folders.begin(), l.folders.end(),
                       [&](const QFileInfo& sub) { return containsAudio(sub.absoluteFilePath(), collator, depth + 1); });
}

void visit(const QString& folder, const QCollator& collator, int depth, std::vector<BookCandidate>& out)
{
    if (depth > kMaxDepth)
        return;
    const Listing l = list(folder, collator);
    BookCandidate book;
    book.kind = BookCandidate::Kind::folder;
    book.sourcePath = canonical(QFileInfo(folder));
    book.fallbackTitle = QFileInfo(folder).fileName();
    std::vector<BookCandidate> finished;
    for (const QFileInfo& f : l.files) {
        if (isFinishedBook(f))
            finished.push_back({BookCandidate::Kind::finishedBook, canonical(f), {QUrl::fromLocalFile(canonical(f))},
                                f.completeBaseName()});
        else
            book.files << QUrl::fromLocalFile(canonical(f));
    }
    QFileInfoList others;
    for (const QFileInfo& sub : l.folders) {
        if (LibraryScanner::isDiscFolderName(sub.fileName()) && containsAudio(sub.absoluteFilePath(), collator, depth + 1))
            collectDisc(sub.absoluteFilePath(), collator, depth + 1, book.files, finished);
        else
            others << sub;
    }
    if (!book.files.isEmpty())
        out.push_back(book);
    out.insert(out.end(), finished.begin(), finished.end());
    for (const QFileInfo& sub : others)
        visit(sub.absoluteFilePath(), collator, depth + 1, out);
}

} // namespace

bool LibraryScanner::isDiscFolderName(const QString& name)
{
    static const QRegularExpression kDisc(QStringLiteral("^\\s*(cd|disc|disk|диск)[\\s._-]*[0-9]{1,2}(\\D.*)?$"),
                                          QRegularExpression::CaseInsensitiveOption);
    return kDisc.match(name).hasMatch();
}

std::vector<BookCandidate> LibraryScanner::scan(const QString& path)
{
    std::vector<BookCandidate> out;
    const QFileInfo info(path);
    if (!info.exists())
        return out;
    if (!info.isDir()) {
        if (isAudio(info))
            out.push_back({isFinishedBook(info) ? BookCandidate::Kind::finishedBook : BookCandidate::Kind::file,
                           canonical(info), {QUrl::fromLocalFile(canonical(info))}, info.completeBaseName()});
        return out;
    }
    const QCollator collator = TrackOrdering::makeCollator();
    visit(canonical(info), collator, 0, out);
    return out;
}

} // namespace folivox
