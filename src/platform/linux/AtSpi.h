#pragma once

#include "platform/Accessibility.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QVariantList>
#include <memory>

namespace ombry::linux_platform {

// The accessibility bus of the session (AT-SPI), asked over Qt DBus with a deadline on every
// call: the program never waits on a hung application, and needs neither libatspi nor GLib.
//
// The bus is found through org.a11y.Bus on the session bus, at the first question; the session's
// accessibility switch is turned on then, so that toolkits that expose their widgets only when
// it is on (Qt, Firefox, Chromium) do so in the applications started afterwards.
class AtSpi final : public Accessibility {
public:
    AtSpi();
    ~AtSpi() override;

    QCoro::Task<std::optional<FocusedElement>> focused(int64_t pid) override;
    QCoro::Task<std::optional<FocusedElement>> reread(AccessibleElement element) override;
    QCoro::Task<std::optional<QString>> text(AccessibleElement element, int start,
                                             int end) override;
    void followActiveWindow() override;
    std::optional<ActiveApplication> activeApplication() const override { return active_; }

    // The deadline of one call, and of one whole search for the focused element.
    static constexpr int kCallTimeoutMs = 300;
    static constexpr int kSearchTimeoutMs = 1000;

private:
    struct Search;
    QCoro::Task<bool> connect();
    QCoro::Task<QDBusMessage> call(AccessibleElement element, const QString& interface,
                                   const QString& method, QVariantList args = {});
    QCoro::Task<QVariant> property(AccessibleElement element, QString interface, QString name);
    QCoro::Task<QList<AccessibleElement>> children(AccessibleElement element);
    QCoro::Task<uint64_t> state(AccessibleElement element);
    QCoro::Task<std::optional<AccessibleElement>> findFocused(AccessibleElement node, int depth,
                                                              std::shared_ptr<Search> search);
    QCoro::Task<void> describe(FocusedElement& out);

    class WindowEvents;
    QCoro::Task<void> follow();
    void windowEvent(const QDBusMessage& message);

    std::unique_ptr<QDBusConnection> bus_;
    std::unique_ptr<WindowEvents> windowEvents_;
    std::optional<ActiveApplication> active_;
    bool following_ = false;
    QElapsedTimer lastTry_; // the last attempt to reach the bus
    static constexpr int kRetryMs = 30000;
};

} // namespace ombry::linux_platform
