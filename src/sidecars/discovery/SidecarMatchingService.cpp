#include "sidecars/discovery/SidecarMatchingService.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace folivox {

namespace {

QString lastComponent(const QString& pathOrName)
{
    const qsizetype slash = std::max(pathOrName.lastIndexOf(u'/'), pathOrName.lastIndexOf(u'\\'));
    return slash < 0 ? pathOrName : pathOrName.mid(slash + 1);
}

QString localPath(const QUrl& url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.path();
}

bool partialNameMatch(const QString& a, const QString& b)
{
    if (a.isEmpty() || b.isEmpty())
        return false;
    if (a.contains(b) || b.contains(a))
        return true;
    const qsizetype shorter = std::min(a.size(), b.size());
    qsizetype common = 0;
    while (common < shorter && a[common] == b[common])
        ++common;
    return common >= shorter / 2;
}

} // namespace

QString SidecarMatchingService::audioStem(const QString& pathOrName)
{
    const QString name = lastComponent(pathOrName).toLower();
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot < 0 ? name : name.left(dot);
}

QString SidecarMatchingService::sidecarStem(const QString& pathOrName)
{
    QString stem = audioStem(pathOrName);
    if (stem.endsWith(QStringLiteral(".chapters")))
        stem.chop(9);
    return stem;
}

QString SidecarMatchingService::folderOf(const QString& path)
{
    return QDir::cleanPath(QFileInfo(path).absolutePath());
}

SidecarMatchingService::AudioName SidecarMatchingService::describe(const QUrl& audioURL)
{
    const QString path = localPath(audioURL);
    return AudioName{audioURL, lastComponent(path).toLower(), audioStem(path), folderOf(path)};
}

std::optional<std::int64_t> SidecarMatchingService::span(const QList<NormalizedChapter>& chapters)
{
    if (chapters.isEmpty())
        return std::nullopt;
    if (chapters.back().endMs)
        return chapters.back().endMs;
    if (chapters.size() < 2)
        return std::nullopt;
    const std::int64_t first = chapters.front().startMs;
    const std::int64_t last = chapters.back().startMs;
    return last + (last - first) / (chapters.size() - 1);
}

namespace {

// What scoring needs of the chapter file, worked out once for all audio files.
struct SidecarSide {
    QString stem;
    QString folder;
    std::optional<QString> referencedLower;
    std::optional<QString> referencedStem;
    std::optional<std::int64_t> span;
};

SidecarSide describeSidecar(const SidecarParseResult& parseResult, const QList<NormalizedChapter>& chapters)
{
    const QString path = localPath(parseResult.sourceURL);
    SidecarSide side{SidecarMatchingService::sidecarStem(path), SidecarMatchingService::folderOf(path), {}, {},
                     SidecarMatchingService::span(chapters)};
    if (parseResult.referencedAudioFile) {
        side.referencedLower = lastComponent(*parseResult.referencedAudioFile).toLower();
        side.referencedStem = SidecarMatchingService::audioStem(*parseResult.referencedAudioFile);
    }
    return side;
}

SidecarMatchLayers layersFor(const SidecarSide& side, const SidecarMatchingService::AudioName& audio,
                             std::int64_t totalDurationMs)
{
    SidecarMatchLayers l;
    const bool stemsEqual = side.stem == audio.stem;
    if (stemsEqual)
        l.insert(SidecarMatchLayers::exactName);
    if (side.referencedLower
        && (*side.referencedLower == audio.fileNameLower || *side.referencedStem == audio.stem))
        l.insert(SidecarMatchLayers::referencedFile);
    if (totalDurationMs > 0 && side.span) {
        const std::int64_t tolerance =
            std::max(SidecarMatchingService::kSpanToleranceFloorMs, totalDurationMs * 2 / 100);
        const std::int64_t diff = *side.span > totalDurationMs ? *side.span - totalDurationMs
                                                               : totalDurationMs - *side.span;
        if (diff <= tolerance)
            l.insert(SidecarMatchLayers::duration);
    }
    if (side.folder == audio.folder)
        l.insert(SidecarMatchLayers::sameFolder);
    if (!stemsEqual && partialNameMatch(side.stem, audio.stem))
        l.insert(SidecarMatchLayers::partialName);
    return l;
}

} // namespace

SidecarMatchLayers SidecarMatchingService::layers(const SidecarParseResult& parseResult,
                                                  const QList<NormalizedChapter>& chapters, const AudioName& audio,
                                                  std::int64_t totalDurationMs) const
{
    return layersFor(describeSidecar(parseResult, chapters), audio, totalDurationMs);
}

SidecarMatchConfidence SidecarMatchingService::confidence(int score, const SidecarMatchLayers& l)
{
    if (l.contains(SidecarMatchLayers::exactName) || score >= 70
        || (l.contains(SidecarMatchLayers::referencedFile) && l.contains(SidecarMatchLayers::duration)))
        return SidecarMatchConfidence::high;
    if (l.contains(SidecarMatchLayers::sameFolder)) {
        if (score >= 40 || l.contains(SidecarMatchLayers::duration) || l.contains(SidecarMatchLayers::partialName))
            return SidecarMatchConfidence::medium;
    } else if (score >= 40) {
        return SidecarMatchConfidence::medium;
    }
    return score >= 1 ? SidecarMatchConfidence::low : SidecarMatchConfidence::none;
}

SidecarMatchResult SidecarMatchingService::bestMatch(const SidecarParseResult& parseResult,
                                                     const QList<NormalizedChapter>& chapters,
                                                     const QList<QUrl>& audioURLs, std::int64_t totalDurationMs) const
{
    QList<AudioName> audio;
    audio.reserve(audioURLs.size());
    for (const QUrl& u : audioURLs)
        audio.append(describe(u));
    return bestMatch(parseResult, chapters, audio, totalDurationMs);
}

SidecarMatchResult SidecarMatchingService::bestMatch(const SidecarParseResult& parseResult,
                                                     const QList<NormalizedChapter>& chapters,
                                                     const QList<AudioName>& audio, std::int64_t totalDurationMs) const
{
    SidecarMatchResult best;
    best.sidecarURL = parseResult.sourceURL;
    best.chapters = chapters;
    best.parseResult = parseResult;
    bool haveBest = false;
    const SidecarSide side = describeSidecar(parseResult, chapters);
    for (const AudioName& a : audio) {
        const SidecarMatchLayers l = layersFor(side, a, totalDurationMs);
        const int score = l.score();
        if (haveBest && score <= best.score)
            continue;
        haveBest = true;
        best.audioURL = a.url;
        best.score = score;
        best.matchLayers = l;
    }
    best.confidence = haveBest ? confidence(best.score, best.matchLayers) : SidecarMatchConfidence::none;
    return best;
}

} // namespace folivox
