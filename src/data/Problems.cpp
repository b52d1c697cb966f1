#include "data/Problems.h"

#include <mutex>

namespace ombry::DataProblems {
namespace {

struct Reporter {
    std::mutex mutex;
    std::function<void(const QString&)> fn;
};

Reporter& reporter() {
    static auto* r = new Reporter; // never destroyed: reports may come late in the end of a run
    return *r;
}

} // namespace

void setReporter(std::function<void(const QString&)> fn) {
    std::lock_guard lock(reporter().mutex);
    reporter().fn = std::move(fn);
}

void report(const QString& line) {
    std::function<void(const QString&)> fn;
    {
        std::lock_guard lock(reporter().mutex);
        fn = reporter().fn;
    }
    if (fn) fn(line);
}

} // namespace ombry::DataProblems
