#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

namespace folivox {

// The one logging facility. Every line starts with its bracketed subsystem tag,
// e.g. "[FFmpeg] Binary: /usr/bin/ffmpeg". Lines go to any number of sinks:
// an optional file (a build's diagnostic log), an optional stderr echo
// (--verbose), and capture scopes used by tests and by callers that keep a
// build's log in memory. Thread-safe.
class Log {
public:
    // Writes one line. The caller includes the tag.
    static void write(const QString& line);
    // Convenience: "[tag] message".
    static void write(const QString& tag, const QString& message);

    // Echo every line to stderr (the CLI's --verbose).
    static void setVerbose(bool on);
    static bool verbose();

    // Appends every line to this file from now on; an empty path closes it.
    // Returns false when the file cannot be opened.
    static bool setFile(const QString& path);

    using Sink = std::function<void(const QString&)>;
    // Registers a sink; returns an id for removeSink.
    static int addSink(Sink sink);
    static void removeSink(int id);
};

// Collects every line written while it lives. Used by tests to check log
// lines, and by services that keep a run's log.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList lines() const;
    bool contains(const QString& fragment) const;
    int count(const QString& fragment) const;

private:
    struct State;
    std::shared_ptr<State> state_;
    int sinkId_ = -1;
};

} // namespace folivox
