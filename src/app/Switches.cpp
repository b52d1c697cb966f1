#include "app/Switches.h"

#include <array>

namespace ombry {
namespace {

struct Entry {
    Mode mode;
    const char* name;
    int argCount;
};

constexpr std::array<Entry, 15> kTable{{
    {Mode::ChunkTest, "--chunktest", 1},
    {Mode::Update, "--update", 0},
    {Mode::FastTest, "--fasttest", 1},
    {Mode::CallTest, "--calltest", 1},
    {Mode::Command, "--command", 2},
    {Mode::Translate, "--translate", 1},
    {Mode::Correct, "--correct", 1},
    {Mode::Test, "--test", 1},
    {Mode::Icon, "--icon", 1},
    {Mode::Snapshot, "--snapshot", 1},
    {Mode::Press, "--press", 0},
    {Mode::Release, "--release", 0},
    {Mode::Toggle, "--toggle", 0},
    {Mode::Retry, "--retry", 0},
    {Mode::Help, "--help", 0},
}};

} // namespace

std::optional<CommandLineSwitch> findSwitch(const QStringList& arguments) {
    for (const Entry& e : kTable) {
        const qsizetype at = arguments.indexOf(QLatin1String(e.name));
        if (at < 0) continue;
        if (at + e.argCount >= arguments.size()) continue; // its argument is missing
        return CommandLineSwitch{e.mode, arguments.mid(at + 1, e.argCount)};
    }
    return std::nullopt;
}

const char* switchName(Mode mode) {
    for (const Entry& e : kTable)
        if (e.mode == mode) return e.name;
    return "";
}

} // namespace ombry
