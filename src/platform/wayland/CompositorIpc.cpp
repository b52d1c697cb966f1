#include "platform/wayland/CompositorIpc.h"

#include "platform/linux/DesktopFiles.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandPlatform.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ombry::wayland {

namespace {

// sway answers in well under a millisecond; a compositor that does not is left alone.
constexpr int ipcMs = 300;
constexpr uint32_t swayGetTree = 4;
constexpr char swayMagic[] = "i3-ipc";
constexpr int swayHeader = 6 + 4 + 4; // magic, payload length, message type

std::optional<QJsonObject> focusedNode(const QJsonObject& node) {
    if (node.value(QLatin1String("focused")).toBool()) return node;
    for (const char* list : {"nodes", "floating_nodes"}) {
        for (const QJsonValue& child : node.value(QLatin1String(list)).toArray()) {
            if (std::optional<QJsonObject> found = focusedNode(child.toObject())) return found;
        }
    }
    return std::nullopt;
}

// A connected socket, closed at the end of the scope.
class Socket {
public:
    explicit Socket(const QString& path) {
        const QByteArray name = QFile::encodeName(path);
        sockaddr_un address{};
        if (name.isEmpty() || size_t(name.size()) >= sizeof address.sun_path) return;
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (fd_ < 0) return;
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, name.constData(), size_t(name.size()));
        // A local socket connects at once or not at all.
        if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            close(fd_);
            fd_ = -1;
        }
    }
    ~Socket() {
        if (fd_ >= 0) close(fd_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    bool connected() const { return fd_ >= 0; }

    bool send(const QByteArray& bytes, const Deadline& deadline) {
        qsizetype done = 0;
        while (done < bytes.size()) {
            const ssize_t n =
                ::send(fd_, bytes.constData() + done, size_t(bytes.size() - done), MSG_NOSIGNAL);
            if (n > 0) {
                done += n;
            } else if (n < 0 && errno == EINTR) {
                continue;
            } else if (n < 0 && errno == EAGAIN && wait(POLLOUT, deadline)) {
                continue;
            } else {
                return false;
            }
        }
        return true;
    }
    // Reads until `wanted` bytes are in (-1: until the peer closes); false on a time out.
    bool receive(QByteArray& into, qsizetype wanted, const Deadline& deadline) {
        while (wanted < 0 || into.size() < wanted) {
            char buffer[16384];
            const ssize_t n = ::recv(fd_, buffer, sizeof buffer, 0);
            if (n > 0) {
                into.append(buffer, n);
            } else if (n == 0) {
                return wanted < 0;
            } else if (errno == EINTR || (errno == EAGAIN && wait(POLLIN, deadline))) {
                continue;
            } else {
                return false;
            }
        }
        return true;
    }

private:
    bool wait(short events, const Deadline& deadline) {
        pollfd p{fd_, events, 0};
        for (;;) {
            const int ready = poll(&p, 1, deadline.remaining());
            if (ready < 0 && errno == EINTR) continue;
            return ready > 0;
        }
    }
    int fd_ = -1;
};

linux_platform::DesktopFiles& desktopFiles() {
    static linux_platform::DesktopFiles files;
    return files;
}

QString hyprlandSocket() {
    const QString signature = qEnvironmentVariable("HYPRLAND_INSTANCE_SIGNATURE");
    if (signature.isEmpty()) return {};
    const QString relative = QStringLiteral("hypr/%1/.socket.sock").arg(signature);
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    // Hyprland before 0.40 kept its sockets under /tmp.
    if (!runtime.isEmpty() && QFile::exists(runtime + QLatin1Char('/') + relative))
        return runtime + QLatin1Char('/') + relative;
    return QStringLiteral("/tmp/") + relative;
}

} // namespace

std::optional<FocusedWindow> focusedInSwayTree(const QByteArray& json) {
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject()) return std::nullopt;
    const std::optional<QJsonObject> node = focusedNode(document.object());
    if (!node) return std::nullopt;
    const QString type = node->value(QLatin1String("type")).toString();
    if (type != QLatin1String("con") && type != QLatin1String("floating_con"))
        return std::nullopt; // a workspace or an output: no window has the focus
    FocusedWindow out;
    out.id = uint64_t(node->value(QLatin1String("id")).toDouble());
    out.appId = node->value(QLatin1String("app_id")).toString();
    const QJsonObject x11 = node->value(QLatin1String("window_properties")).toObject();
    out.x11Class = x11.value(QLatin1String("class")).toString();
    out.x11Instance = x11.value(QLatin1String("instance")).toString();
    out.title = node->value(QLatin1String("name")).toString();
    out.pid = int64_t(node->value(QLatin1String("pid")).toDouble());
    return out;
}

std::optional<FocusedWindow> hyprlandActiveWindow(const QByteArray& json) {
    const QJsonDocument document = QJsonDocument::fromJson(json);
    if (!document.isObject()) return std::nullopt;
    const QJsonObject window = document.object();
    const QString address = window.value(QLatin1String("address")).toString();
    if (address.isEmpty()) return std::nullopt;
    FocusedWindow out;
    bool ok = false;
    out.id = address.mid(address.startsWith(QLatin1String("0x")) ? 2 : 0).toULongLong(&ok, 16);
    const QString windowClass = window.value(QLatin1String("class")).toString();
    if (window.value(QLatin1String("xwayland")).toBool())
        out.x11Class = windowClass;
    else
        out.appId = windowClass;
    out.title = window.value(QLatin1String("title")).toString();
    out.pid = int64_t(window.value(QLatin1String("pid")).toDouble());
    return out;
}

AppWindow toAppWindow(const FocusedWindow& window) {
    AppWindow out;
    out.id = window.id;
    out.pid = window.pid;
    std::optional<linux_platform::DesktopEntry> entry;
    if (!window.appId.isEmpty()) {
        // A Wayland app_id is meant to be the desktop file's id; some give a bare name.
        out.windowClass = window.appId;
        entry = desktopFiles().forId(window.appId);
        if (!entry) entry = desktopFiles().forWindowClass(window.appId, QString());
        out.appId = entry ? entry->id : window.appId;
    } else {
        out.windowClass = window.x11Class;
        entry = desktopFiles().forWindowClass(window.x11Class, window.x11Instance);
        out.appId =
            entry ? entry->id
                  : (!window.x11Class.isEmpty() ? window.x11Class : window.x11Instance).toLower();
    }
    out.name = entry && !entry->name.isEmpty() ? entry->name
               : !window.title.isEmpty()       ? window.title
                                               : out.appId;
    return out;
}

std::optional<QByteArray> swayRequest(const QString& socketPath, uint32_t type,
                                      const QByteArray& payload, int timeoutMs) {
    const Deadline deadline(timeoutMs);
    Socket socket(socketPath);
    if (!socket.connected()) return std::nullopt;
    const auto u32 = [](uint32_t v) { return QByteArray(reinterpret_cast<const char*>(&v), 4); };
    if (!socket.send(QByteArray(swayMagic) + u32(uint32_t(payload.size())) + u32(type) + payload,
                     deadline))
        return std::nullopt;
    QByteArray reply;
    if (!socket.receive(reply, swayHeader, deadline) || !reply.startsWith(swayMagic))
        return std::nullopt;
    uint32_t length = 0;
    memcpy(&length, reply.constData() + 6, 4);
    if (!socket.receive(reply, swayHeader + qsizetype(length), deadline)) return std::nullopt;
    return reply.mid(swayHeader, qsizetype(length));
}

std::optional<QByteArray> hyprlandRequest(const QString& socketPath, const QByteArray& request,
                                          int timeoutMs) {
    const Deadline deadline(timeoutMs);
    Socket socket(socketPath);
    if (!socket.connected() || !socket.send(request, deadline)) return std::nullopt;
    QByteArray reply;
    if (!socket.receive(reply, -1, deadline)) return std::nullopt;
    return reply;
}

std::optional<AppWindow> swayFocused() {
    const QString socket = qEnvironmentVariable("SWAYSOCK");
    if (socket.isEmpty()) return std::nullopt;
    const std::optional<QByteArray> tree = swayRequest(socket, swayGetTree, {}, ipcMs);
    if (!tree) return std::nullopt;
    const std::optional<FocusedWindow> window = focusedInSwayTree(*tree);
    if (!window) return std::nullopt;
    return toAppWindow(*window);
}

std::optional<AppWindow> hyprlandActive() {
    const QString socket = hyprlandSocket();
    if (socket.isEmpty()) return std::nullopt;
    const std::optional<QByteArray> reply = hyprlandRequest(socket, "j/activewindow", ipcMs);
    if (!reply) return std::nullopt;
    const std::optional<FocusedWindow> window = hyprlandActiveWindow(*reply);
    if (!window) return std::nullopt;
    return toAppWindow(*window);
}

} // namespace ombry::wayland
