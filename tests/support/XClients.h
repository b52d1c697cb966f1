#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTimer>
#include <optional>

union _XEvent;

namespace ombry::test {

class DesktopSession;

// Another application of the test desktop: a client of the X server with its own connection,
// its events read from a timer of the Qt event loop, so that the program sees it as it sees
// real ones. Made after the DesktopSession has started.
class XClient {
public:
    XClient(const XClient&) = delete;
    XClient& operator=(const XClient&) = delete;
    virtual ~XClient();
    bool valid() const { return display_ != nullptr; }

protected:
    XClient();
    virtual void handle(_XEvent& event) = 0;

    void* display_ = nullptr; // Display*
    unsigned long window_ = 0;
    QTimer timer_;
};

// A clipboard manager as CopyQ, Parcellite or Diodon run one: it hears each new owner of the
// CLIPBOARD (XFixes) and copies its text at once. It does not own CLIPBOARD_MANAGER.
class EagerClipboardManager : public XClient {
public:
    EagerClipboardManager();
    // The texts it copied, in order.
    QList<QByteArray> copies() const { return copies_; }

private:
    void handle(_XEvent& event) override;
    int xfixesEvent_ = 0;
    QList<QByteArray> copies_;
};

// An application that owns the CLIPBOARD, lists `formats` formats when asked and then freezes:
// it never gives any of them.
class FrozenClipboardOwner : public XClient {
public:
    explicit FrozenClipboardOwner(int formats);

private:
    void handle(_XEvent& event) override;
    QList<unsigned long> formats_;
};

// An application with a top-level window that reads the clipboard with a hidden window of its
// own, as toolkits do. Shown and activated, it pastes on Ctrl+V (CLIPBOARD) and Shift+Insert
// (PRIMARY) like a slow application: `delayMs` after the key.
class PasteTarget : public XClient {
public:
    explicit PasteTarget(int delayMs = 0);
    // The top-level window (WM_CLASS "lente", "LenteCible").
    qulonglong window() const { return window_; }
    // Maps the window and makes it the active, focused one. Turns the event loop.
    bool show(DesktopSession& session, const QString& title = "Lente");
    // Reads a selection ("CLIPBOARD" or "PRIMARY") now as text; nullopt on time-out or refusal.
    std::optional<QByteArray> read(const char* selection, int timeoutMs = 5000);
    // What its last paste got, once it has got it.
    std::optional<QByteArray> pasted() const { return pasted_; }

private:
    void handle(_XEvent& event) override;
    void request(const char* selection);

    int delayMs_ = 0;
    unsigned long reader_ = 0; // the hidden window that asks for the selection
    bool mapped_ = false, answered_ = false, pasting_ = false;
    std::optional<QByteArray> answer_, pasted_;
};

} // namespace ombry::test
