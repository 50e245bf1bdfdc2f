#include "export/settings/AudiobookSourceInfo.h"

#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cmath>

namespace folivox {

namespace {

bool isHEAAC(const QString& codec)
{
    return codec == u"he-aac" || codec == u"he-aacv2" || codec == u"xhe-aac";
}

bool isLossless(const QString& codec)
{
    static const QStringList lossless{QStringLiteral("flac"), QStringLiteral("alac"), QStringLiteral("wavpack"),
                                      QStringLiteral("ape"),  QStringLiteral("tta"),  QStringLiteral("truehd"),
                                      QStringLiteral("mlp"),  QStringLiteral("wav")};
    return codec.startsWith(u"pcm") || lossless.contains(codec);
}

QString codecLabel(const QString& codec)
{
    if (codec == u"aac-lc" || codec == u"aac")
        return QStringLiteral("AAC-LC");
    if (codec == u"he-aac")
        return QStringLiteral("HE-AAC");
    if (codec == u"he-aacv2")
        return QStringLiteral("HE-AACv2");
    if (codec == u"xhe-aac")
        return QStringLiteral("xHE-AAC");
    return codec.toUpper();
}

} // namespace

AudiobookSourceInfo AudiobookSourceInfo::fromTracks(const std::vector<Track>& tracks, int chapterCount)
{
    AudiobookSourceInfo info;
    info.chapterCount = chapterCount;
    QSet<QUrl> seen;
    for (const Track& t : tracks) {
        if (seen.contains(t.url))
            continue;
        seen.insert(t.url);
        ++info.totalFileCount;
        info.totalDuration += std::isfinite(t.duration) && t.duration > 0 ? t.duration : 0.0;

        const QFileInfo file(t.url.toLocalFile());
        const QString suffix = file.suffix().toLower();
        if (!suffix.isEmpty())
            info.fileExtensions.insert(suffix);

        if (t.cachedFileSize)
            info.totalSize += *t.cachedFileSize;
        else if (file.exists())
            info.totalSize += static_cast<quint64>(std::max<qint64>(0, file.size()));

        if (t.cachedCodec) {
            ++info.cachedFileCount;
            const QString codec = t.cachedCodec->toLower();
            if (!info.codecs.contains(codec))
                info.codecs << codec;
        }
        if (t.cachedSampleRate && *t.cachedSampleRate > 0)
            info.sampleRates.insert(*t.cachedSampleRate);
        if (t.cachedChannels && *t.cachedChannels > 0)
            info.channels.insert(*t.cachedChannels);
        if (t.cachedBitrate && *t.cachedBitrate > 0)
            info.bitratesBps.insert(*t.cachedBitrate);
    }
    if (info.totalSize > 0 && info.totalDuration > 0) {
        const double kbps = static_cast<double>(info.totalSize) * 8.0 / info.totalDuration / 1000.0;
        if (kbps >= 1.0 && kbps < 1.0e7)
            info.avgBitrateKbpsFallback = static_cast<int>(std::lround(kbps));
    }
    info.formattedPrimaryLine = info.makePrimaryLine();
    return info;
}

std::optional<int> AudiobookSourceInfo::measuredBitrateKbps() const
{
    if (bitratesBps.empty())
        return std::nullopt;
    return static_cast<int>(std::lround(*bitratesBps.rbegin() / 1000.0));
}

std::optional<int> AudiobookSourceInfo::bitrateKbps() const
{
    if (auto measured = measuredBitrateKbps())
        return measured;
    return avgBitrateKbpsFallback;
}

std::optional<int> AudiobookSourceInfo::maxSampleRate() const
{
    if (sampleRates.empty())
        return std::nullopt;
    return *sampleRates.rbegin();
}

std::optional<int> AudiobookSourceInfo::maxChannels() const
{
    if (channels.empty())
        return std::nullopt;
    return *channels.rbegin();
}

bool AudiobookSourceInfo::hasHEAACSource() const
{
    return std::any_of(codecs.begin(), codecs.end(), [](const QString& c) { return isHEAAC(c.toLower()); });
}

bool AudiobookSourceInfo::hasLosslessSource() const
{
    return std::any_of(codecs.begin(), codecs.end(), [](const QString& c) { return isLossless(c.toLower()); });
}

QString AudiobookSourceInfo::makePrimaryLine() const
{
    QStringList parts;
    parts << (totalFileCount == 1 ? QStringLiteral("1 file") : QStringLiteral("%1 files").arg(totalFileCount));
    const qint64 minutes = std::llround(totalDuration / 60.0);
    parts << QStringLiteral("%1h %2m").arg(minutes / 60).arg(minutes % 60, 2, 10, QChar(u'0'));
    if (!codecs.isEmpty()) {
        QStringList labels;
        for (const QString& c : codecs)
            labels << codecLabel(c);
        parts << labels.join(QStringLiteral("/"));
    }
    if (auto rate = maxSampleRate())
        parts << QStringLiteral("%1 Hz").arg(*rate);
    if (auto ch = maxChannels())
        parts << (*ch == 1 ? QStringLiteral("Mono") : *ch == 2 ? QStringLiteral("Stereo") : QStringLiteral("%1 ch").arg(*ch));
    if (auto kbps = bitrateKbps())
        parts << QStringLiteral("%1 kbps").arg(*kbps);
    return parts.join(QStringLiteral(" · "));
}

} // namespace folivox
