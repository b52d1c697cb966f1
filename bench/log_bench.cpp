// How long Log::write holds its caller, and how fast the queue drains to the journal.
#include "desktop/Log.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <cstdio>

int main() {
    QTemporaryDir dir;
    ombry::Log::resetForTests(dir.filePath(QStringLiteral("journal.log")));
    constexpr int kLines = 100000;
    const QString message =
        QStringLiteral("transcription: gemini 1.2 s, 42 mots, moteur principal");
    QElapsedTimer t;
    t.start();
    for (int i = 0; i < kLines; ++i)
        ombry::Log::write(message);
    const double callerUs = double(t.nsecsElapsed()) / 1e3 / kLines;
    ombry::Log::sync();
    const double totalMs = double(t.nsecsElapsed()) / 1e6;
    std::printf("Log::write: %.2f µs per call on the caller; %d lines on disk after %.0f ms\n",
                callerUs, kLines, totalMs);
    return 0;
}
