#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <optional>

// The microphones of the machine: the sound server's sources that are not monitors of an
// output. A device's uid is the server's name of the source, kept in the settings as
// microphoneUID; its name is the description for people.
namespace ombry::Microphones {

struct Device {
    QString uid;
    QString name;
    bool operator==(const Device&) const = default;
};

// Every microphone, in the server's order; empty when there is no sound server. May block
// briefly on the server: fine on the main thread for a settings page, not in a hot loop.
QList<Device> all();
// The first microphone with this uid.
std::optional<Device> device(const QString& uid);

// Emits changed() on the main thread whenever a microphone is plugged in or out. Made on first
// use (which must be on the main thread), it lives as long as the program.
class Watcher : public QObject {
    Q_OBJECT
public:
    explicit Watcher(QObject* parent = nullptr);

signals:
    void changed();
};
Watcher& watcher();

} // namespace ombry::Microphones
