#include "desktop/Notify.h"

#include "platform/Platform.h"

namespace ombry::Notify {

void post(const QString& title, const QString& body) {
    Platform::current().notifier().post(title, body);
}

} // namespace ombry::Notify
