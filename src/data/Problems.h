#pragma once

#include <QString>
#include <functional>

// Problems of the data files that the user should be able to find afterwards (a list file the
// program cannot read and leaves alone, a key refused). The data layer sits below the journal,
// so the program hands it the journal's writer at start; until then (and in tests that set
// nothing) the lines go nowhere. Callable from any thread.
namespace ombry::DataProblems {

void setReporter(std::function<void(const QString&)> reporter);
void report(const QString& line);

} // namespace ombry::DataProblems
