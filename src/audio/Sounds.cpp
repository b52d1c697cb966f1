#include "audio/Sounds.h"

namespace ombry {

QByteArray soundPcm(Sound) {
    return {};
}
void playSound(Sound) {}

} // namespace ombry
