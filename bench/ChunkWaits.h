#pragma once

#include <QList>

namespace ombry::bench {

// The wait after the key goes up for one dictation, with the chunker and as one call on the
// whole recording, against a loopback server whose answer time grows with the audio.
struct ChunkWait {
    double seconds = 0; // length of the dictation
    int pieces = 0;     // pieces the chunker sent
    bool succeeded = false;
    double chunkedMs = 0; // wait after the release with the chunker
    double wholeMs = 0;   // wait after the release with one call
    double ratio() const { return wholeMs > 0 ? chunkedMs / wholeMs : 0; }
};

// Runs three dictations of about a minute (square waves for speech, with pauses) both ways
// and prints a line for each. Needs a Qt application; points OMBRY_OPENROUTER_URL at its own
// server for the time of the run and gives the former value back.
QList<ChunkWait> measureChunkWaits();

} // namespace ombry::bench
