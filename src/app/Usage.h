#pragma once

// What the program says of its own use: the modes of its command line, the environment it
// reads and the files it keeps. One source for `--help` and for the manual page
// `ombry-voice(1)`, which the build makes from it (man/ombry-manpage.cpp), so that the two
// never tell different things. Plain C++: the manual's generator links nothing else.

#include <span>
#include <string>
#include <string_view>

namespace ombry::usage {

struct Entry {
    std::string_view name;    // "--test", "OMBRY_SITE_URL", "~/.config/…"
    std::string_view args;    // "FICHIER", "" when none
    std::string_view meaning; // one or two sentences, in French
};

std::span<const Entry> switches();
std::span<const Entry> environment();
std::span<const Entry> files();

// The text of `ombry-voice --help`.
std::string helpText(std::string_view version);
// The manual page in roff (man macros), for the given version and date (YYYY-MM-DD).
std::string manPage(std::string_view version, std::string_view date);

} // namespace ombry::usage
