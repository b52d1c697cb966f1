#include "app/Startup.h"

namespace ombry {

void runStartupHead() {}

void finishHeadlessRun() {}

} // namespace ombry
