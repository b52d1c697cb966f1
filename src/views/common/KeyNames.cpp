#include "views/common/KeyNames.h"

#include "platform/Platform.h"

namespace ombry {

QString keyLabel(DictationKey key) {
    return label(key, Platform::current().keyboard().rightAltIsAltGr());
}

} // namespace ombry
