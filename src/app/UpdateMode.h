#pragma once

#include <QCoroTask>

namespace ombry {

// `--update`: asks the product site for a newer build; prints "déjà à jour", or
// "mise à jour {version} trouvée, installation…", installs it, and prints the installation's
// error (an empty line when it went through).
QCoro::Task<void> runUpdateMode();

} // namespace ombry
