#include "build/BuildOutputPlanner.h"

#include "build/BuildFailure.h"
#include "export/strategies/MultiFileExportStrategy.h"
#include "platform/L10n.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>

namespace folivox {

namespace {

// The longest file name Linux file systems take, in bytes.
constexpr qsizetype kNameMax = 255;

// A suffix that reads as a file extension: a short run of letters and
// digits with at least one letter ("txt", "m4b"), not "1" of "Vol.1" nor
// " Smith" of "Mr. Smith".
std::optional<QString> extensionOf(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix();
    static const QRegularExpression pattern(QStringLiteral("^(?=.*[A-Za-z])[A-Za-z0-9]{1,5}$"));
    if (suffix.isEmpty() || !pattern.match(suffix).hasMatch())
        return std::nullopt;
    return suffix.toLower();
}

std::optional<OutputFormat> formatOfExtension(const QString& ext)
{
    if (ext == u"m4b")
        return OutputFormat::m4b;
    if (ext == u"m4a")
        return OutputFormat::m4a;
    if (ext == u"mp3")
        return OutputFormat::mp3;
    return std::nullopt;
}

QString formatName(OutputFormat format)
{
    return format == OutputFormat::m4b ? QStringLiteral("m4b") : format == OutputFormat::m4a ? QStringLiteral("m4a") : QStringLiteral("mp3");
}

bool hasControlCharacter(const QString& text)
{
    return std::any_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x20 || c.unicode() == 0x7f; });
}

} // namespace

OutputFormat BuildOutputPlanner::reconcileFormat(std::optional<OutputFormat> asked, const std::optional<QString>& output)
{
    if (!output || QFileInfo(*output).isDir())
        return asked.value_or(OutputFormat::m4b);
    const std::optional<QString> ext = extensionOf(*output);
    const std::optional<OutputFormat> named = ext ? formatOfExtension(*ext) : std::nullopt;
    if (named && asked && *named != *asked) {
        throw BuildFailure::usage(L10n::format(L10n::text("build.output.formatDisagrees",
                                                          "the output '%@' ends in .%@, but --format is %@: "
                                                          "make them agree, or leave --format out"),
                                               {*output, *ext, formatName(*asked)}),
                                  *output);
    }
    const OutputFormat format = named ? *named : asked.value_or(OutputFormat::m4b);
    if (format == OutputFormat::m4b && ext && !named) {
        throw BuildFailure::usage(L10n::format(L10n::text("build.output.notABookName",
                                                          "the output '%@' ends in .%@, which is not an audiobook: "
                                                          "name the book with .m4b (or give a folder)"),
                                               {*output, *ext}),
                                  *output);
    }
    if (format != OutputFormat::m4b && named) {
        throw BuildFailure::usage(L10n::format(L10n::text("build.output.perChapterNeedsFolder",
                                                          "%@ output is one file per chapter, written into a folder: "
                                                          "give -o a folder (for example '%@') instead of the file name '%@'"),
                                               {formatName(format).toUpper(), QFileInfo(*output).completeBaseName(), *output}),
                                  *output);
    }
    return format;
}

QString BuildOutputPlanner::defaultOutput(const QString& title, OutputFormat format, const QString& folder)
{
    const QString base = MultiFileExportStrategy::sanitizedTitle(title.isEmpty() ? QStringLiteral("Audiobook") : title);
    if (format == OutputFormat::m4b)
        return QDir(folder).absoluteFilePath(base + QStringLiteral(".m4b"));
    return QDir(folder).absoluteFilePath(base);
}

QString BuildOutputPlanner::plan(const std::optional<QString>& requested, const QString& title, OutputFormat format)
{
    if (!requested)
        return defaultOutput(title, format, QDir::currentPath());
    const QFileInfo info(*requested);
    if (format != OutputFormat::m4b)
        return info.absoluteFilePath();
    if (info.isDir())
        return defaultOutput(title, format, info.absoluteFilePath());
    // "Saga Vol.1" has no extension of its own: the book is "Saga Vol.1.m4b".
    return extensionOf(*requested) == QStringLiteral("m4b") ? info.absoluteFilePath()
                                                            : info.absoluteFilePath() + QStringLiteral(".m4b");
}

bool BuildOutputPlanner::checkReplace(const QString& path, OutputFormat format, bool replaceExisting)
{
    const QFileInfo info(path);
    bool exists = false;
    if (format == OutputFormat::m4b) {
        exists = info.exists() || info.isSymLink();
    } else if (info.isDir()) {
        exists = !QDir(path).entryList({QStringLiteral("*.mp3"), QStringLiteral("*.m4a")}, QDir::Files).isEmpty();
    }
    if (exists && !replaceExisting) {
        const QString text = format == OutputFormat::m4b
                                 ? L10n::text("build.output.exists",
                                              "'%@' already exists: give -f (--force) to replace it, or choose another -o")
                                 : L10n::text("build.output.folderHasAudio",
                                              "the folder '%@' already holds audio files: give -f (--force) to replace "
                                              "them, or choose another folder");
        throw BuildFailure::failed(L10n::format(text, {path}), path);
    }
    return exists;
}

qsizetype BuildOutputPlanner::longestDerivedNameBytes(const QString& fileName, OutputFormat format)
{
    const qsizetype own = fileName.toUtf8().size();
    if (format != OutputFormat::m4b)
        return own;
    const qsizetype base = QFileInfo(fileName).completeBaseName().toUtf8().size();
    // "<base>.chapters.txt" for the chapter list, "<base> - Part 999.m4b" for split parts.
    return std::max({own, base + qsizetype(sizeof(".chapters.txt") - 1), base + qsizetype(sizeof(" - Part 999.m4b") - 1)});
}

void BuildOutputPlanner::check(const QString& path, OutputFormat format)
{
    const QFileInfo info(path);
    const QString name = info.fileName();
    if (hasControlCharacter(path)) {
        throw BuildFailure::usage(L10n::format(L10n::text("build.output.controlCharacter",
                                                          "the output name '%@' contains a line break or another control "
                                                          "character: choose a name without one"),
                                               {path}),
                                  path);
    }
    if (longestDerivedNameBytes(name, format) > kNameMax) {
        throw BuildFailure::usage(L10n::format(L10n::text("build.output.nameTooLong",
                                                          "the output name '%@' is too long (%@ bytes): the file system "
                                                          "takes %@ bytes, and the build needs room for '.chapters.txt'; "
                                                          "choose a shorter name"),
                                               {name, QString::number(name.toUtf8().size()), QString::number(kNameMax)}),
                                  path);
    }
    const QFileInfo folder(info.absolutePath());
    if (!folder.exists()) {
        throw BuildFailure::failed(L10n::format(L10n::text("build.output.noFolder",
                                                           "the folder '%@' for the output does not exist: create it, "
                                                           "or give -o a folder that does"),
                                                {folder.absoluteFilePath()}),
                                   path);
    }
    if (!folder.isDir()) {
        throw BuildFailure::failed(L10n::format(L10n::text("build.output.folderIsFile",
                                                           "'%@' is not a folder, so the output cannot go into it"),
                                                {folder.absoluteFilePath()}),
                                   path);
    }
    if (!info.exists() && !info.isSymLink())
        return;
    if (format == OutputFormat::m4b && !info.isFile()) {
        throw BuildFailure::failed(L10n::format(L10n::text("build.output.notAFile",
                                                           "'%@' exists and is not a regular file: choose another output name"),
                                                {path}),
                                   path);
    }
    if (format != OutputFormat::m4b && !info.isDir()) {
        throw BuildFailure::failed(L10n::format(L10n::text("build.output.notAFolder",
                                                           "per-chapter output goes into a folder, and '%@' is a file: "
                                                           "give -o a folder"),
                                                {path}),
                                   path);
    }
}

} // namespace folivox
