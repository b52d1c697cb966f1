// How much of the wait after the key goes up the chunker saves. A minute of dictation (square
// waves for speech, with pauses) goes once through the chunker, cut at its pauses as the
// recorder would, and once as one call on the whole recording, both against a loopback server
// whose answer time grows with the length of the audio (and of the text to rewrite). Prints
// the two waits after the release and their ratio (chunker / one call).
#include "ChunkWaits.h"

#include <QCoreApplication>
#include <QTemporaryDir>

int main(int argc, char** argv) {
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.filePath("config").toUtf8());
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    qputenv("XDG_CACHE_HOME", home.filePath("cache").toUtf8());
    qputenv("OMBRY_SITE_URL", "");
    qputenv("OPENROUTER_API_KEY", "sk-or-bench");
    QCoreApplication app(argc, argv);
    ombry::bench::measureChunkWaits();
    return 0;
}
