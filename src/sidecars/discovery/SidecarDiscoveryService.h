#pragma once

#include "sidecars/discovery/SidecarDirectoryListingCache.h"
#include "sidecars/discovery/SidecarDiscoveryResult.h"
#include "sidecars/discovery/SidecarDiscoveryStats.h"
#include "sidecars/discovery/SidecarFileCache.h"
#include "sidecars/discovery/SidecarMatchingService.h"
#include "sidecars/parsers/SidecarSniffer.h"
#include "sidecars/apply/SidecarValidationService.h"

#include <QList>
#include <QUrl>

#include <cstdint>
#include <optional>

namespace folivox {

// One audio file as discovery sees it; the duration comes from whoever
// inspected the file (discovery never opens audio).
struct SidecarAudioInput {
    QUrl url;
    std::optional<std::int64_t> durationMs;
};

// Finds chapter files beside audio files, reads, parses and validates them,
// scores each against the audio and returns the best.
//
// Candidates, per audio file: the stem plus ".chapters.txt", ".cue",
// "_chapters.txt", "-chapters.txt" and ".ffmetadata" when such a file exists
// (answered from the folder's cached listing, without regard to case); then
// every regular file of the folder with the extension cue, txt, xml or
// ffmetadata (a txt file is kept only if the sniffer recognises its first 500
// bytes). Each file is read at most once per change (file cache), at most
// 1,024,000 bytes, decoded as UTF-8, Windows-1252 or Mac OS Roman. A file that
// can't be read adds a line to errors and discovery goes on.
//
// Safe to call from several threads; the caches are shared and locked.
class SidecarDiscoveryService {
public:
    static constexpr std::int64_t kMaxFileSize = 1'024'000;
    static constexpr int kSniffBytes = 500;

    // The instance import and the book session share, so that the caches
    // filled while a book is open are the ones cleared when it closes.
    static SidecarDiscoveryService& shared();

    // totalDurationMs: the length of all the audio together; 0 when unknown.
    SidecarDiscoveryResult discover(const QList<QUrl>& audioURLs, std::int64_t totalDurationMs = 0);
    // The same, with the total taken as the sum of the durations (unknown if
    // any one is unknown).
    SidecarDiscoveryResult discover(const QList<SidecarAudioInput>& audio);
    // Considers every chapter file of one folder (the folder scan alone) and
    // fits them to the given audio.
    SidecarDiscoveryResult discoverInFolder(const QString& folderPath, const QList<QUrl>& audioURLs,
                                            std::int64_t totalDurationMs = 0);

    // The candidate files for these audio files, in the order they are tried.
    QList<QUrl> candidates(const QList<QUrl>& audioURLs);

    // Reads and decodes one chapter file through the file cache. Throws
    // SidecarError (too large, unreadable, undecodable).
    QString readText(const QString& path);

    // Empties the file cache and the folder listings; called when a book
    // session ends.
    void clearSidecarCache();

    SidecarDirectoryListingCache& listingCache() { return listingCache_; }
    SidecarFileCache& fileCache() { return fileCache_; }
    SidecarDiscoveryStats& stats() { return stats_; }

    static std::int64_t totalDuration(const QList<SidecarAudioInput>& audio);

private:
    QList<QUrl> folderScan(const QString& folderPath);
    bool sniffAccepts(const QString& path);
    SidecarDiscoveryResult evaluate(const QList<QUrl>& candidates, const QList<QUrl>& audioURLs,
                                    std::int64_t totalDurationMs);

    SidecarMatchingService matchingService_;
    SidecarValidationService validationService_;
    SidecarSniffer sniffer_;
    SidecarDirectoryListingCache listingCache_;
    SidecarFileCache fileCache_;
    SidecarDiscoveryStats stats_;
};

} // namespace folivox
