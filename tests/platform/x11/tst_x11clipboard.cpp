#include "platform/x11/X11Platform.h"

#include "DesktopSession.h"
#include "XClients.h"

#include <QTest>

using namespace ombry;
using test::DesktopSession;

namespace {

QByteArray formatOf(const ClipboardSnapshot& snapshot, const QString& format) {
    for (const auto& [f, bytes] : snapshot)
        if (f == format) return bytes;
    return {};
}

} // namespace

class TstX11Clipboard : public QObject {
    Q_OBJECT
    DesktopSession& desktop() { return *DesktopSession::current(); }

private Q_SLOTS:
    void initTestCase() { OMBRY_REQUIRE_DESKTOP(); }

    void snapshotAndRestoreKeepEveryFormat() {
        auto clipboard = x11::makeClipboard();
        const uint64_t before = clipboard->changeCount();

        // Another application's HTML copy: the snapshot has its bytes under its own type.
        QVERIFY(desktop().setClipboard("<b>gras</b>", QStringLiteral("text/html")));
        QTRY_VERIFY(clipboard->changeCount() > before);
        const ClipboardSnapshot html = clipboard->snapshot();
        QCOMPARE(formatOf(html, QStringLiteral("text/html")), QByteArray("<b>gras</b>"));
        for (const auto& [format, bytes] : html) {
            QVERIFY2(format != QLatin1String("TARGETS") && format != QLatin1String("TIMESTAMP"),
                     qPrintable(format));
            QVERIFY(!bytes.isEmpty());
        }

        // Several formats at once, binary ones byte for byte, served to other clients.
        const QByteArray png("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\x00\x80", 20);
        const ClipboardSnapshot several{
            {QStringLiteral("text/plain"), QStringLiteral("déjà là").toUtf8()},
            {QStringLiteral("text/html"), QByteArray("<i>déjà</i>")},
            {QStringLiteral("image/png"), png},
            {QStringLiteral("application/x-ombry-test"), QByteArray("\0\1\2", 3)},
        };
        clipboard->restore(several);
        QCOMPARE(desktop().readClipboard(QStringLiteral("image/png")).value_or(""), png);
        QCOMPARE(desktop().readClipboard(QStringLiteral("text/html")).value_or(""),
                 QByteArray("<i>déjà</i>"));
        QCOMPARE(desktop().readClipboard(QStringLiteral("application/x-ombry-test")).value_or(""),
                 QByteArray("\0\1\2", 3));
        QCOMPARE(desktop().readClipboard().value_or(""), QStringLiteral("déjà là").toUtf8());
        QCOMPARE(clipboard->text().value_or(QString()), QStringLiteral("déjà là"));

        // The HTML copy comes back after another owner took the clipboard.
        QVERIFY(desktop().setClipboard("autre"));
        clipboard->restore(html);
        QCOMPARE(desktop().readClipboard(QStringLiteral("text/html")).value_or(""),
                 QByteArray("<b>gras</b>"));

        // An empty snapshot leaves the clipboard empty.
        clipboard->restore({});
        QVERIFY(!desktop().readClipboard(QString(), QStringLiteral("clipboard"), 2000));
        QVERIFY(!clipboard->text());
        QVERIFY(clipboard->snapshot().isEmpty());
    }

    // Each read by another client is told once, with whether it is the application of a
    // given window: that application reads with a hidden window of its own, a clipboard
    // manager or xclip are other clients.
    void eachFetchTellsWhoseApplicationReadIt() {
        auto clipboard = x11::makeClipboard();
        test::PasteTarget target;
        QVERIFY(target.valid());
        const AppWindow targetWindow{target.window(), {}, {}, {}, 0};
        QList<ClipboardFetch> fetches;
        const uint64_t before = clipboard->changeCount();
        clipboard->setText(QStringLiteral("Bonjour à tous"), true,
                           [&](const ClipboardFetch& fetch) { fetches << fetch; });
        QVERIFY(clipboard->changeCount() > before);
        const QByteArray utf8 = QStringLiteral("Bonjour à tous").toUtf8();

        // Reading it from this process is not a fetch.
        QCOMPARE(clipboard->text().value_or(QString()), QStringLiteral("Bonjour à tous"));
        QCOMPARE(clipboard->snapshot().size() > 0, true);
        QTest::qWait(100);
        QCOMPARE(fetches.size(), 0);

        QCOMPARE(desktop().readClipboard().value_or(""), utf8);
        QTRY_COMPARE(fetches.size(), 1);
        QVERIFY(!fetches[0].byApplicationOf(targetWindow));
        QCOMPARE(desktop().readClipboardAsManager().value_or(""), utf8);
        QTRY_COMPARE(fetches.size(), 2);
        QVERIFY(!fetches[1].byApplicationOf(targetWindow));

        QCOMPARE(target.read("CLIPBOARD").value_or(""), utf8);
        QTRY_COMPARE(fetches.size(), 3);
        QVERIFY(fetches[2].byApplicationOf(targetWindow));
        QVERIFY(!fetches[2].byApplicationOf(AppWindow{})); // no window: nobody's
        // The selection holds the same text and tells the same way.
        QCOMPARE(target.read("PRIMARY").value_or(""), utf8);
        QTRY_COMPARE(fetches.size(), 4);
        QVERIFY(fetches[3].byApplicationOf(targetWindow));
        QTest::qWait(100);
        QCOMPARE(fetches.size(), 4); // one request, one fetch
        // The program's own PRIMARY is the text it pasted, not a selection of the user's.
        QVERIFY(!clipboard->selectedText());

        // Without alsoPrimary, only the clipboard changes; the former text is told no more.
        clipboard->setText(QStringLiteral("seul"), false);
        QCOMPARE(desktop().readClipboard().value_or(""), QByteArray("seul"));
        QCOMPARE(target.read("PRIMARY").value_or(""), utf8);
        QTest::qWait(100);
        QCOMPARE(fetches.size(), 5);
        clipboard->setText(QStringLiteral("encore"), false);
        QCOMPARE(target.read("CLIPBOARD").value_or(""), QByteArray("encore"));
        QTest::qWait(100);
        QCOMPARE(fetches.size(), 5);
    }

    // PRIMARY is saved and put back as the clipboard is, and its changes are counted.
    void selectionSnapshotAndRestore() {
        auto clipboard = x11::makeClipboard();
        QVERIFY(desktop().setClipboard("mot choisi", {}, QStringLiteral("primary")));
        const ClipboardSnapshot chosen = clipboard->selectionSnapshot();
        QCOMPARE(QString::fromUtf8(formatOf(chosen, QStringLiteral("text/plain"))),
                 QStringLiteral("mot choisi"));
        const uint64_t count = clipboard->selectionChangeCount();
        clipboard->setText(QStringLiteral("collé"), true);
        QVERIFY(clipboard->selectionChangeCount() > count);
        QCOMPARE(desktop().readClipboard({}, QStringLiteral("primary")).value_or(""),
                 QStringLiteral("collé").toUtf8());

        clipboard->restoreSelection(chosen);
        QCOMPARE(desktop().readClipboard({}, QStringLiteral("primary")).value_or(""),
                 QByteArray("mot choisi"));
        clipboard->restoreSelection({});
        QVERIFY(!desktop().readClipboard({}, QStringLiteral("primary"), 2000));
        QVERIFY(clipboard->selectionSnapshot().isEmpty());

        const uint64_t mine = clipboard->selectionChangeCount();
        QVERIFY(desktop().setClipboard("ailleurs", {}, QStringLiteral("primary")));
        QTRY_VERIFY(clipboard->selectionChangeCount() > mine);
    }

    void selectionOfAnotherApplication() {
        auto clipboard = x11::makeClipboard();
        QVERIFY(desktop().setClipboard("mot choisi", {}, QStringLiteral("primary")));
        QCOMPARE(clipboard->selectedText().value_or(QString()), QStringLiteral("mot choisi"));
        const uint64_t count = clipboard->changeCount();
        QVERIFY(desktop().setClipboard("copié ailleurs"));
        QTRY_VERIFY(clipboard->changeCount() > count);
        QCOMPARE(clipboard->text().value_or(QString()), QStringLiteral("copié ailleurs"));
        clipboard->clear();
        QVERIFY(!clipboard->text());
    }
};

OMBRY_DESKTOP_TEST_MAIN(TstX11Clipboard)
#include "tst_x11clipboard.moc"
