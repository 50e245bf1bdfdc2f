#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace folivox::test {

namespace {
struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run runTool(const QString& program, const QStringList& args)
{
    QProcess p;
    p.setProgram(program);
    p.setArguments(args);
    p.setStandardInputFile(QProcess::nullDevice());
    p.start();
    Run r;
    if (!p.waitForStarted(10000))
        return r;
    p.waitForFinished(600000);
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}
} // namespace

bool Fixtures::ffmpeg(const QStringList& args)
{
    const Run r = runTool(QStringLiteral("ffmpeg"),
                          QStringList{QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"),
                                      QStringLiteral("error"), QStringLiteral("-y")}
                              + args);
    if (r.exitCode != 0) {
        ADD_FAILURE() << "ffmpeg " << args.join(u' ').toStdString() << " failed: " << r.err.toStdString();
        return false;
    }
    return true;
}

bool Fixtures::tone(const QString& path, double seconds, const QStringList& extraArgs, int sampleRate,
                    int channels, int frequency)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QStringList args{QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                     QStringLiteral("sine=frequency=%1:sample_rate=%2:duration=%3")
                         .arg(frequency)
                         .arg(sampleRate)
                         .arg(seconds, 0, 'f', 3)};
    args << QStringLiteral("-ac") << QString::number(channels);
    args << extraArgs << path;
    return ffmpeg(args);
}

double Fixtures::decodedDuration(const QString& path)
{
    const Run r = runTool(QStringLiteral("ffmpeg"), {QStringLiteral("-hide_banner"), QStringLiteral("-nostdin"),
                                                     QStringLiteral("-i"), path, QStringLiteral("-map"),
                                                     QStringLiteral("0:a:0"), QStringLiteral("-f"),
                                                     QStringLiteral("null"), QStringLiteral("-")});
    if (r.exitCode != 0)
        return -1;
    static const QRegularExpression re(QStringLiteral("time=(\\d+):(\\d+):(\\d+(?:\\.\\d+)?)"));
    auto it = re.globalMatch(QString::fromUtf8(r.err));
    double last = -1;
    while (it.hasNext()) {
        const auto m = it.next();
        last = m.captured(1).toDouble() * 3600 + m.captured(2).toDouble() * 60 + m.captured(3).toDouble();
    }
    return last;
}

QString Fixtures::decodedMd5(const QString& path)
{
    const Run r = runTool(QStringLiteral("ffmpeg"),
                          {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                           QStringLiteral("-nostdin"), QStringLiteral("-i"), path, QStringLiteral("-map"),
                           QStringLiteral("0:a:0"), QStringLiteral("-f"), QStringLiteral("md5"), QStringLiteral("-")});
    if (r.exitCode != 0)
        return {};
    return QString::fromUtf8(r.out).trimmed();
}

bool Fixtures::writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return f.write(bytes) == bytes.size();
}

QByteArray Fixtures::readFile(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return f.readAll();
}

} // namespace folivox::test
