#pragma once

#include "platform/Desktop.h"

namespace ombry::x11 {

// Every format of a selection ("CLIPBOARD", "PRIMARY") of another client, read on a connection
// of its own with one deadline for all of them: an owner that does not answer (a frozen
// application) costs that long at most, and the formats it had not given by then are named in
// `late`. Formats are named as Qt names them (the text targets are "text/plain", in UTF-8), so
// that QClipboard serves them back as they were. Blocks its caller until done; any thread.
ClipboardRead readSelection(const char* selection, int deadlineMs);

} // namespace ombry::x11
