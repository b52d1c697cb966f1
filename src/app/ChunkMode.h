#pragma once

#include <QCoroTask>
#include <QString>

namespace ombry {

// `--chunktest {wav}`: replays a recorded file through the chunker as a live dictation would
// (pauses found block by block), then prints the wait after the end and the text:
// "morceaux: {n}, attente après la fin: {t} s" and "texte: {clean}" ("échec" when it failed).
QCoro::Task<void> runChunkTestMode(QString wavPath);

} // namespace ombry
