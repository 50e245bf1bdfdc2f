#pragma once

#include <mutex>

namespace folivox {

// Counts chapter files read from disk (cache misses), for diagnostics and to
// show that the file cache works. Thread-safe.
class SidecarDiscoveryStats {
public:
    void recordFileRead()
    {
        std::lock_guard guard(lock_);
        ++filesRead_;
    }
    int filesRead() const
    {
        std::lock_guard guard(lock_);
        return filesRead_;
    }
    void reset()
    {
        std::lock_guard guard(lock_);
        filesRead_ = 0;
    }

private:
    mutable std::mutex lock_;
    int filesRead_ = 0;
};

} // namespace folivox
