#pragma once

#include <QtGlobal>
#include <optional>

namespace ombry::bench {

// What /proc tells of a running process at one moment: the benches that leave the real program
// idle compare two of these.
struct ProcessSample {
    double cpuMs = 0;       // user + system time of all threads
    double residentMb = 0;  // VmRSS
    long long switches = 0; // context switches of all threads: each wake-up is one
    int threads = 0;
};

// nullopt when the process is gone.
std::optional<ProcessSample> sampleProcess(qint64 pid);

} // namespace ombry::bench
