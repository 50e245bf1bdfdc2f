#pragma once

#include <QString>

#include <optional>

namespace folivox {

// How the parallel encode uses the machine: n jobs at once, each given m
// threads ("-threads m"), so that n × m fills the processor cores without
// oversubscribing them. The number of jobs comes from the user's setting
// (the settings key "export.concurrency", or "-j N" on the command line) and
// otherwise from the number of cores; it is never more than there is work.
struct ConcurrencyPlan {
    int jobs = 1;
    int threadsPerJob = 1;

    static constexpr const char* settingsKey = "export.concurrency";

    // cores: the machine's processor count. requestedJobs: the user's choice
    // (0 or below means none). workItems: how many jobs there are to run.
    static ConcurrencyPlan make(int cores, std::optional<int> requestedJobs, int workItems);

    // make() with the machine's core count and the stored setting, unless
    // requestedJobs overrides it.
    static ConcurrencyPlan forMachine(int workItems, std::optional<int> requestedJobs = std::nullopt);

    // The stored setting, when one is set to a positive number.
    static std::optional<int> userSetting();
    static int processorCount();

    QString describe() const;

    bool operator==(const ConcurrencyPlan&) const = default;
};

} // namespace folivox
