// libsecret pulls in GLib, whose headers use the word "signals": it comes before any Qt header.
#include <libsecret/secret.h>

#include "platform/linux/LinuxPlatform.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QStringList>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace ombry::linux_platform {
namespace {

constexpr const char* kSecretsBusName = "org.freedesktop.secrets";
constexpr auto kLookupTimeout = std::chrono::seconds(3);

// The items the former build wrote: a generic password under (service, account).
const SecretSchema* genericPasswordSchema() {
    static const SecretSchema schema = {
        "com.quennard.talvo.GenericPassword",
        SECRET_SCHEMA_DONT_MATCH_NAME,
        {
            {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
        },
        0,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
    };
    return &schema;
}

// Whether a Secret Service can answer at all: a session bus, and the service running there or
// startable by the bus. Without this, libsecret would wait for a bus or a service that never
// comes.
bool secretServiceReachable() {
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) return false;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()) return false;
    const QDBusReply<bool> registered =
        bus.interface()->isServiceRegistered(QLatin1String(kSecretsBusName));
    if (registered.isValid() && registered.value()) return true;
    const QDBusReply<QStringList> activatable =
        bus.interface()->call(QStringLiteral("ListActivatableNames"));
    return activatable.isValid() && activatable.value().contains(QLatin1String(kSecretsBusName));
}

// Cancels a GLib operation if it outlives the time-out.
class Watchdog {
public:
    explicit Watchdog(GCancellable* cancellable)
        : thread_([this, cancellable] {
              std::unique_lock lock(mutex_);
              if (!cv_.wait_for(lock, kLookupTimeout, [this] { return done_; }))
                  g_cancellable_cancel(cancellable);
          }) {}
    ~Watchdog() {
        {
            std::lock_guard lock(mutex_);
            done_ = true;
        }
        cv_.notify_all();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    bool done_ = false;
    std::thread thread_;
};

// Reads the former build's keys from the Secret Service. Read only, and never asks the user
// anything: locked items are skipped rather than unlocked, since unlocking may prompt.
class SecretServiceKeychain final : public Keychain {
public:
    std::optional<QString> genericPassword(const QString& service,
                                           const QString& account) override {
        if (!secretServiceReachable()) return std::nullopt;

        GCancellable* cancellable = g_cancellable_new();
        GError* error = nullptr;
        std::optional<QString> found;
        {
            Watchdog watchdog(cancellable);
            const QByteArray serviceUtf8 = service.toUtf8();
            const QByteArray accountUtf8 = account.toUtf8();
            GHashTable* attributes =
                secret_attributes_build(genericPasswordSchema(), "service", serviceUtf8.constData(),
                                        "account", accountUtf8.constData(), nullptr);
            SecretService* secrets =
                secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, cancellable, &error);
            if (secrets) {
                GList* items =
                    secret_service_search_sync(secrets, genericPasswordSchema(), attributes,
                                               SECRET_SEARCH_LOAD_SECRETS, cancellable, &error);
                for (GList* i = items; i && !found; i = i->next) {
                    auto* item = static_cast<SecretItem*>(i->data);
                    if (secret_item_get_locked(item)) continue;
                    SecretValue* value = secret_item_get_secret(item);
                    if (!value) continue;
                    gsize length = 0;
                    const gchar* data = secret_value_get(value, &length);
                    if (data && length > 0) found = QString::fromUtf8(data, qsizetype(length));
                    secret_value_unref(value);
                }
                g_list_free_full(items, g_object_unref);
                g_object_unref(secrets);
            }
            g_hash_table_unref(attributes);
        }
        if (error) g_error_free(error);
        g_object_unref(cancellable);
        return found;
    }
};

} // namespace

std::unique_ptr<Keychain> makeKeychain() {
    return std::make_unique<SecretServiceKeychain>();
}

} // namespace ombry::linux_platform
