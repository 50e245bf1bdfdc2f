#pragma once

#include "process/ManualCancellationToken.h"

#include <QElapsedTimer>
#include <QString>

#include <chrono>
#include <thread>

namespace folivox::test {

// Cancels a token from another thread after a delay; joins on destruction.
class DelayedCancel {
public:
    DelayedCancel(ManualCancellationToken& token, std::chrono::milliseconds delay)
        : thread_([this, &token, delay] {
              std::this_thread::sleep_for(delay);
              clock_.start();
              token.cancel();
          })
    {
    }
    ~DelayedCancel() { join(); }
    DelayedCancel(const DelayedCancel&) = delete;
    DelayedCancel& operator=(const DelayedCancel&) = delete;

    void join()
    {
        if (thread_.joinable())
            thread_.join();
    }
    // Milliseconds since the token was cancelled.
    qint64 sinceCancel() const { return clock_.elapsed(); }

private:
    QElapsedTimer clock_;
    std::thread thread_;
};

// A stderr line as ffmpeg writes it while it works, with the given time=.
inline QString progressLine(const QString& time)
{
    return QStringLiteral("size=      12kB time=%1 bitrate=  64.0kbits/s speed=1.50x").arg(time);
}

} // namespace folivox::test
