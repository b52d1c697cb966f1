#include "audio/Microphones.h"

#include "platform/Platform.h"

#include <QPointer>

namespace ombry::Microphones {

QList<Device> all() {
    QList<Device> out;
    for (const AudioSource& source : Platform::current().audio().microphones())
        out << Device{source.name, source.description};
    return out;
}

std::optional<Device> device(const QString& uid) {
    for (const Device& d : all())
        if (d.uid == uid) return d;
    return std::nullopt;
}

Watcher::Watcher(QObject* parent) : QObject(parent) {
    // The audio system calls back on the main thread; a watcher that is gone hears nothing.
    Platform::current().audio().watchMicrophones([self = QPointer<Watcher>(this)] {
        if (self) emit self->changed();
    });
}

Watcher& watcher() {
    static auto* instance = new Watcher;
    return *instance;
}

} // namespace ombry::Microphones
