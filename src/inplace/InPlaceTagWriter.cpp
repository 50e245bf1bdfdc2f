#include "inplace/InPlaceTagWriter.h"

#include "export/metadata/CoverImageProcessor.h"
#include "export/metadata/MetadataItemBuilder.h"
#include "platform/Error.h"

#include <QFile>
#include <QImage>

#include <taglib/aifffile.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/flacfile.h>
#include <taglib/flacpicture.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/tpropertymap.h>
#include <taglib/vorbisfile.h>
#include <taglib/xiphcomment.h>

namespace folivox {

namespace {
TagLib::String str(const QString& s)
{
    return TagLib::String(s.toUtf8().constData(), TagLib::String::UTF8);
}

void put(TagLib::PropertyMap& map, const char* key, const std::optional<QString>& value)
{
    if (value && !value->trimmed().isEmpty())
        map.replace(key, TagLib::StringList(str(value->trimmed())));
}

TagLib::PropertyMap changed(TagLib::PropertyMap map, const InPlaceTagWriter::Change& c, bool vorbis)
{
    const BookMetadata& m = c.metadata;
    std::optional<QString> title = c.placement.title;
    if (!title && c.titleGiven)
        title = m.title;
    put(map, "TITLE", title);
    if (c.titleGiven)
        put(map, "ALBUM", MetadataItemBuilder::albumTitle(m));
    put(map, "ARTIST", m.author);
    put(map, "ALBUMARTIST", m.author);
    put(map, "COMPOSER", m.narrator);
    put(map, "NARRATOR", m.narrator);
    put(map, "SERIES", m.seriesName);
    if (m.seriesIndex)
        put(map, "SERIES-PART", m.seriesIndex->text());
    put(map, "DATE", m.year);
    put(map, "GENRE", m.genre);
    put(map, "COMMENT", m.comment);
    put(map, "DESCRIPTION", m.description);
    put(map, "SUMMARY", m.summary);
    put(map, "COPYRIGHT", m.copyright);
    put(map, vorbis ? "LABEL" : "LABEL", m.publisher);
    put(map, "LANGUAGE", m.language);
    put(map, "ENCODEDBY", m.encodedBy);
    put(map, "TITLESORT", m.sortTitle);
    put(map, "ARTISTSORT", m.sortAuthor);
    put(map, "ALBUMSORT", m.sortAlbum);
    put(map, "ALBUMARTISTSORT", m.sortAlbumArtist);
    if (c.placement.trackNumber > 0) {
        QString n = QString::number(c.placement.trackNumber);
        if (c.placement.trackCount > 0)
            n += u'/' + QString::number(c.placement.trackCount);
        put(map, "TRACKNUMBER", n);
    }
    return map;
}

QString mimeOf(const QByteArray& image)
{
    return CoverImageProcessor::imageType(image) == QLatin1String("png") ? QStringLiteral("image/png") : QStringLiteral("image/jpeg");
}

void setId3Cover(TagLib::ID3v2::Tag* tag, const InPlaceTagWriter::Change& c)
{
    if (!c.removeCover && !c.cover)
        return;
    tag->removeFrames("APIC");
    if (!c.cover)
        return;
    auto* frame = new TagLib::ID3v2::AttachedPictureFrame;
    frame->setMimeType(str(mimeOf(*c.cover)));
    frame->setType(TagLib::ID3v2::AttachedPictureFrame::FrontCover);
    frame->setPicture(TagLib::ByteVector(c.cover->constData(), uint(c.cover->size())));
    tag->addFrame(frame);
}

TagLib::FLAC::Picture* flacPicture(const QByteArray& bytes)
{
    auto* p = new TagLib::FLAC::Picture;
    p->setType(TagLib::FLAC::Picture::FrontCover);
    p->setMimeType(str(mimeOf(bytes)));
    p->setData(TagLib::ByteVector(bytes.constData(), uint(bytes.size())));
    const QImage image = QImage::fromData(bytes);
    if (!image.isNull()) {
        p->setWidth(image.width());
        p->setHeight(image.height());
        p->setColorDepth(image.depth());
    }
    return p;
}

[[noreturn]] void fail(const QString& what)
{
    throw GenericError(what);
}
} // namespace

void InPlaceTagWriter::write(const QString& path, InPlaceSourceFormat format, const Change& c)
{
    const QByteArray name = QFile::encodeName(path);
    switch (format) {
    case InPlaceSourceFormat::mp3: {
        TagLib::MPEG::File f(name.constData());
        if (!f.isValid())
            fail(QStringLiteral("TagLib cannot read the MP3 file"));
        f.setProperties(changed(f.properties(), c, false));
        setId3Cover(f.ID3v2Tag(true), c);
        if (!f.save(TagLib::MPEG::File::ID3v2 | (f.hasID3v1Tag() ? TagLib::MPEG::File::ID3v1 : 0), TagLib::File::StripNone,
                    TagLib::ID3v2::v4, TagLib::File::DoNotDuplicate))
            fail(QStringLiteral("TagLib could not save the MP3 tags"));
        return;
    }
    case InPlaceSourceFormat::aiff: {
        TagLib::RIFF::AIFF::File f(name.constData());
        if (!f.isValid())
            fail(QStringLiteral("TagLib cannot read the AIFF file"));
        f.setProperties(changed(f.properties(), c, false));
        setId3Cover(f.tag(), c);
        if (!f.save(TagLib::ID3v2::v4))
            fail(QStringLiteral("TagLib could not save the AIFF tags"));
        return;
    }
    case InPlaceSourceFormat::flac: {
        TagLib::FLAC::File f(name.constData());
        if (!f.isValid())
            fail(QStringLiteral("TagLib cannot read the FLAC file"));
        TagLib::Ogg::XiphComment* x = f.xiphComment(true);
        x->setProperties(changed(x->properties(), c, true));
        if (c.removeCover || c.cover)
            f.removePictures();
        if (c.cover)
            f.addPicture(flacPicture(*c.cover));
        if (!f.save())
            fail(QStringLiteral("TagLib could not save the FLAC tags"));
        return;
    }
    case InPlaceSourceFormat::oggVorbis: {
        TagLib::Ogg::Vorbis::File f(name.constData());
        if (!f.isValid() || !f.tag())
            fail(QStringLiteral("TagLib cannot read the Ogg Vorbis file"));
        TagLib::Ogg::XiphComment* x = f.tag();
        x->setProperties(changed(x->properties(), c, true));
        if (c.removeCover || c.cover)
            x->removeAllPictures();
        if (c.cover)
            x->addPicture(flacPicture(*c.cover));
        if (!f.save())
            fail(QStringLiteral("TagLib could not save the Ogg Vorbis tags"));
        return;
    }
    case InPlaceSourceFormat::m4b:
    case InPlaceSourceFormat::m4a:
        fail(QStringLiteral("MP4 files are tagged with the mp4 tools"));
    }
}

} // namespace folivox
