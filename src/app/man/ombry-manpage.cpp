// Writes the manual page ombry-voice(1) from the program's own description of its use, at
// build time: ombry-manpage VERSION DATE OUTPUT
#include "app/Usage.h"

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s VERSION DATE OUTPUT\n", argv[0]);
        return 2;
    }
    const std::string page = ombry::usage::manPage(argv[1], argv[2]);
    std::FILE* out = std::fopen(argv[3], "wb");
    if (!out) {
        std::perror(argv[3]);
        return 1;
    }
    const bool written = std::fwrite(page.data(), 1, page.size(), out) == page.size();
    return std::fclose(out) == 0 && written ? 0 : 1;
}
