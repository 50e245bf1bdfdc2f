#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace folivox::test {

// Builders for real media files, made by ffmpeg in the test itself.
class Fixtures {
public:
    // Runs ffmpeg with these arguments (after "-hide_banner -loglevel error -y");
    // fails the current test (ADD_FAILURE) and returns false when it fails.
    static bool ffmpeg(const QStringList& args);

    // A sine tone of the given length written to path; the encoder and
    // container follow from extraArgs (for example {"-c:a","aac","-b:a","64k"})
    // or, when empty, from the file extension.
    static bool tone(const QString& path, double seconds, const QStringList& extraArgs = {},
                     int sampleRate = 44100, int channels = 2, int frequency = 440);

    // Duration in seconds as ffprobe-free ffmpeg reports it (decodes the file);
    // negative when it cannot be read.
    static double decodedDuration(const QString& path);

    // MD5 of the decoded audio of the first audio stream ("ffmpeg -i F -map 0:a -f md5 -").
    static QString decodedMd5(const QString& path);

    // Writes bytes to a file, creating folders; returns false on failure.
    static bool writeFile(const QString& path, const QByteArray& bytes);
    static QByteArray readFile(const QString& path);
};

} // namespace folivox::test
