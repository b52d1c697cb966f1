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

// The source to record from, among the microphones the server lists: the wanted one when it
// is plugged in, else the server's default source when it is a microphone; none otherwise.
// Without any input the servers make the monitor of an output the default source, and what
// the computer plays is never taken for the user's voice. An empty wanted is none.
std::optional<QString> choose(const std::optional<QString>& wanted,
                              const QList<Device>& microphones, const QString& defaultSource);
// The same choice on what the server lists now. Blocks on the server: not on the main thread.
std::optional<QString> source(const std::optional<QString>& wanted);

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
