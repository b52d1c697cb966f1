#pragma once

#include <QCoroTask>
#include <QString>

// The headless modes of the remote speech model. Each prints its lines and catches its own
// failures as one "erreur: …" line.
namespace ombry {

// `--fasttest {wav}`: raw and cleaned French transcript in one request:
// "rapide ({t} s): raw=[{raw}] clean=[{clean}]".
QCoro::Task<void> runFastTestMode(QString wavPath);

// `--calltest {wav}`: English words of a call excerpt and their French translation:
// "appel ({t} s): {en} → {fr}".
QCoro::Task<void> runCallTestMode(QString wavPath);

} // namespace ombry
