#include "tools/ChapsCommand.h"

#include "container/mp4/MP4Bytes.h"
#include "tools/ChapterListFile.h"
#include "tools/ChapterTrackWriter.h"
#include "tools/MoovEditor.h"
#include "tools/NeroChapterWriter.h"
#include "tools/ToolError.h"
#include "tools/ToolReport.h"
#include "tools/ToolOptions.h"

#include <QFileInfo>
#include <QSaveFile>

#include <cmath>

namespace folivox {

namespace {
void printUsage(QTextStream& out)
{
    out << "Usage: mp4chaps ACTION [-Q|-N|-A] FILE...\n"
           "Actions:\n"
           "  -i, --import   import <name>.chapters.txt (\"HH:MM:SS.mmm Title\" a line)\n"
           "  -r, --remove   remove chapters\n"
           "  -l, --list     list chapters\n"
           "  -x, --export   export chapters to <name>.chapters.txt\n"
           "Kinds:\n"
           "  -Q, --chapter-qt    QuickTime chapter track\n"
           "  -N, --chapter-nero  Nero chapters (chpl)\n"
           "  -A, --chapter-any   both (default)\n";
    out.flush();
}

QString name(const QString& path)
{
    return QFileInfo(path).fileName();
}

void listKind(QTextStream& out, const char* label, const QList<ChapterEntry>& chapters)
{
    out << label << " chapters (" << chapters.size() << "):\n";
    out << QString::fromUtf8(ChapterListFile::format(chapters));
}

void importChapters(const QString& file, bool qt, bool nero)
{
    const QString listPath = ChapterListFile::pathFor(file);
    QList<ChapterEntry> chapters = ChapterListFile::read(listPath);
    MoovEditor editor(file);
    const auto duration = ChapsCommand::audioDurationMs(editor);
    if (!duration || *duration <= 0)
        throw ToolError(ToolError::Kind::unsupported, name(file) + QStringLiteral(": no sound track with a duration"));
    chapters = ChapterListFile::normalized(chapters, *duration);
    if (chapters.isEmpty())
        throw ToolError(ToolError::Kind::chapterFileInvalid,
                        name(listPath) + QStringLiteral(": no chapter starts before the end of the audio"));
    if (nero)
        NeroChapterWriter::write(editor.moov(), chapters);
    if (qt) {
        ChapterTrackWriter::remove(editor);
        const QByteArray mdat = ChapterTrackWriter::add(editor, chapters, *duration, editor.appendOffset());
        editor.commitAppending(mdat);
    } else {
        editor.commit();
    }
}
} // namespace

std::optional<std::int64_t> ChapsCommand::audioDurationMs(MoovEditor& editor)
{
    MP4BoxTree::Node* audio = editor.primaryAudioTrack();
    if (!audio)
        return std::nullopt;
    const auto header = editor.movieHeader();
    if (const MP4BoxTree::Node* tkhd = audio->child(MP4Bytes::fourCC("tkhd")); header && header->timescale && tkhd) {
        const QByteArray& p = tkhd->payload;
        std::uint64_t d = 0;
        if (!p.isEmpty() && p.at(0) == 1 && p.size() >= 36)
            d = MP4Bytes::be64(p.constData() + 28);
        else if (!p.isEmpty() && p.at(0) == 0 && p.size() >= 24 && MP4Bytes::be32(p.constData() + 20) != 0xFFFFFFFFu)
            d = MP4Bytes::be32(p.constData() + 20);
        if (d > 0)
            return std::int64_t(std::llround(double(d) * 1000.0 / header->timescale));
    }
    const auto media = MoovEditor::mediaTime(*audio);
    if (!media || !media->timescale || !media->duration)
        return std::nullopt;
    return std::int64_t(std::llround(double(media->duration) * 1000.0 / media->timescale));
}

int ChapsCommand::run(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    const QList<ToolOptions::Spec> specs{
        {QStringLiteral("import"), u'i', false},       {QStringLiteral("remove"), u'r', false},
        {QStringLiteral("list"), u'l', false},         {QStringLiteral("export"), u'x', false},
        {QStringLiteral("chapter-qt"), u'Q', false},   {QStringLiteral("chapter-nero"), u'N', false},
        {QStringLiteral("chapter-any"), u'A', false},  {QStringLiteral("quiet"), u'q', false},
        {QStringLiteral("help"), u'h', false},
    };
    QString action;
    bool qt = true;
    bool nero = true;
    QStringList files;
    try {
        const ToolOptions::Parsed parsed = ToolOptions::parse(arguments, specs);
        if (parsed.has(QStringLiteral("help"))) {
            printUsage(out);
            return 0;
        }
        action = parsed.singleAction({QStringLiteral("import"), QStringLiteral("remove"), QStringLiteral("list"),
                                      QStringLiteral("export")});
        const bool wantQt = parsed.has(QStringLiteral("chapter-qt"));
        const bool wantNero = parsed.has(QStringLiteral("chapter-nero"));
        if ((wantQt || wantNero) && !parsed.has(QStringLiteral("chapter-any"))) {
            qt = wantQt;
            nero = wantNero;
        }
        files = parsed.requireFiles();
    } catch (const ToolError& e) {
        return ToolReport::usageFailure("mp4chaps", e, err);
    }

    return ToolReport::forEachFile("mp4chaps", files, err, [&](const QString& file) {
        if (action == QStringLiteral("import")) {
            importChapters(file, qt, nero);
        } else if (action == QStringLiteral("remove")) {
            MoovEditor editor(file);
            if (qt)
                ChapterTrackWriter::remove(editor);
            if (nero)
                NeroChapterWriter::remove(editor.moov());
            editor.commit();
        } else if (action == QStringLiteral("list")) {
            MoovEditor editor(file);
            if (qt)
                listKind(out, "QuickTime", ChapterTrackWriter::read(editor.moov(), file));
            if (nero)
                listKind(out, "Nero", NeroChapterWriter::read(editor.moov()));
            out.flush();
        } else {
            MoovEditor editor(file);
            QList<ChapterEntry> chapters;
            if (qt)
                chapters = ChapterTrackWriter::read(editor.moov(), file);
            if (chapters.isEmpty() && nero)
                chapters = NeroChapterWriter::read(editor.moov());
            if (chapters.isEmpty())
                throw ToolError(ToolError::Kind::unsupported, name(file) + QStringLiteral(": no chapters to export"));
            const QString target = ChapterListFile::pathFor(file);
            if (QFileInfo::exists(target))
                throw ToolError(ToolError::Kind::unsupported, name(target) + QStringLiteral(" already exists; not overwritten"));
            QSaveFile save(target);
            if (!save.open(QIODevice::WriteOnly) || save.write(ChapterListFile::format(chapters)) < 0 || !save.commit())
                throw ToolError(ToolError::Kind::writeFailed, name(target) + QStringLiteral(": ") + save.errorString());
        }
    });
}

} // namespace folivox
