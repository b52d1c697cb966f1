#pragma once

#include <QList>

namespace ombry::test {

// Counts the changes of owner of the CLIPBOARD selection, seen from a connection of its own
// to the display (XFixes selection events). A paste shows as one change (the program takes
// the clipboard for its text) and the restore as the next one (the former content is put
// back), without reading the clipboard, which a program that waits for the target's fetch
// would take for that fetch.
class ClipboardWatch {
public:
    ClipboardWatch();
    ~ClipboardWatch();
    ClipboardWatch(const ClipboardWatch&) = delete;
    ClipboardWatch& operator=(const ClipboardWatch&) = delete;

    bool valid() const { return display_ != nullptr; }
    // The changes since the watch was made, leaving out those of the client that owns
    // `window` (an application copying its own selection), when given.
    int changes(qulonglong notByClientOf = 0);
    // Turns the event loop until `count` such changes have come; false on time-out.
    bool waitForChanges(int count, qulonglong notByClientOf = 0, int timeoutMs = 10000);

private:
    void* display_ = nullptr;
    int eventBase_ = 0;
    QList<qulonglong> owners_; // the new owner of each change, None for none
};

// The key codes the X server holds down now, from any device: a program that posts keys must
// leave none of its own behind.
QList<int> keysHeldDown();

} // namespace ombry::test
