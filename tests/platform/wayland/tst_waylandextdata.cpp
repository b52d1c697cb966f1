#include <QTest>
#include <QThread>
#include <atomic>

#include "DataControlCompositor.h"
#include "DesktopSession.h"
#include "platform/wayland/WaylandPlatform.h"

using namespace ombry;
using namespace ombry::wayland;
using ombry::test::DesktopSession;

// The clipboard over ext data-control, the wlr protocol's successor, against the test's own
// compositor that offers it alone. Another client is a second clipboard on a thread of its own,
// so that each side serves its selections while the other reads them.
class TstWaylandExtData : public QObject {
    Q_OBJECT

    std::unique_ptr<test::DataControlCompositor> compositor_;
    std::unique_ptr<Clipboard> clipboard_;
    QThread thread_;
    QObject there_; // lives on thread_
    std::unique_ptr<Clipboard> other_;

    // Runs work with the other client on its thread, this one's events handled meanwhile.
    bool onOther(const std::function<void(Clipboard&)>& work) {
        std::atomic<bool> done = false;
        QMetaObject::invokeMethod(&there_, [&] {
            work(*other_);
            done = true;
        });
        return DesktopSession::waitUntil([&] { return done.load(); }, 10000);
    }

private Q_SLOTS:
    void initTestCase() {
        compositor_ = std::make_unique<test::DataControlCompositor>();
        QVERIFY(compositor_->listening());
        const std::optional<CompositorGlobals> globals = probeCompositor();
        QVERIFY(globals);
        QVERIFY(globals->dataControl);
        QVERIFY(globals->dataControlPrimary);
        clipboard_ = makeDataControlClipboard();
        thread_.start();
        there_.moveToThread(&thread_);
        QMetaObject::invokeMethod(
            &there_, [this] { other_ = makeDataControlClipboard(); }, Qt::BlockingQueuedConnection);
    }
    void cleanupTestCase() {
        QMetaObject::invokeMethod(
            &there_, [this] { other_.reset(); }, Qt::BlockingQueuedConnection);
        thread_.quit();
        thread_.wait();
        clipboard_.reset();
        compositor_.reset();
    }

    // The text of a dictation, on both selections, read by another client.
    void setTextIsReadByAnotherClient() {
        int fetched = 0;
        clipboard_->setText(QStringLiteral("texte posé"), true,
                            [&](const ClipboardFetch&) { ++fetched; });
        std::optional<QString> text, selected;
        QVERIFY(onOther([&](Clipboard& other) {
            text = other.text();
            selected = other.selectedText();
        }));
        QCOMPARE(text.value_or("<rien>"), QStringLiteral("texte posé"));
        QCOMPARE(selected.value_or("<rien>"), QStringLiteral("texte posé"));
        QVERIFY(DesktopSession::waitUntil([&] { return fetched == 2; }));
    }

    // What another client held comes back exactly, every format, on both selections.
    void snapshotAndRestoreEveryFormat() {
        const ClipboardSnapshot formats = {
            {"text/plain;charset=utf-8", "ligne 1\nligne 2 é"},
            {"application/x-ombry-binaire", QByteArray("\x00\x01\xff\x00", 4)},
            {"image/png", QByteArray(200000, 'p')}, // more than a pipe holds
        };
        QVERIFY(onOther([&](Clipboard& other) {
            other.restore(formats);
            other.restoreSelection(formats.mid(0, 2));
        }));
        QVERIFY(
            DesktopSession::waitUntil([&] { return clipboard_->text() == "ligne 1\nligne 2 é"; }));
        const ClipboardSnapshot saved = clipboard_->snapshot();
        const ClipboardSnapshot savedPrimary = clipboard_->selectionSnapshot();
        QCOMPARE(saved, formats);
        QCOMPARE(savedPrimary, formats.mid(0, 2));

        clipboard_->setText(QStringLiteral("dictée"), true);
        clipboard_->restore(saved);
        clipboard_->restoreSelection(savedPrimary);
        ClipboardSnapshot back, backPrimary;
        QVERIFY(onOther([&](Clipboard& other) {
            back = other.snapshot();
            backPrimary = other.selectionSnapshot();
        }));
        QCOMPARE(back, formats);
        QCOMPARE(backPrimary, formats.mid(0, 2));
    }
};

QTEST_GUILESS_MAIN(TstWaylandExtData)
#include "tst_waylandextdata.moc"
