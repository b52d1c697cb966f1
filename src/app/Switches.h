#pragma once

#include <QStringList>
#include <optional>

namespace ombry {

// The command-line modes, in the order in which they are tested.
enum class Mode {
    ChunkTest,
    Update,
    FastTest,
    CallTest,
    Command,
    Translate,
    Correct,
    Test,
    Icon,
    Snapshot
};

struct Switch {
    Mode mode;
    QStringList args; // the switch's arguments (none, one, or two for --command)
    bool operator==(const Switch&) const = default;
};

// Finds the switch that takes over the run. The arguments are searched from the first element
// (the program path included); a switch's first occurrence counts and its arguments are the
// elements right after it. A switch whose arguments are missing does not apply, and the search
// goes on with the next one. No switch: a normal start.
std::optional<Switch> findSwitch(const QStringList& arguments);

const char* switchName(Mode mode);

} // namespace ombry
