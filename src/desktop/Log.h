#pragma once

#include <QString>

// The support journal: `journal.log` in the data folder, one line per message,
// "2026-03-14T09:26:53.123Z message\n". Append-only; callable from any thread; never blocks
// and never fails visibly.
namespace ombry::Log {

// Stamps the message now (on the calling thread) and appends it on the journal's queue.
void write(const QString& message);

// The journal's path.
QString url();

// Waits until every line handed over so far has been written (or dropped).
void sync();

// Points the journal at another file and forgets the open handle, so that the next write
// opens (and, if oversized, deletes) that file as a fresh run would. An empty path goes back
// to the default location. For tests.
void resetForTests(const QString& path = QString());

} // namespace ombry::Log
