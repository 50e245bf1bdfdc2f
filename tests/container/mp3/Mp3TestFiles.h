#pragma once
// MP3 bytes for the integrity tests: real files from ffmpeg, and the test's
// own minimal frame walk to know where each frame of a clean file starts, so
// that cuts and fills land exactly where a test wants them.

#include "support/Fixtures.h"

#include <QByteArray>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace folivox::test {

struct Mp3TestFiles {
    // An MP3 from ffmpeg's sine (or, with noise, its pink noise) source.
    static QByteArray make(const QString& path, double seconds, const QStringList& encodeArgs, int sampleRate = 44100,
                           int channels = 2, bool noise = false)
    {
        QStringList args{QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                         noise ? QStringLiteral("anoisesrc=color=pink:sample_rate=%1:duration=%2:seed=5")
                                     .arg(sampleRate)
                                     .arg(seconds, 0, 'f', 3)
                               : QStringLiteral("sine=frequency=440:sample_rate=%1:duration=%2")
                                     .arg(sampleRate)
                                     .arg(seconds, 0, 'f', 3),
                         QStringLiteral("-ac"), QString::number(channels), QStringLiteral("-c:a"),
                         QStringLiteral("libmp3lame")};
        args << encodeArgs << path;
        QDir().mkpath(QFileInfo(path).absolutePath());
        if (!Fixtures::ffmpeg(args))
            return {};
        return Fixtures::readFile(path);
    }

    struct Frame {
        qsizetype offset;
        int length;
    };

    // The frames of a clean ffmpeg file: after its ID3v2 tag, header after
    // header until the bytes run out or stop being a header.
    static std::vector<Frame> frames(const QByteArray& bytes)
    {
        const auto* p = reinterpret_cast<const std::uint8_t*>(bytes.constData());
        qsizetype pos = 0;
        if (bytes.startsWith("ID3"))
            pos = 10 + ((p[6] << 21) | (p[7] << 14) | (p[8] << 7) | p[9]);
        static const int v1[] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
        static const int v2[] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
        std::vector<Frame> out;
        while (pos + 4 <= bytes.size() && p[pos] == 0xFF && (p[pos + 1] & 0xE0) == 0xE0) {
            const int version = (p[pos + 1] >> 3) & 3; // 3 MPEG 1, 2 MPEG 2, 0 MPEG 2.5
            const int rates[4][3] = {{11025, 12000, 8000}, {0, 0, 0}, {22050, 24000, 16000}, {44100, 48000, 32000}};
            const int rate = rates[version][(p[pos + 2] >> 2) & 3];
            const int kbps = (version == 3 ? v1 : v2)[p[pos + 2] >> 4];
            const int length = (version == 3 ? 144 : 72) * kbps * 1000 / rate + ((p[pos + 2] >> 1) & 1);
            if (length <= 4 || pos + length > bytes.size())
                break;
            out.push_back({pos, length});
            pos += length;
        }
        return out;
    }

    // Frames [first, first + count) of `frames` with everything after their
    // first two bytes of side information overwritten by noise: the walk
    // still finds them (their headers stand), but their data no longer
    // decodes.
    static void spoil(QByteArray& bytes, const std::vector<Frame>& frames, std::size_t first, std::size_t count,
                      unsigned seed)
    {
        std::uint32_t x = seed * 2654435761u + 7;
        for (std::size_t k = first; k < first + count; ++k) {
            for (qsizetype i = frames[k].offset + 6; i < frames[k].offset + frames[k].length; ++i) {
                x = x * 1664525u + 1013904223u;
                bytes[i] = char(x >> 24);
            }
        }
    }

    // The decoded audio of a file as ffmpeg plays it (encoder delay and
    // padding trimmed), mixed to mono float.
    static std::vector<float> decodedSamples(const QString& path)
    {
        QProcess p;
        p.start(QStringLiteral("ffmpeg"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-nostdin"),
                                           QStringLiteral("-i"), path, QStringLiteral("-ac"), QStringLiteral("1"),
                                           QStringLiteral("-f"), QStringLiteral("f32le"), QStringLiteral("-")});
        if (!p.waitForFinished(120000) || p.exitCode() != 0)
            return {};
        const QByteArray out = p.readAllStandardOutput();
        std::vector<float> samples(std::size_t(out.size()) / sizeof(float));
        std::memcpy(samples.data(), out.constData(), samples.size() * sizeof(float));
        return samples;
    }

    // How close b is to a over [from, to), in dB (signal over difference).
    static double snr(const std::vector<float>& a, const std::vector<float>& b, std::size_t from, std::size_t to)
    {
        double signal = 0, noise = 0;
        for (std::size_t i = from; i < to && i < a.size() && i < b.size(); ++i) {
            signal += double(a[i]) * a[i];
            noise += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
        }
        return 10.0 * std::log10(signal / std::max(noise, 1e-20));
    }

    // Random bytes that hold no 0xFF and none of the letters that open a tag,
    // so they can be neither a frame nor a tag.
    static QByteArray garbage(qsizetype n, unsigned seed)
    {
        QByteArray out(n, '\0');
        std::uint32_t x = seed * 2654435761u + 1;
        for (qsizetype i = 0; i < n; ++i) {
            x = x * 1664525u + 1013904223u;
            char c = char((x >> 24) % 0xFF);
            if (c == 'I' || c == 'T' || c == 'A')
                c = 'x';
            out[i] = c;
        }
        return out;
    }
};

} // namespace folivox::test
