#include "import/probe/Id3MultiValues.h"

#include <QFile>

#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/tpropertymap.h>

namespace folivox {

namespace {

// TagLib's property names where libavformat names the field otherwise.
QString libavKey(const QString& property)
{
    if (property == u"ALBUMARTIST")
        return QStringLiteral("album_artist");
    if (property == u"TRACKNUMBER")
        return QStringLiteral("track");
    if (property == u"DISCNUMBER")
        return QStringLiteral("disc");
    return property.toLower();
}

} // namespace

QMap<QString, QString> Id3MultiValues::of(const QString& path)
{
    QMap<QString, QString> values;
    TagLib::MPEG::File file(QFile::encodeName(path).constData(), false);
    if (!file.isValid() || !file.hasID3v2Tag())
        return values;
    const TagLib::PropertyMap properties = file.ID3v2Tag()->properties();
    for (auto it = properties.begin(); it != properties.end(); ++it) {
        if (it->second.size() < 2)
            continue;
        QStringList parts;
        for (const TagLib::String& v : it->second)
            parts << QString::fromStdString(v.to8Bit(true));
        values.insert(libavKey(QString::fromStdString(it->first.to8Bit(true))), parts.join(QLatin1Char(';')));
    }
    return values;
}

} // namespace folivox
