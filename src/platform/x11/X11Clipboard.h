#pragma once

#include "platform/Desktop.h"

#include <QMimeData>
#include <QPointer>
#include <memory>

class QClipboard;

namespace ombry::x11 {

class Connection;

// A text put on the clipboard by the program, which tells when another client fetches it: Qt
// asks the data object for its bytes when it answers a request of another client (the
// target's paste, an `xclip -o`, a clipboard manager's copy), and never when the content is
// only announced. Each request is told once, with the client that made it; reads made by this
// process go through a LocalRead guard and are not told.
class WatchedText final : public QMimeData {
public:
    // Shared by the CLIPBOARD and PRIMARY copies of one text.
    struct Watch {
        std::function<void(const ClipboardFetch&)> onFetched;
        uint64_t lastRequest = 0; // the request last told (Qt may read a format twice)
    };
    WatchedText(const QString& text, std::shared_ptr<Watch> watch);

    // While one lives, reads of the clipboard come from this process itself.
    class LocalRead {
    public:
        LocalRead() { ++depth; }
        ~LocalRead() { --depth; }
        LocalRead(const LocalRead&) = delete;
        LocalRead& operator=(const LocalRead&) = delete;
    };

protected:
    QVariant retrieveData(const QString& mimeType, QMetaType type) const override;

private:
    static inline int depth = 0;
    std::shared_ptr<Watch> watch_;
};

// The clipboard and the PRIMARY selection through QClipboard, which serves the selection
// requests of other clients from the Qt event loop. Without a QGuiApplication (the headless
// modes) it holds nothing and changes nothing.
class X11Clipboard final : public Clipboard {
public:
    X11Clipboard();
    ~X11Clipboard() override;

    ClipboardSnapshot snapshot() override;
    QCoro::Task<ClipboardRead> readSnapshot(bool primary) override;
    void restore(const ClipboardSnapshot& snapshot) override;
    void clear() override;
    void setText(const QString& text, bool alsoPrimary,
                 std::function<void(const ClipboardFetch&)> onFetched) override;
    std::optional<QString> text() override;
    uint64_t changeCount() override;
    std::optional<QString> selectedText() override;
    bool primaryOwnedBy(const AppWindow& window) override;
    ClipboardSnapshot selectionSnapshot() override;
    void restoreSelection(const ClipboardSnapshot& snapshot) override;
    uint64_t selectionChangeCount() override;

private:
    QClipboard* board();
    std::optional<QString> textOf(int mode);
    ClipboardSnapshot snapshotOf(int mode);
    // What this program itself holds, when it owns the selection (nothing to ask of the X
    // server); nullopt when another client owns it.
    std::optional<ClipboardSnapshot> ownSnapshot(int mode);
    void restoreOf(int mode, const ClipboardSnapshot& snapshot);

    QPointer<QClipboard> watched_;
    std::unique_ptr<QObject> context_; // owns the connection to QClipboard::changed
    uint64_t changes_ = 0;
    uint64_t selectionChanges_ = 0;
    std::unique_ptr<Connection> connection_; // asks who owns PRIMARY
};

} // namespace ombry::x11
