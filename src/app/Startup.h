#pragma once

namespace ombry {

// The first steps of every start, before anything reads a setting: the move from the former
// identity, then the theme. The switches come right after.
void runStartupHead();

// The end of a headless run: pending list saves are written before the process exits.
void finishHeadlessRun();

} // namespace ombry
