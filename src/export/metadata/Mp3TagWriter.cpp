#include "export/metadata/Mp3TagWriter.h"

#include "container/mp4/LanguageCodes.h"
#include "container/io/SafeFileReplace.h"
#include "export/metadata/CoverImageProcessor.h"
#include "export/engine/ExportError.h"
#include "export/metadata/MetadataItemBuilder.h"
#include "platform/FailureCause.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QFile>
#include <QFileInfo>

#include <taglib/attachedpictureframe.h>
#include <taglib/commentsframe.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/textidentificationframe.h>

namespace folivox {

namespace {
TagLib::String str(const QString& s)
{
    return TagLib::String(s.toUtf8().toStdString(), TagLib::String::UTF8);
}

std::optional<QString> nonBlank(const std::optional<QString>& value)
{
    if (!value || value->trimmed().isEmpty())
        return std::nullopt;
    return value->trimmed();
}

void setText(TagLib::ID3v2::Tag& tag, const char* id, const std::optional<QString>& value)
{
    tag.removeFrames(id);
    const auto v = nonBlank(value);
    if (!v)
        return;
    auto* frame = new TagLib::ID3v2::TextIdentificationFrame(TagLib::ByteVector(id), TagLib::String::UTF8);
    frame->setText(str(*v));
    tag.addFrame(frame);
}

void setUserText(TagLib::ID3v2::Tag& tag, const char* description, const std::optional<QString>& value)
{
    if (auto* old = TagLib::ID3v2::UserTextIdentificationFrame::find(&tag, description))
        tag.removeFrame(old);
    const auto v = nonBlank(value);
    if (!v)
        return;
    tag.addFrame(new TagLib::ID3v2::UserTextIdentificationFrame(description, TagLib::StringList(str(*v)),
                                                                TagLib::String::UTF8));
}

// TagLib and QFile::copy say only that they failed: the cause is read off
// the volume the write went to.
ExportError failure(const QString& path, const QString& what, const QString& writtenPath)
{
    return ExportError::underlying(QStringLiteral("Could not %1 the MP3 tags of \"%2\"").arg(what, QFileInfo(path).fileName()),
                                   QStringLiteral("Mp3TagWriter"), FailureCause::ofVolumeAt(writtenPath));
}
} // namespace

void Mp3TagWriter::write(const QString& path, const BookMetadata& m, const QByteArray& cover, const FilePlacement& placement)
{
    WorkDirectory work;
    const QString copy = work.filePath(QStringLiteral("book.mp3"));
    if (!QFile::copy(path, copy))
        throw failure(path, QStringLiteral("read"), copy);
    {
        TagLib::MPEG::File file(QFile::encodeName(copy).constData());
        if (!file.isValid())
            throw failure(path, QStringLiteral("read"), copy);
        TagLib::ID3v2::Tag& tag = *file.ID3v2Tag(true);

        setText(tag, "TIT2", placement.title ? placement.title : std::optional<QString>(m.title));
        setText(tag, "TALB", MetadataItemBuilder::albumTitle(m));
        setText(tag, "TPE1", m.author);
        setText(tag, "TPE2", m.author);
        setText(tag, "TCOM", m.narrator);
        setText(tag, "TIT1", m.seriesName);
        setText(tag, "TDRC", m.year);
        setText(tag, "TCON", m.genre);
        setText(tag, "TCOP", m.copyright);
        setText(tag, "TPUB", m.publisher);
        setText(tag, "TENC", m.encodedBy);
        setText(tag, "TSSE", m.encodedWith);
        setText(tag, "TSOT", m.sortTitle);
        setText(tag, "TSOP", m.sortAuthor);
        setText(tag, "TSOA", MetadataItemBuilder::sortAlbum(m));
        setText(tag, "TSO2", MetadataItemBuilder::sortAlbumArtist(m));
        std::optional<QString> language;
        if (const auto l = nonBlank(m.language))
            language = LanguageCodes::toISO6392(*l).value_or(*l);
        setText(tag, "TLAN", language);
        const auto numbered = [](int number, int count) -> std::optional<QString> {
            if (number <= 0)
                return std::nullopt;
            return count > 0 ? QStringLiteral("%1/%2").arg(number).arg(count) : QString::number(number);
        };
        setText(tag, "TRCK", numbered(placement.trackNumber, placement.trackCount));
        setText(tag, "TPOS", numbered(placement.discNumber, placement.discCount));
        setUserText(tag, "NARRATOR", m.narrator);
        setUserText(tag, "SERIES", m.seriesName);
        setUserText(tag, "SERIES-PART", m.seriesName && m.seriesIndex ? std::optional<QString>(m.seriesIndex->text()) : std::nullopt);
        setUserText(tag, "DESCRIPTION", m.description);
        setUserText(tag, "SUMMARY", m.summary);

        tag.removeFrames("COMM");
        if (const auto c = nonBlank(m.comment)) {
            auto* frame = new TagLib::ID3v2::CommentsFrame(TagLib::String::UTF8);
            frame->setLanguage(TagLib::ByteVector(language && language->size() == 3 ? language->toLatin1().constData() : "eng", 3));
            frame->setText(str(*c));
            tag.addFrame(frame);
        }

        tag.removeFrames("APIC");
        if (!cover.isEmpty()) {
            auto* frame = new TagLib::ID3v2::AttachedPictureFrame();
            frame->setTextEncoding(TagLib::String::UTF8);
            frame->setType(TagLib::ID3v2::AttachedPictureFrame::FrontCover);
            frame->setMimeType(CoverImageProcessor::imageType(cover) == QStringLiteral("png") ? "image/png" : "image/jpeg");
            frame->setPicture(TagLib::ByteVector(cover.constData(), static_cast<unsigned int>(cover.size())));
            tag.addFrame(frame);
        }

        if (!file.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripOthers, TagLib::ID3v2::v4, TagLib::File::DoNotDuplicate))
            throw failure(path, QStringLiteral("write"), copy);
    }
    try {
        SafeFileReplace::replace(copy, path);
    } catch (const Error& e) {
        throw ExportError::underlying(e.description(), QStringLiteral("SafeFileReplace"), e.cause());
    }
    Log::write(QStringLiteral("[MetadataWriting] MP3 tags written (ID3v2.4) for ") + QFileInfo(path).fileName());
}

} // namespace folivox
