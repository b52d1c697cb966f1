#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTimer>
#include <optional>

union _XEvent;

namespace ombry::test {

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

// An application that owns the CLIPBOARD, lists `formats` formats when asked and then freezes:
// it never gives any of them.
class FrozenClipboardOwner : public XClient {
public:
    explicit FrozenClipboardOwner(int formats);

private:
    void handle(_XEvent& event) override;
    QList<unsigned long> formats_;
};

// An application that reads the clipboard with a hidden window of its own beside its
// top-level one, as toolkits do.
class PasteTarget : public XClient {
public:
    PasteTarget();
    qulonglong window() const { return window_; }
    // Reads a selection ("CLIPBOARD" or "PRIMARY") now as text; nullopt on time-out or refusal.
    std::optional<QByteArray> read(const char* selection, int timeoutMs = 5000);

private:
    void handle(_XEvent& event) override;

    unsigned long reader_ = 0; // the hidden window that asks for the selection
    bool answered_ = false;
    std::optional<QByteArray> answer_;
};

} // namespace ombry::test
