#include "export/decision/SourceFileGroup.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>

namespace folivox {

namespace {

QString folderOf(const QUrl& file)
{
    return QFileInfo(QDir::cleanPath(file.toLocalFile())).path();
}

QList<QUrl> distinct(const QList<QUrl>& files)
{
    QList<QUrl> out;
    for (const QUrl& url : files) {
        if (!out.contains(url))
            out.append(url);
    }
    return out;
}

} // namespace

SourceFileGroup SourceFileGroup::fromFiles(const QList<QUrl>& files)
{
    SourceFileGroup group;
    group.files = distinct(files);
    if (group.files.isEmpty())
        return group;

    QStringList common = folderOf(group.files.front()).split(QLatin1Char('/'));
    bool oneFolder = true;
    for (const QUrl& url : std::as_const(group.files)) {
        const QString folder = folderOf(url);
        if (folder != folderOf(group.files.front()))
            oneFolder = false;
        const QStringList parts = folder.split(QLatin1Char('/'));
        qsizetype shared = 0;
        while (shared < common.size() && shared < parts.size() && common.at(shared) == parts.at(shared))
            ++shared;
        common = common.mid(0, shared);
    }
    QString rootPath = common.join(QLatin1Char('/'));
    if (rootPath.isEmpty())
        rootPath = QStringLiteral("/");
    group.root = QUrl::fromLocalFile(rootPath);
    group.isSynthesizedRoot = !oneFolder;
    return group;
}

std::vector<SourceFileGroup> SourceFileGroup::byFolder(const QList<QUrl>& files)
{
    std::vector<SourceFileGroup> groups;
    for (const QUrl& url : distinct(files)) {
        const QUrl folder = QUrl::fromLocalFile(folderOf(url));
        auto it = std::find_if(groups.begin(), groups.end(), [&](const SourceFileGroup& g) { return g.root == folder; });
        if (it == groups.end()) {
            SourceFileGroup group;
            group.root = folder;
            groups.push_back(group);
            it = groups.end() - 1;
        }
        it->files.append(url);
    }
    return groups;
}

QString SourceFileGroup::relativePath(const QUrl& file) const
{
    const QString path = QDir::cleanPath(file.toLocalFile());
    if (root.isEmpty())
        return path;
    const QString rootPath = QDir::cleanPath(root.toLocalFile());
    const QString prefix = rootPath.endsWith(QLatin1Char('/')) ? rootPath : rootPath + QLatin1Char('/');
    if (!path.startsWith(prefix))
        return path;
    return path.mid(prefix.size());
}

QJsonObject SourceFileGroup::toJson() const
{
    return JsonWriter().set("root", root).set("isSynthesizedRoot", isSynthesizedRoot).set("files", files).object();
}

SourceFileGroup SourceFileGroup::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    SourceFileGroup group;
    group.root = r.url("root");
    group.isSynthesizedRoot = r.boolean("isSynthesizedRoot");
    group.files = r.urlList("files");
    return group;
}

} // namespace folivox
