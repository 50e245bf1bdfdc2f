#include "sidecars/discovery/SidecarDiscoveryService.h"

#include "platform/Log.h"
#include "sidecars/SidecarError.h"
#include "sidecars/parsers/SidecarParserRegistry.h"
#include "sidecars/parsers/SidecarTextDecoder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <array>

namespace folivox {

namespace {

constexpr std::array<const char16_t*, 5> kSuffixes = {u".chapters.txt", u".cue", u"_chapters.txt", u"-chapters.txt",
                                                      u".ffmetadata"};

QString localPath(const QUrl& url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.path();
}

QString lowerExtension(const QString& name)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot < 0 ? QString() : name.mid(dot + 1).toLower();
}

} // namespace

SidecarDiscoveryService& SidecarDiscoveryService::shared()
{
    static SidecarDiscoveryService instance;
    return instance;
}

std::int64_t SidecarDiscoveryService::totalDuration(const QList<SidecarAudioInput>& audio)
{
    std::int64_t total = 0;
    for (const auto& a : audio) {
        if (!a.durationMs || *a.durationMs <= 0)
            return 0;
        total += *a.durationMs;
    }
    return total;
}

bool SidecarDiscoveryService::sniffAccepts(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return false;
    const QByteArray head = f.read(kSniffBytes);
    const QString text = SidecarTextDecoder::decodeUtf8WithRepair(head);
    return sniffer_.sniff(text, QUrl::fromLocalFile(path)).format.has_value();
}

QList<QUrl> SidecarDiscoveryService::folderScan(const QString& folderPath)
{
    static const QSet<QString> extensions = {QStringLiteral("cue"), QStringLiteral("txt"), QStringLiteral("xml"),
                                             QStringLiteral("ffmetadata")};
    QList<QUrl> found;
    const auto listing = listingCache_.listing(folderPath);
    const QDir dir(folderPath);
    for (const QString& name : listing->regularFiles) {
        const QString ext = lowerExtension(name);
        if (!extensions.contains(ext))
            continue;
        const QString path = dir.filePath(name);
        if (ext == u"txt" && !sniffAccepts(path))
            continue;
        found.append(QUrl::fromLocalFile(path));
    }
    return found;
}

QList<QUrl> SidecarDiscoveryService::candidates(const QList<QUrl>& audioURLs)
{
    QList<QUrl> out;
    QSet<QString> seen;
    QStringList folders;
    auto add = [&](const QString& path) {
        const QString clean = QDir::cleanPath(path);
        if (seen.contains(clean))
            return;
        seen.insert(clean);
        out.append(QUrl::fromLocalFile(clean));
    };
    for (const QUrl& audio : audioURLs) {
        const QFileInfo fi(localPath(audio));
        const QString folder = QDir::cleanPath(fi.absolutePath());
        if (!folders.contains(folder))
            folders.append(folder);
        const QString stem = fi.completeBaseName();
        for (const char16_t* suffix : kSuffixes) {
            const QString name = listingCache_.existingName(folder, stem + QString::fromUtf16(suffix));
            if (name.isEmpty())
                continue;
            const QString path = folder + u'/' + name;
            if (QFileInfo(path).isFile())
                add(path);
        }
    }
    for (const QString& folder : folders) {
        for (const QUrl& u : folderScan(folder))
            add(u.toLocalFile());
    }
    return out;
}

QString SidecarDiscoveryService::readText(const QString& path)
{
    const QFileInfo fi(path);
    const QString name = fi.fileName();
    // Only a regular file is opened: a pipe would block the read until
    // something writes to it, a device might never end.
    if (!fi.exists())
        throw SidecarError::notFound(name);
    if (fi.isDir())
        throw SidecarError::folder(name);
    if (!fi.isFile())
        throw SidecarError::notRegularFile(name);
    const std::int64_t size = fi.size();
    const QString key = SidecarFileCache::key(fi.absoluteFilePath(), size, fi.lastModified());
    if (auto cached = fileCache_.text(key))
        return *cached;
    if (size > kMaxFileSize)
        throw SidecarError::fileTooLarge(name, size);

    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        if (!QFileInfo(path).isReadable())
            throw SidecarError::permissionDenied(name);
        throw SidecarError::readFailed(name, f.errorString());
    }
    // One byte past the limit tells a file that grew since it was measured.
    const QByteArray bytes = f.read(kMaxFileSize + 1);
    if (f.error() != QFileDevice::NoError)
        throw SidecarError::readFailed(name, f.errorString());
    if (bytes.size() > kMaxFileSize)
        throw SidecarError::fileTooLarge(name, bytes.size());
    stats_.recordFileRead();

    const auto decoded = SidecarTextDecoder::decode(bytes);
    if (!decoded)
        throw SidecarError::unsupportedEncoding(name);
    fileCache_.insert(key, decoded->text, size);
    return decoded->text;
}

SidecarDiscoveryResult SidecarDiscoveryService::evaluate(const QList<QUrl>& candidateURLs,
                                                         const QList<QUrl>& audioURLs, std::int64_t totalDurationMs)
{
    SidecarDiscoveryResult result;
    result.discoveredFiles = candidateURLs;

    QList<SidecarMatchingService::AudioName> audio;
    audio.reserve(audioURLs.size());
    for (const QUrl& u : audioURLs)
        audio.append(SidecarMatchingService::describe(u));

    for (const QUrl& url : candidateURLs) {
        const QString path = url.toLocalFile();
        QString text;
        try {
            text = readText(path);
        } catch (const Error& e) {
            result.errors.append(QStringLiteral("Failed to read ") + QFileInfo(path).fileName() + QStringLiteral(": ")
                                 + e.description());
            continue;
        }
        const auto parsed = SidecarParserRegistry::parse(text, url);
        if (!parsed)
            continue;
        const SidecarValidationResult validation =
            validationService_.validate(parsed->format, parsed->chapters, totalDurationMs);
        if (!validation.isValid)
            continue;
        SidecarMatchResult match = matchingService_.bestMatch(*parsed, validation.chapters, audio, totalDurationMs);
        if (!result.match || match.score > result.match->score)
            result.match = std::move(match);
    }

    if (result.match) {
        Log::write(QStringLiteral("[Sidecar] Best chapter file: %1 (%2, %3 chapters, score %4, %5 confidence)")
                       .arg(QFileInfo(result.match->sidecarURL.toLocalFile()).fileName(),
                            sidecarFormatRawValue(result.match->parseResult.format))
                       .arg(result.match->chapters.size())
                       .arg(result.match->score)
                       .arg(sidecarMatchConfidenceRawValue(result.match->confidence)));
    }
    return result;
}

SidecarDiscoveryResult SidecarDiscoveryService::discover(const QList<QUrl>& audioURLs, std::int64_t totalDurationMs)
{
    return evaluate(candidates(audioURLs), audioURLs, totalDurationMs);
}

SidecarDiscoveryResult SidecarDiscoveryService::discover(const QList<SidecarAudioInput>& audio)
{
    QList<QUrl> urls;
    urls.reserve(audio.size());
    for (const auto& a : audio)
        urls.append(a.url);
    return discover(urls, totalDuration(audio));
}

SidecarDiscoveryResult SidecarDiscoveryService::discoverInFolder(const QString& folderPath,
                                                                 const QList<QUrl>& audioURLs,
                                                                 std::int64_t totalDurationMs)
{
    return evaluate(folderScan(QDir::cleanPath(QFileInfo(folderPath).absoluteFilePath())), audioURLs,
                    totalDurationMs);
}

void SidecarDiscoveryService::clearSidecarCache()
{
    fileCache_.clear();
    listingCache_.clear();
}

} // namespace folivox
