#include "import/probe/AudioSourceFormat.h"

namespace folivox {

bool AudioSourceFormat::isHEAACFamily() const
{
    const QString c = codec.toLower();
    return c == u"he-aac" || c == u"he-aacv2" || c == u"xhe-aac";
}

QString AudioSourceFormat::longNameForCodec(const QString& codec)
{
    const QString c = codec.toLower();
    if (c.startsWith(u"pcm"))
        return QStringLiteral("PCM (Pulse Code Modulation)");
    if (c == u"mp3" || c == u"mp3float")
        return QStringLiteral("MP3 (MPEG Audio Layer 3)");
    if (c == u"aac" || c == u"aac-lc")
        return QStringLiteral("AAC (Advanced Audio Coding)");
    if (c == u"he-aac")
        return QStringLiteral("AAC-HE (High Efficiency AAC)");
    if (c == u"he-aacv2")
        return QStringLiteral("AAC-HEv2 (High Efficiency AAC v2)");
    if (c == u"xhe-aac")
        return QStringLiteral("xHE-AAC (MPEG-D USAC, Extended HE-AAC)");
    if (c == u"flac")
        return QStringLiteral("FLAC (Free Lossless Audio Codec)");
    if (c == u"alac")
        return QStringLiteral("ALAC (Apple Lossless Audio Codec)");
    if (c == u"vorbis")
        return QStringLiteral("Vorbis");
    return codec.toUpper();
}

QJsonObject AudioSourceFormat::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("codec"), codec);
    o.insert(QStringLiteral("codecLongName"), codecLongName);
    if (bitrate)
        o.insert(QStringLiteral("bitrate"), *bitrate);
    o.insert(QStringLiteral("sampleRate"), sampleRate);
    o.insert(QStringLiteral("channels"), channels);
    o.insert(QStringLiteral("duration"), duration);
    if (format)
        o.insert(QStringLiteral("format"), *format);
    o.insert(QStringLiteral("aacSignaledNoSBR"), aacSignaledNoSBR);
    return o;
}

AudioSourceFormat AudioSourceFormat::fromJson(const QJsonObject& o)
{
    AudioSourceFormat f;
    f.codec = o.value(QStringLiteral("codec")).toString();
    f.codecLongName = o.value(QStringLiteral("codecLongName")).toString();
    if (o.contains(QStringLiteral("bitrate")))
        f.bitrate = o.value(QStringLiteral("bitrate")).toInt();
    f.sampleRate = o.value(QStringLiteral("sampleRate")).toInt();
    f.channels = o.value(QStringLiteral("channels")).toInt();
    f.duration = o.value(QStringLiteral("duration")).toDouble();
    if (o.contains(QStringLiteral("format")))
        f.format = o.value(QStringLiteral("format")).toString();
    f.aacSignaledNoSBR = o.value(QStringLiteral("aacSignaledNoSBR")).toBool();
    return f;
}

std::uint32_t ProbedAudioFormat::fourCC(const char (&code)[5])
{
    return (static_cast<std::uint32_t>(static_cast<unsigned char>(code[0])) << 24)
        | (static_cast<std::uint32_t>(static_cast<unsigned char>(code[1])) << 16)
        | (static_cast<std::uint32_t>(static_cast<unsigned char>(code[2])) << 8)
        | static_cast<std::uint32_t>(static_cast<unsigned char>(code[3]));
}

} // namespace folivox
