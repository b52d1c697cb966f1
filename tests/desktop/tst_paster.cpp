// The paster on the fake desktop: the paste and copy keys each kind of window gets, the
// user's clipboard (and PRIMARY selection) coming back only once the target itself read the
// text, on the platform clock, the wait for the user's modifiers, and reading the selection.
#include "Await.h"
#include "FakePlatform.h"

#include "desktop/Paster.h"

#include <QElapsedTimer>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

AppWindow windowOf(const QString& windowClass, const QString& appId = {}) {
    AppWindow w;
    w.id = 7;
    w.windowClass = windowClass;
    w.appId = appId.isEmpty() ? windowClass.toLower() : appId;
    w.name = windowClass;
    return w;
}

const ClipboardSnapshot kUserClipboard{
    {QStringLiteral("text/html"), QByteArray("<b>mes notes</b>")},
    {QStringLiteral("text/plain"), QByteArray("mes notes")},
    {QStringLiteral("image/png"), QByteArray("\x89PNG\r\n", 6)},
};

const KeyCombo kCtrlV{keycode::V, modifier::Control};
const KeyCombo kCtrlShiftV{keycode::V, modifier::Control | modifier::Shift};
const KeyCombo kShiftInsert{keycode::Insert, modifier::Shift};
const KeyCombo kCtrlC{keycode::C, modifier::Control};
const KeyCombo kCtrlShiftC{keycode::C, modifier::Control | modifier::Shift};

} // namespace

class TstPaster : public QObject {
    Q_OBJECT
    FakePlatform platform;
    std::optional<bool> settled; // what the last paste reported, once settled

    FakeClipboard& clip() { return platform.clipboard(); }
    QList<KeyCombo>& posted() { return platform.keyPoster().posted; }
    std::optional<QString> pastedText() { return clip().text(); }

    // A paste with restore, awaited until its keys were posted.
    void pasteRestoring(const QString& text, std::optional<ClipboardSnapshot> saved = {}) {
        settled.reset();
        await(Paster::paste(text, true, std::move(saved), [this](bool t) { settled = t; }));
    }
    // Moves the clock on, then lets the event loop turn for real time as well: a restore
    // driven by real timers would show within that time.
    void advance(int64_t ms, int realMs = 200) {
        platform.clock().advance(ms);
        QTest::qWait(realMs);
    }

private Q_SLOTS:
    void init() {
        // Through restore(), so that a paste of an earlier test no longer puts its clipboard back.
        clip().restore(kUserClipboard);
        clip().select(std::nullopt);
        posted().clear();
        platform.keyPoster().onPost = {};
        platform.keyboard().flags = 0;
        platform.windows().front = windowOf("firefox");
        settled.reset();
    }

    void eachWindowGetsTheKeysItUnderstands() {
        struct Case {
            AppWindow window;
            KeyCombo paste;
            Paster::CopyKeys copy;
        };
        using Paster::CopyKeys;
        const QList<Case> cases{
            {windowOf("firefox"), kCtrlV, CopyKeys::ControlC},
            {windowOf("", "org.mozilla.firefox"), kCtrlV, CopyKeys::ControlC},
            {windowOf("Gnome-terminal"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("gnome-terminal-server", "org.gnome.Terminal"), kCtrlShiftV,
             CopyKeys::ControlShiftC},
            {windowOf("konsole"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("kitty"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("Alacritty"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("org.wezfurlong.wezterm"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("foot"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("st-256color"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("Ptyxis", "org.gnome.Ptyxis"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("", "org.gnome.Ptyxis"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("Blackbox", "com.raggesilver.BlackBox"), kCtrlShiftV,
             CopyKeys::ControlShiftC},
            {windowOf("com.mitchellh.ghostty"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("Tabby"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("Hyper"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("cool-retro-term"), kCtrlShiftV, CopyKeys::ControlShiftC},
            {windowOf("XTerm"), kShiftInsert, CopyKeys::None},
            {windowOf("URxvt"), kShiftInsert, CopyKeys::None},
            {windowOf("mlterm"), kShiftInsert, CopyKeys::None},
            {windowOf(""), kCtrlV, CopyKeys::ControlC},
        };
        for (const Case& c : cases) {
            const QString name = c.window.windowClass + QLatin1Char('/') + c.window.appId;
            QVERIFY2(Paster::copyKeysFor(c.window) == c.copy, qPrintable(name));
            posted().clear();
            clip().select(std::nullopt);
            platform.windows().front = c.window;
            await(Paster::paste("ls -la", false));
            QVERIFY2(posted() == QList<KeyCombo>{c.paste}, qPrintable(name));
            QCOMPARE(clip().text(), std::optional<QString>("ls -la"));
            // Shift+Insert pastes PRIMARY: the text is there too.
            QCOMPARE(clip().selection.has_value(), c.paste == kShiftInsert);
        }
        platform.windows().front.reset(); // nothing in front: the ordinary paste
        posted().clear();
        await(Paster::paste("x", false));
        QCOMPARE(posted(), QList<KeyCombo>{kCtrlV});
    }

    // A clipboard manager (CopyQ, Parcellite, Klipper…) copies every new content at once; a
    // slow target (an office suite, an Electron application) reads it much later. Only the
    // target's own read brings the user's clipboard back, kAfterFetchMs after it.
    void onlyTheTargetsReadBringsTheClipboardBack() {
        pasteRestoring("Bonjour à tous.");
        QCOMPARE(clip().fetchByAnotherApplication(), std::optional<QString>("Bonjour à tous."));
        advance(1000);
        QCOMPARE(pastedText(), std::optional<QString>("Bonjour à tous."));
        QVERIFY(!settled);

        QCOMPARE(clip().fetch(platform.windows().front->id),
                 std::optional<QString>("Bonjour à tous."));
        advance(Paster::kAfterFetchMs - 20);
        QCOMPARE(pastedText(), std::optional<QString>("Bonjour à tous."));
        advance(20, 0);
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);
        QCOMPARE(settled, std::optional<bool>(true));
    }

    // The target may read at once: the text stays kMinHoldMs after the keys all the same, for
    // the further formats it may ask for.
    void anEarlyReadStillLeavesTheTextItsTime() {
        pasteRestoring("tout de suite");
        clip().fetch();
        advance(Paster::kAfterFetchMs);
        advance(Paster::kMinHoldMs - Paster::kAfterFetchMs - 10);
        QCOMPARE(pastedText(), std::optional<QString>("tout de suite"));
        advance(10, 0);
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);
        QCOMPARE(settled, std::optional<bool>(true));

        // With no window known in front, any reader counts, with the same least time.
        platform.windows().front.reset();
        pasteRestoring("sans cible");
        clip().fetchByAnotherApplication();
        advance(Paster::kMinHoldMs - 10);
        QCOMPARE(pastedText(), std::optional<QString>("sans cible"));
        advance(10, 0);
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);
        QCOMPARE(settled, std::optional<bool>(true));
    }

    void withoutTheTargetsReadTheClipboardComesBackAfterTheTimeOut() {
        pasteRestoring("personne ne lit");
        clip().fetchByAnotherApplication();
        advance(Paster::kRestoreTimeoutMs - 1);
        QCOMPARE(pastedText(), std::optional<QString>("personne ne lit"));
        advance(1, 0);
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);
        QCOMPARE(settled, std::optional<bool>(false));

        // A target that reads late in the wait still has it until the time-out at most.
        pasteRestoring("lu tard");
        advance(Paster::kRestoreTimeoutMs - 100);
        clip().fetch();
        advance(99);
        QCOMPARE(pastedText(), std::optional<QString>("lu tard"));
        advance(1, 0);
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);
        QCOMPARE(settled, std::optional<bool>(true));
    }

    void theUsersClipboardComesBackWhateverCameBetween() {
        // A second paste before the first was read: the user's clipboard still comes back,
        // not the first pasted text.
        await(Paster::paste("un", true));
        pasteRestoring("deux");
        QCOMPARE(clip().fetch(), std::optional<QString>("deux"));
        advance(Paster::kMinHoldMs, 0);
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);

        // A saved snapshot wins over the clipboard of the moment; an empty one clears.
        pasteRestoring("deux", ClipboardSnapshot{});
        clip().fetch();
        advance(Paster::kMinHoldMs, 0);
        QTRY_VERIFY_WITH_TIMEOUT(clip().content.isEmpty(), 1000);
    }

    // xterm pastes PRIMARY: the selection the user had comes back as well as the clipboard,
    // unless the user selected something else meanwhile.
    void aShiftInsertPasteGivesBackThePrimarySelectionToo() {
        platform.windows().front = windowOf("XTerm", "xterm");
        clip().select("choix d'avant");
        pasteRestoring("make test");
        QCOMPARE(clip().selection, std::optional<QString>("make test"));
        QCOMPARE(clip().fetch(), std::optional<QString>("make test"));
        advance(Paster::kMinHoldMs, 0);
        QTRY_COMPARE_WITH_TIMEOUT(clip().selection, std::optional<QString>("choix d'avant"), 1000);
        QCOMPARE(clip().content, kUserClipboard);

        // Nothing was selected before: nothing is after.
        clip().select(std::nullopt);
        pasteRestoring("ls");
        clip().fetch();
        advance(Paster::kMinHoldMs, 0);
        QTRY_VERIFY_WITH_TIMEOUT(!clip().selection, 1000);

        // A new selection made during the wait is the user's: it stays.
        clip().select("choix d'avant");
        pasteRestoring("pwd");
        clip().select("choix d'après");
        advance(Paster::kRestoreTimeoutMs, 0);
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);
        QCOMPARE(clip().selection, std::optional<QString>("choix d'après"));

        // Ctrl+V pastes leave PRIMARY alone.
        platform.windows().front = windowOf("firefox");
        clip().select("choix d'avant");
        const uint64_t selections = clip().selectionChanges;
        pasteRestoring("texte");
        clip().fetch();
        advance(Paster::kMinHoldMs, 0);
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);
        QCOMPARE(clip().selectionChanges, selections);
    }

    void noRestoreWhenNotAskedOrWhenTheUserCopiedMeanwhile() {
        settled.reset();
        await(Paster::paste("reste", false, std::nullopt, [this](bool t) { settled = t; }));
        clip().fetch();
        advance(Paster::kRestoreTimeoutMs, 0);
        QTRY_COMPARE_WITH_TIMEOUT(settled, std::optional<bool>(true), 1000);
        QCOMPARE(clip().text(), std::optional<QString>("reste"));

        clip().restore(kUserClipboard);
        pasteRestoring("texte");
        clip().setText("copié ensuite", false, {}); // the user copies before the target reads
        advance(Paster::kRestoreTimeoutMs);
        QCOMPARE(clip().text(), std::optional<QString>("copié ensuite"));
        QCOMPARE(settled, std::optional<bool>(false));
    }

    void keysWaitUntilTheUserLetsGoOfModifiers() {
        platform.keyboard().flags = modifier::Control | modifier::Option; // still on Ctrl+Alt
        bool done = false;
        auto task = [](bool* d) -> QCoro::Task<void> {
            co_await Paster::paste("texte", false);
            *d = true;
        }(&done);
        QTest::qWait(400);
        QVERIFY(posted().isEmpty());
        QVERIFY(!done);
        QElapsedTimer t;
        t.start();
        platform.keyboard().flags = modifier::RightOptionDown; // a device bit alone is no modifier
        QTRY_VERIFY_WITH_TIMEOUT(done, 1000);
        QVERIFY(t.elapsed() >= 50); // the settling time after the release
        QCOMPARE(posted().size(), 1);

        // A modifier that never comes up: given up after two seconds.
        posted().clear();
        platform.keyboard().flags = modifier::Shift;
        t.restart();
        await(Paster::paste("texte", false));
        QVERIFY(t.elapsed() >= 1900);
        QCOMPARE(posted().size(), 1);
    }

    void copySelectionReadsPrimaryElseCopies() {
        clip().selection = "  mot choisi\n";
        QCOMPARE(await(Paster::copySelection()), std::optional<QString>("  mot choisi\n"));
        QVERIFY(posted().isEmpty());
        QCOMPARE(clip().content, kUserClipboard);

        // A blank selection: Ctrl+C, and the application answers with its text.
        clip().selection = " \n";
        platform.keyPoster().onPost = [this](const KeyCombo&) {
            QTimer::singleShot(100, [this] { clip().setText("copié", false, {}); });
        };
        QElapsedTimer t;
        t.start();
        QCOMPARE(await(Paster::copySelection()), std::optional<QString>("copié"));
        QCOMPARE(posted(), QList<KeyCombo>{kCtrlC});
        QVERIFY(t.elapsed() < 600);

        // Nothing selected anywhere: a second of polling, and nothing, since it was cleared.
        platform.keyPoster().onPost = {};
        clip().selection.reset();
        t.restart();
        QCOMPARE(await(Paster::copySelection()), std::nullopt);
        QVERIFY(t.elapsed() >= 950);
    }

    // In a terminal Ctrl+C would interrupt the running job: its own copy key, or none.
    void copySelectionInATerminalNeverSendsControlC() {
        platform.windows().front = windowOf("Gnome-terminal", "org.gnome.Terminal");
        platform.keyPoster().onPost = [this](const KeyCombo&) {
            QTimer::singleShot(50, [this] { clip().setText("make -j2", false, {}); });
        };
        QCOMPARE(await(Paster::copySelection()), std::optional<QString>("make -j2"));
        QCOMPARE(posted(), QList<KeyCombo>{kCtrlShiftC});

        // xterm has no copy key: what is selected in it is PRIMARY, read before any key.
        posted().clear();
        platform.windows().front = windowOf("XTerm", "xterm");
        QElapsedTimer t;
        t.start();
        QCOMPARE(await(Paster::copySelection()), std::nullopt);
        QVERIFY(posted().isEmpty());
        QVERIFY(t.elapsed() < 500);
        clip().selection = "tail -f";
        QCOMPARE(await(Paster::copySelection()), std::optional<QString>("tail -f"));
        QVERIFY(posted().isEmpty());
    }

    // Where no key can be posted (a desktop that refused), the text is left on the clipboard,
    // never restored away, and the paste is reported unread; where the desktop gives no
    // clipboard but types for the program, the text is typed and the clipboard never touched;
    // where the reader of the clipboard cannot be told (Wayland), any read counts.
    void whenTheDesktopOffersNoPasteRoad() {
        platform.keyPoster().fails = true;
        pasteRestoring("Bonjour.");
        QCOMPARE(settled, std::optional<bool>(false));
        advance(Paster::kRestoreTimeoutMs + 100);
        QCOMPARE(pastedText(), std::optional<QString>("Bonjour."));
        platform.keyPoster().fails = false;

        clip().restore(kUserClipboard);
        SessionOffer& o = platform.session().offered;
        o = SessionOffer{};
        o.display = SessionOffer::Display::Wayland;
        o.desktop = SessionOffer::Desktop::GNOME;
        o.remoteDesktopPortalVersion = 1;
        const uint64_t changes = clip().changeCount();
        pasteRestoring("Déjà vu.");
        QCOMPARE(platform.keyPoster().typed, QStringList{"Déjà vu."});
        QCOMPARE(settled, std::optional<bool>(true));
        QVERIFY(posted().isEmpty());
        QCOMPARE(clip().changeCount(), changes);

        o.remoteDesktopPortalVersion = 0;
        o.virtualKeyboard = true;
        o.dataControl = true;
        platform.keyPoster().onPost = [this](const KeyCombo&) {
            clip().onFetched({}); // a read by some client, which Wayland does not name
        };
        pasteRestoring("Salut.");
        advance(Paster::kMinHoldMs + 50);
        QCOMPARE(settled, std::optional<bool>(true));
        QCOMPARE(clip().content, kUserClipboard);
        platform.session().offered = FakeSession().offered;
    }
};

QTEST_GUILESS_MAIN(TstPaster)
#include "tst_paster.moc"
