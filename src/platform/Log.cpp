#include "platform/Log.h"

#include <QDateTime>
#include <QFile>
#include <QTextStream>

#include <cstdio>
#include <map>
#include <mutex>

namespace folivox {

namespace {

struct LogState {
    std::mutex mutex;
    bool verbose = false;
    std::unique_ptr<QFile> file;
    std::map<int, Log::Sink> sinks;
    int nextSinkId = 1;
};

LogState& state()
{
    static LogState s;
    return s;
}

} // namespace

void Log::write(const QString& line)
{
    auto& s = state();
    std::lock_guard lock(s.mutex);
    if (s.verbose) {
        const QByteArray bytes = line.toUtf8();
        std::fprintf(stderr, "%s\n", bytes.constData());
    }
    if (s.file) {
        const QByteArray bytes = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toUtf8()
            + ' ' + line.toUtf8() + '\n';
        s.file->write(bytes);
        s.file->flush();
    }
    for (auto& [id, sink] : s.sinks)
        sink(line);
}

void Log::write(const QString& tag, const QString& message)
{
    write(QStringLiteral("[") + tag + QStringLiteral("] ") + message);
}

void Log::setVerbose(bool on)
{
    auto& s = state();
    std::lock_guard lock(s.mutex);
    s.verbose = on;
}

bool Log::verbose()
{
    auto& s = state();
    std::lock_guard lock(s.mutex);
    return s.verbose;
}

bool Log::setFile(const QString& path)
{
    auto& s = state();
    std::lock_guard lock(s.mutex);
    s.file.reset();
    if (path.isEmpty())
        return true;
    auto file = std::make_unique<QFile>(path);
    if (!file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        return false;
    s.file = std::move(file);
    return true;
}

int Log::addSink(Sink sink)
{
    auto& s = state();
    std::lock_guard lock(s.mutex);
    const int id = s.nextSinkId++;
    s.sinks.emplace(id, std::move(sink));
    return id;
}

void Log::removeSink(int id)
{
    auto& s = state();
    std::lock_guard lock(s.mutex);
    s.sinks.erase(id);
}

struct LogCapture::State {
    std::mutex mutex;
    QStringList lines;
};

LogCapture::LogCapture()
    : state_(std::make_shared<State>())
{
    auto st = state_;
    sinkId_ = Log::addSink([st](const QString& line) {
        std::lock_guard lock(st->mutex);
        st->lines.append(line);
    });
}

LogCapture::~LogCapture()
{
    Log::removeSink(sinkId_);
}

QStringList LogCapture::lines() const
{
    std::lock_guard lock(state_->mutex);
    return state_->lines;
}

bool LogCapture::contains(const QString& fragment) const
{
    return count(fragment) > 0;
}

int LogCapture::count(const QString& fragment) const
{
    std::lock_guard lock(state_->mutex);
    int n = 0;
    for (const auto& l : state_->lines)
        if (l.contains(fragment))
            ++n;
    return n;
}

} // namespace folivox
