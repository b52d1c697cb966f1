#pragma once

#include <QCoroTask>
#include <QString>

namespace ombry {

// `--correct {text}`: the correction, its changes with their explanations, and the formal
// rewrite, each line timed from the start of the mode. Failures are printed, never thrown.
QCoro::Task<void> runCorrectMode(QString text);

} // namespace ombry
