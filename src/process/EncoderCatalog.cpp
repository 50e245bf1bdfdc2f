#include "process/EncoderCatalog.h"

#include "process/BinaryResolver.h"
#include "process/EncoderCatalogError.h"
#include "process/ToolRunner.h"
#include "platform/Error.h"
#include "platform/Log.h"

#include <QRegularExpression>
#include <QStringList>

namespace folivox {

EncoderCatalog::EncoderCatalog(QSet<QString> audioEncoders) : encoders_(std::move(audioEncoders)) {}

QSet<QString> EncoderCatalog::parseEncoderList(const QString& text)
{
    QSet<QString> names;
    bool pastRule = false;
    const QStringList lines = text.split(QRegularExpression(QStringLiteral("[\\r\\n]+")), Qt::SkipEmptyParts);
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        if (!pastRule) {
            // The legend above the rule uses the same flag layout; skip it.
            pastRule = line.startsWith(QLatin1String("---"));
            continue;
        }
        const QStringList fields = line.split(u' ', Qt::SkipEmptyParts);
        if (fields.size() < 2)
            continue;
        const QString& flags = fields[0];
        if (flags.size() == 6 && flags.startsWith(u'A'))
            names.insert(fields[1]);
    }
    return names;
}

EncoderCatalog EncoderCatalog::fromEncoderList(const QString& text)
{
    return EncoderCatalog(parseEncoderList(text));
}

const EncoderCatalog& EncoderCatalog::system()
{
    static const EncoderCatalog catalog = [] {
        try {
            ToolRunner::Options options;
            options.logTag = QStringLiteral("FFmpeg");
            const ToolRunner runner(options);
            const QString ffmpeg = BinaryResolver().resolve(QStringLiteral("ffmpeg"));
            const ToolRunResult r = runner.runBinary(QStringLiteral("ffmpeg"), ffmpeg,
                                                     {QStringLiteral("-hide_banner"), QStringLiteral("-encoders")},
                                                     30, CancellationToken::never());
            if (!r.success) {
                Log::write(QStringLiteral("[FFmpeg] Could not list encoders: ") + r.error.value_or(QString()));
                return EncoderCatalog();
            }
            EncoderCatalog c = fromEncoderList(r.standardOutput);
            Log::write(QStringLiteral("[FFmpeg] Encoders: ") + c.summary());
            return c;
        } catch (const Error& e) {
            Log::write(QStringLiteral("[FFmpeg] Could not list encoders: ") + e.description());
            return EncoderCatalog();
        }
    }();
    return catalog;
}

std::optional<EncoderChoice> EncoderCatalog::single(const char* encoder) const
{
    const QString name = QString::fromLatin1(encoder);
    if (!encoders_.contains(name))
        return std::nullopt;
    return EncoderChoice{name, {}};
}

std::optional<EncoderChoice> EncoderCatalog::aacLC() const
{
    for (const char* name : {"aac_at", "libfdk_aac", "aac"}) {
        if (auto c = single(name))
            return c;
    }
    return std::nullopt;
}

std::optional<EncoderChoice> EncoderCatalog::heAAC() const
{
    if (has(QStringLiteral("aac_at")))
        return EncoderChoice{QStringLiteral("aac_at"), {QStringLiteral("-profile:a"), QStringLiteral("4")}};
    if (has(QStringLiteral("libfdk_aac")))
        return EncoderChoice{QStringLiteral("libfdk_aac"), {QStringLiteral("-profile:a"), QStringLiteral("aac_he")}};
    return std::nullopt;
}

std::optional<EncoderChoice> EncoderCatalog::mp3() const
{
    return single("libmp3lame");
}

std::optional<EncoderChoice> EncoderCatalog::flac() const
{
    return single("flac");
}

std::optional<EncoderChoice> EncoderCatalog::pcm16() const
{
    return single("pcm_s16le");
}

EncoderChoice EncoderCatalog::requireAacLC() const
{
    if (auto c = aacLC())
        return *c;
    throw EncoderCatalogError::encoderMissing(QStringLiteral("AAC"),
                                              {QStringLiteral("aac_at"), QStringLiteral("libfdk_aac"), QStringLiteral("aac")});
}

EncoderChoice EncoderCatalog::requireHeAAC() const
{
    if (auto c = heAAC())
        return *c;
    throw EncoderCatalogError::encoderMissing(QStringLiteral("HE-AAC"),
                                              {QStringLiteral("aac_at"), QStringLiteral("libfdk_aac")});
}

EncoderChoice EncoderCatalog::requireMp3() const
{
    if (auto c = mp3())
        return *c;
    throw EncoderCatalogError::encoderMissing(QStringLiteral("MP3"), {QStringLiteral("libmp3lame")});
}

EncoderChoice EncoderCatalog::requireFlac() const
{
    if (auto c = flac())
        return *c;
    throw EncoderCatalogError::encoderMissing(QStringLiteral("FLAC"), {QStringLiteral("flac")});
}

EncoderChoice EncoderCatalog::requirePcm16() const
{
    if (auto c = pcm16())
        return *c;
    throw EncoderCatalogError::encoderMissing(QStringLiteral("PCM"), {QStringLiteral("pcm_s16le")});
}

QString EncoderCatalog::summary() const
{
    auto name = [](const std::optional<EncoderChoice>& c) { return c ? c->encoder : QStringLiteral("none"); };
    return QStringLiteral("AAC-LC=") + name(aacLC()) + QStringLiteral(" HE-AAC=") + name(heAAC())
        + QStringLiteral(" MP3=") + name(mp3()) + QStringLiteral(" FLAC=") + name(flac())
        + QStringLiteral(" PCM=") + name(pcm16());
}

} // namespace folivox
