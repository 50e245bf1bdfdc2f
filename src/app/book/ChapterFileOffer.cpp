#include "app/book/ChapterFileOffer.h"

#include "sidecars/apply/SidecarChapterFitter.h"
#include "platform/Error.h"
#include "platform/L10n.h"
#include "sidecars/discovery/SidecarDiscoveryService.h"
#include "sidecars/discovery/SidecarMatchingService.h"
#include "sidecars/parsers/SidecarParserRegistry.h"
#include "sidecars/apply/SidecarValidationService.h"

#include <QFileInfo>

#include <cmath>

namespace folivox {

namespace {

std::int64_t totalMs(const std::vector<Track>& tracks)
{
    double total = 0;
    for (const Track& t : tracks)
        total += t.duration;
    return static_cast<std::int64_t>(std::llround(total * 1000.0));
}

QList<QUrl> urlsOf(const std::vector<Track>& tracks)
{
    QList<QUrl> urls;
    for (const Track& t : tracks)
        urls << t.url;
    return urls;
}

ChapterFileOffer offerFor(const SidecarMatchResult& match, const std::vector<Track>& tracks, const QStringList& warnings)
{
    ChapterFileOffer offer;
    offer.match = match;
    // Fitted as the build and `folivox chapters --audio` fit a chapter file.
    const auto fitted = SidecarChapterFitter::fit(match.parseResult, SidecarChapterFitter::totalDurationMs(tracks));
    offer.chapters = SidecarChapterFitter::bookmarks(tracks, fitted.chapters);
    for (Bookmark& b : offer.chapters)
        b.isSidecarChapter = true;
    offer.warnings = warnings;
    return offer;
}

} // namespace

std::optional<ChapterFileOffer> ChapterFileOffer::evaluate(const QString& path, const std::vector<Track>& tracks,
                                                           QString& error)
{
    const QString name = QFileInfo(path).fileName();
    QString text;
    try {
        text = SidecarDiscoveryService::shared().readText(path);
    } catch (const Error& e) {
        error = L10n::format(L10n::text("app.chapterFile.unreadable", "Cannot read the chapter file %@: %@"),
                             {path, e.description()});
        return std::nullopt;
    }
    const QUrl url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath());
    const auto parsed = SidecarParserRegistry::parse(text, url);
    if (!parsed || parsed->chapters.isEmpty()) {
        error = L10n::format(L10n::text("app.chapterFile.noChapters", "No chapters could be read from %@."), {path});
        return std::nullopt;
    }
    const std::int64_t total = totalMs(tracks);
    const SidecarValidationResult validation = SidecarValidationService().validate(parsed->format, parsed->chapters, total);
    QStringList warnings;
    for (const SidecarWarning& w : parsed->warnings)
        if (w.severity != SidecarWarningSeverity::info)
            warnings << w.message;
    for (const SidecarWarning& w : validation.warnings)
        if (w.severity != SidecarWarningSeverity::info)
            warnings << w.message;
    if (!validation.isValid) {
        error = L10n::format(L10n::text("app.chapterFile.invalid", "The chapters of %@ do not fit the audio: %@"),
                             {path, warnings.isEmpty() ? QString() : warnings.join(QStringLiteral("; "))});
        return std::nullopt;
    }
    const SidecarMatchResult match = SidecarMatchingService().bestMatch(*parsed, validation.chapters, urlsOf(tracks), total);
    ChapterFileOffer offer = offerFor(match, tracks, warnings);
    if (offer.chapters.empty()) {
        error = L10n::format(L10n::text("app.chapterFile.beyondAudio", "The chapters of %@ lie beyond the end of the audio."),
                             {name});
        return std::nullopt;
    }
    return offer;
}

std::optional<ChapterFileOffer> ChapterFileOffer::discover(const std::vector<Track>& tracks)
{
    if (tracks.empty())
        return std::nullopt;
    const SidecarDiscoveryResult found = SidecarDiscoveryService::shared().discover(urlsOf(tracks), totalMs(tracks));
    if (!found.match)
        return std::nullopt;
    ChapterFileOffer offer = offerFor(*found.match, tracks, {});
    if (offer.chapters.empty())
        return std::nullopt;
    return offer;
}

QString ChapterFileOffer::fileName() const
{
    return QFileInfo(match.sidecarURL.toLocalFile()).fileName();
}

QString ChapterFileOffer::confidenceText() const
{
    switch (match.confidence) {
    case SidecarMatchConfidence::high: return L10n::text("app.chapterFile.confidence.high", "high");
    case SidecarMatchConfidence::medium: return L10n::text("app.chapterFile.confidence.medium", "medium");
    case SidecarMatchConfidence::low: return L10n::text("app.chapterFile.confidence.low", "low");
    case SidecarMatchConfidence::none: return L10n::text("app.chapterFile.confidence.none", "none");
    }
    return {};
}

QString ChapterFileOffer::evidenceText() const
{
    const SidecarMatchLayers& l = match.matchLayers;
    QStringList parts;
    if (l.contains(SidecarMatchLayers::exactName))
        parts << L10n::text("app.chapterFile.evidence.exactName", "same name as the audio");
    if (l.contains(SidecarMatchLayers::referencedFile))
        parts << L10n::text("app.chapterFile.evidence.referencedFile", "names the audio file");
    if (l.contains(SidecarMatchLayers::duration))
        parts << L10n::text("app.chapterFile.evidence.duration", "its length fits the audio");
    if (l.contains(SidecarMatchLayers::sameFolder))
        parts << L10n::text("app.chapterFile.evidence.sameFolder", "in the same folder");
    if (l.contains(SidecarMatchLayers::partialName))
        parts << L10n::text("app.chapterFile.evidence.partialName", "a similar name");
    if (parts.isEmpty())
        parts << L10n::text("app.chapterFile.evidence.none", "nothing ties it to the audio");
    return parts.join(QStringLiteral(", "));
}

QString ChapterFileOffer::summary() const
{
    return L10n::format(L10n::text("app.chapterFile.summary", "%@ (%@, %d chapters): %@ confidence, score %d — %@"),
                        {fileName(), sidecarFormatDisplayName(match.parseResult.format),
                         QString::number(chapters.size()), confidenceText(), QString::number(match.score),
                         evidenceText()});
}

} // namespace folivox
