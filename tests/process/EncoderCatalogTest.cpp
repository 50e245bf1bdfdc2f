#include "process/EncoderCatalog.h"
#include "process/EncoderCatalogError.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {
const char* const kLegend =
    "Encoders:\n"
    " V..... = Video\n"
    " A..... = Audio\n"
    " S..... = Subtitle\n"
    " .F.... = Frame-level multithreading\n"
    " ..S... = Slice-level multithreading\n"
    " ...X.. = Codec is experimental\n"
    " ....B. = Supports draw_horiz_band\n"
    " .....D = Supports direct rendering method 1\n"
    " ------\n";

// As Debian's ffmpeg 5.1 prints it (abridged).
const char* const kDebian =
    " V....D a64multi             Multicolor charset for Commodore 64 (codec a64_multi)\n"
    " V....D libx264              libx264 H.264 / AVC / MPEG-4 AVC / MPEG-4 part 10 (codec h264)\n"
    " A..... aac                  AAC (Advanced Audio Coding)\n"
    " A....D flac                 FLAC (Free Lossless Audio Codec)\n"
    " A....D libmp3lame           libmp3lame MP3 (MPEG audio layer 3) (codec mp3)\n"
    " A....D pcm_s16le            PCM signed 16-bit little-endian\n"
    " A....D libopus              libopus Opus (codec opus)\n"
    " S..... mov_text             3GPP Timed Text subtitle\n";

// A macOS build with AudioToolbox, and a build with the Fraunhofer encoder.
const char* const kMac =
    " A....D aac                  AAC (Advanced Audio Coding)\n"
    " A..... aac_at               aac (AudioToolbox) (codec aac)\n"
    " A....D libmp3lame           libmp3lame MP3 (MPEG audio layer 3) (codec mp3)\n";
const char* const kFdk =
    " A....D aac                  AAC (Advanced Audio Coding)\n"
    " A....D libfdk_aac           Fraunhofer FDK AAC (codec aac)\n"
    " A....D flac                 FLAC (Free Lossless Audio Codec)\n";

QString text(const char* body)
{
    return QString::fromUtf8(kLegend) + QString::fromUtf8(body);
}
} // namespace

TEST(EncoderCatalogTest, ParsingKeepsOnlyAudioEncodersBelowTheRule)
{
    const QSet<QString> names = EncoderCatalog::parseEncoderList(text(kDebian));
    EXPECT_EQ(names, (QSet<QString>{QStringLiteral("aac"), QStringLiteral("flac"), QStringLiteral("libmp3lame"),
                                    QStringLiteral("pcm_s16le"), QStringLiteral("libopus")}));
    // The legend's "A..... = Audio" is not an encoder called "=".
    EXPECT_FALSE(names.contains(QStringLiteral("=")));
    EXPECT_TRUE(EncoderCatalog::parseEncoderList(QString()).isEmpty());
    // Windows line ends parse the same.
    QString crlf = text(kDebian);
    crlf.replace(QStringLiteral("\n"), QStringLiteral("\r\n"));
    EXPECT_EQ(EncoderCatalog::parseEncoderList(crlf), names);
}

TEST(EncoderCatalogTest, ChoicesFollowThePreferenceOrder)
{
    const EncoderCatalog debian = EncoderCatalog::fromEncoderList(text(kDebian));
    EXPECT_EQ(debian.requireAacLC(), (EncoderChoice{QStringLiteral("aac"), {}}));
    EXPECT_EQ(debian.heAAC(), std::nullopt);
    EXPECT_EQ(debian.requireMp3().codecArguments(), (QStringList{QStringLiteral("-c:a"), QStringLiteral("libmp3lame")}));
    EXPECT_EQ(debian.requireFlac().encoder, QStringLiteral("flac"));
    EXPECT_EQ(debian.requirePcm16().encoder, QStringLiteral("pcm_s16le"));

    const EncoderCatalog mac = EncoderCatalog::fromEncoderList(text(kMac));
    EXPECT_EQ(mac.requireAacLC().encoder, QStringLiteral("aac_at"));
    EXPECT_EQ(mac.requireHeAAC().codecArguments(),
              (QStringList{QStringLiteral("-c:a"), QStringLiteral("aac_at"), QStringLiteral("-profile:a"),
                           QStringLiteral("4")}));
    EXPECT_EQ(mac.flac(), std::nullopt);

    const EncoderCatalog fdk = EncoderCatalog::fromEncoderList(text(kFdk));
    EXPECT_EQ(fdk.requireAacLC().encoder, QStringLiteral("libfdk_aac"));
    EXPECT_EQ(fdk.requireHeAAC().codecArguments(),
              (QStringList{QStringLiteral("-c:a"), QStringLiteral("libfdk_aac"), QStringLiteral("-profile:a"),
                           QStringLiteral("aac_he")}));
    EXPECT_EQ(fdk.summary(),
              QStringLiteral("AAC-LC=libfdk_aac HE-AAC=libfdk_aac MP3=none FLAC=flac PCM=none"));
}

TEST(EncoderCatalogTest, MissingEncodersFailWithAMessageNamingThem)
{
    const EncoderCatalog debian = EncoderCatalog::fromEncoderList(text(kDebian));
    try {
        debian.requireHeAAC();
        FAIL() << "HE-AAC should not be available";
    } catch (const EncoderCatalogError& e) {
        EXPECT_EQ(e.kind(), EncoderCatalogError::Kind::encoderMissing);
        EXPECT_EQ(e.description(), QStringLiteral("HE-AAC encoding needs the \"aac_at\" or \"libfdk_aac\" encoder, "
                                                  "and the installed ffmpeg has none of them."));
    }
    const EncoderCatalog none;
    try {
        none.requireMp3();
        FAIL() << "MP3 should not be available";
    } catch (const EncoderCatalogError& e) {
        EXPECT_EQ(e.description(),
                  QStringLiteral("MP3 encoding needs the \"libmp3lame\" encoder, which the installed ffmpeg does not have."));
    }
    try {
        none.requireAacLC();
        FAIL() << "AAC should not be available";
    } catch (const EncoderCatalogError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("AAC encoding needs the \"aac_at\", \"libfdk_aac\" or \"aac\" encoder, "
                                                  "and the installed ffmpeg has none of them."));
    }
}
