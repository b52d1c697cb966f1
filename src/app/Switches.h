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
    Snapshot,
    // The dictation key, told to the running program by the desktop's own shortcuts.
    Press,
    Release,
    Toggle,
    // Processes the newest failed dictation again, in the running program.
    Retry,
    Help
};

// Named apart from the on/off widget ombry::Switch: two classes of one name in one program
// would share their inline member functions at link time.
struct CommandLineSwitch {
    Mode mode;
    QStringList args; // the switch's arguments (none, one, or two for --command)
    bool operator==(const CommandLineSwitch&) const = default;
};

// Finds the switch that takes over the run. The arguments are searched from the first element
// (the program path included); a switch's first occurrence counts and its arguments are the
// elements right after it. A switch whose arguments are missing does not apply, and the search
// goes on with the next one. No switch: a normal start.
std::optional<CommandLineSwitch> findSwitch(const QStringList& arguments);

const char* switchName(Mode mode);

} // namespace ombry
