#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTimer>
#include <optional>

namespace ombry::test {

class DesktopSession;

// Other applications of the test desktop, each a client of the X server of its own (its own
// connection, its events read from a timer of the Qt event loop), so that the program sees
// them as it sees real ones. Made after the DesktopSession has started.

// A clipboard manager as CopyQ, Parcellite or Diodon run one: it hears each new owner of the
// CLIPBOARD (XFixes) and copies its text at once. It does not own CLIPBOARD_MANAGER.
class EagerClipboardManager {
public:
    EagerClipboardManager();
    ~EagerClipboardManager();
    EagerClipboardManager(const EagerClipboardManager&) = delete;
    EagerClipboardManager& operator=(const EagerClipboardManager&) = delete;

    bool valid() const { return display_ != nullptr; }
    // The texts it copied, in order.
    QList<QByteArray> copies() const { return copies_; }

private:
    void pump();

    void* display_ = nullptr;
    int xfixesEvent_ = 0;
    unsigned long window_ = 0;
    QList<QByteArray> copies_;
    QTimer timer_;
};

// An application that owns the CLIPBOARD, lists `formats` formats when asked and then freezes:
// it never gives any of them.
class FrozenClipboardOwner {
public:
    explicit FrozenClipboardOwner(int formats);
    ~FrozenClipboardOwner();
    FrozenClipboardOwner(const FrozenClipboardOwner&) = delete;
    FrozenClipboardOwner& operator=(const FrozenClipboardOwner&) = delete;

    bool valid() const { return display_ != nullptr; }

private:
    void pump();

    void* display_ = nullptr;
    unsigned long window_ = 0;
    QList<unsigned long> formats_;
    QTimer timer_;
};

// An application with a top-level window that reads the clipboard with a hidden window of its
// own, as toolkits do. Shown and activated, it pastes on Ctrl+V (CLIPBOARD) and Shift+Insert
// (PRIMARY) like a slow application: `delayMs` after the key.
class PasteTarget {
public:
    explicit PasteTarget(int delayMs = 0);
    ~PasteTarget();
    PasteTarget(const PasteTarget&) = delete;
    PasteTarget& operator=(const PasteTarget&) = delete;

    bool valid() const { return display_ != nullptr; }
    // The top-level window (WM_CLASS "lente", "LenteCible").
    qulonglong window() const { return window_; }
    // Maps the window and makes it the active, focused one. Turns the event loop.
    bool show(DesktopSession& session, const QString& title = QStringLiteral("Lente"));
    // Reads a selection ("CLIPBOARD" or "PRIMARY") now as text; nullopt on time-out or refusal.
    std::optional<QByteArray> read(const char* selection, int timeoutMs = 5000);
    // What its last paste got, once it has got it.
    std::optional<QByteArray> pasted() const { return pasted_; }

private:
    void pump();
    void request(const char* selection);

    int delayMs_ = 0;
    void* display_ = nullptr;
    unsigned long window_ = 0;
    unsigned long reader_ = 0; // the hidden window that asks for the selection
    bool mapped_ = false;
    bool answered_ = false;
    std::optional<QByteArray> answer_;
    std::optional<QByteArray> pasted_;
    bool pasting_ = false;
    QTimer timer_;
};

} // namespace ombry::test
