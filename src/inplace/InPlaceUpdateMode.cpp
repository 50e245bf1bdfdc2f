#include "inplace/InPlaceUpdateMode.h"

namespace folivox {

InPlaceUpdateMode InPlaceUpdateMode::singleFile(QString url, InPlaceSourceFormat format)
{
    InPlaceUpdateMode m;
    m.kind = Kind::singleFile;
    m.url = std::move(url);
    m.format = format;
    return m;
}

InPlaceUpdateMode InPlaceUpdateMode::multipleFiles(QList<FileUpdate> files)
{
    InPlaceUpdateMode m;
    m.kind = Kind::multipleFiles;
    m.files = std::move(files);
    if (!m.files.isEmpty())
        m.format = inPlaceSourceFormatFor(m.files.first().url).value_or(InPlaceSourceFormat::m4a);
    return m;
}

QStringList InPlaceUpdateMode::paths() const
{
    if (kind == Kind::singleFile)
        return {url};
    QStringList out;
    for (const FileUpdate& f : files)
        out << f.url;
    return out;
}

} // namespace folivox
