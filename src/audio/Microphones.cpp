#include "audio/Microphones.h"

#include "platform/Platform.h"

#include <QPointer>
#include <algorithm>

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

std::optional<QString> choose(const std::optional<QString>& wanted,
                              const QList<Device>& microphones, const QString& defaultSource) {
    auto listed = [&](const QString& uid) {
        return std::any_of(microphones.begin(), microphones.end(),
                           [&](const Device& d) { return d.uid == uid; });
    };
    if (wanted && !wanted->isEmpty() && listed(*wanted)) return wanted;
    if (!defaultSource.isEmpty() && listed(defaultSource)) return defaultSource;
    return std::nullopt;
}

std::optional<QString> source(const std::optional<QString>& wanted) {
    return choose(wanted, all(), Platform::current().audio().defaultSource());
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
