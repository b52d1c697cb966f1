// The paster on the fake desktop: the paste and copy keys each kind of window gets, the
// user's clipboard (and PRIMARY selection) coming back only once the target itself read the
// text, on the platform clock, the wait for the user's modifiers, reading the selection, and
// what it takes from the focused element of the window in front (selection, editable state,
// whether a pasted text arrived).
#include "Await.h"
#include "FakePlatform.h"

#include "desktop/Paster.h"

#include <QElapsedTimer>
#include <QTest>

using namespace ombry;
using namespace ombry::test;
using Paster::CopyKeys;

namespace {

// A window by "class/appId"; without an appId, the lower-case class is the id.
AppWindow windowOf(const QString& spec) {
    const QStringList p = spec.split(QLatin1Char('/'));
    return AppWindow{7, p.value(1, p[0].toLower()), p[0], p[0], 0};
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

constexpr int64_t kEditorPid = 31;

FocusedElement element(int count, int caret, std::optional<QString> selection = {}) {
    FocusedElement e;
    e.element = {":1.9", "/org/a11y/atspi/accessible/3"};
    e.pid = kEditorPid;
    e.editable = true;
    e.hasText = true;
    e.characterCount = count;
    e.caretOffset = caret;
    e.selection = std::move(selection);
    return e;
}

} // namespace

Q_DECLARE_METATYPE(ombry::FocusedElement)

class TstPaster : public QObject {
    Q_OBJECT
    FakePlatform platform;
    std::optional<bool> settled; // what the last paste reported, once settled

    FakeClipboard& clip() { return platform.clipboard(); }
    QList<KeyCombo>& posted() { return platform.keyPoster().posted; }

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
    // Moves the clock on and waits for the user's clipboard to be back.
    bool restoredAfter(int64_t ms) {
        platform.clock().advance(ms);
        return QTest::qWaitFor([&] { return clip().content == kUserClipboard; }, 1000);
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
        platform.accessibility().focus.reset();
        platform.clipboard().primaryInFront = true;
        settled.reset();
    }

    void eachWindowGetsTheKeysItUnderstands() {
        const struct {
            QStringList windows;
            KeyCombo paste;
            CopyKeys copy;
        } groups[] = {
            {{"firefox", "/org.mozilla.firefox", ""}, kCtrlV, CopyKeys::ControlC},
            {{"Gnome-terminal", "gnome-terminal-server/org.gnome.Terminal", "/org.gnome.Ptyxis",
              "kitty"},
             kCtrlShiftV,
             CopyKeys::ControlShiftC},
            {{"XTerm", "URxvt"}, kShiftInsert, CopyKeys::None},
        };
        for (const auto& g : groups)
            for (const QString& spec : g.windows) {
                QVERIFY2(Paster::copyKeysFor(windowOf(spec)) == g.copy, qPrintable(spec));
                posted().clear();
                clip().select(std::nullopt);
                platform.windows().front = windowOf(spec);
                await(Paster::paste("ls -la", false));
                QVERIFY2(posted() == QList<KeyCombo>{g.paste}, qPrintable(spec));
                QCOMPARE(clip().text(), std::optional<QString>("ls -la"));
                // Shift+Insert pastes PRIMARY: the text is there too.
                QCOMPARE(clip().selection.has_value(), g.paste == kShiftInsert);
            }
        platform.windows().front.reset(); // nothing in front: the ordinary paste
        posted().clear();
        await(Paster::paste("x", false));
        QCOMPARE(posted(), QList<KeyCombo>{kCtrlV});
    }

    // A clipboard manager (CopyQ, Parcellite, Klipper…) copies every new content at once; a
    // slow target (an office suite, an Electron application) reads it much later. Only the
    // target's own read brings the user's clipboard back: kAfterFetchMs after it, no sooner
    // than kMinHoldMs after the keys (for the further formats it may ask for), and at the
    // time-out at the latest. With no window known in front, any reader counts.
    void theClipboardComesBackOnceTheTargetReadIt_data() {
        QTest::addColumn<bool>("front");    // a window known in front
        QTest::addColumn<int>("managerAt"); // when another client reads (-1: never)
        QTest::addColumn<int>("targetAt");  // when the window in front reads (-1: never)
        QTest::addColumn<int>("backAt");
        QTest::addColumn<bool>("read"); // what the paste reports
        using namespace Paster;
        QTest::newRow("slow target") << true << 0 << 1000 << 1000 + kAfterFetchMs << true;
        QTest::newRow("early read") << true << -1 << 0 << kMinHoldMs << true;
        QTest::newRow("no window known") << false << 0 << -1 << kMinHoldMs << true;
        QTest::newRow("only a manager") << true << 0 << -1 << kRestoreTimeoutMs << false;
        QTest::newRow("late read")
            << true << -1 << kRestoreTimeoutMs - 100 << kRestoreTimeoutMs << true;
    }
    void theClipboardComesBackOnceTheTargetReadIt() {
        QFETCH(bool, front);
        QFETCH(int, managerAt);
        QFETCH(int, targetAt);
        QFETCH(int, backAt);
        QFETCH(bool, read);
        if (!front) platform.windows().front.reset();
        const std::optional<QString> text = QStringLiteral("Bonjour à tous.");
        pasteRestoring(*text);
        int now = 0;
        for (const auto& [at, byTarget] : {std::pair{managerAt, false}, {targetAt, true}}) {
            if (at < 0) continue;
            advance(at - now);
            now = at;
            QCOMPARE(byTarget ? clip().fetch() : clip().fetchByAnotherApplication(), text);
        }
        advance(backAt - now - 1);
        QCOMPARE(clip().text(), text);
        QVERIFY(!settled);
        QVERIFY(restoredAfter(1));
        QCOMPARE(settled, std::optional<bool>(read));
    }

    void whatComesBack() {
        // A second paste before the first was read: the user's clipboard still comes back,
        // not the first pasted text.
        await(Paster::paste("un", true));
        pasteRestoring("deux");
        QCOMPARE(clip().fetch(), std::optional<QString>("deux"));
        QVERIFY(restoredAfter(Paster::kMinHoldMs));

        // A saved snapshot wins over the clipboard of the moment; an empty one clears.
        pasteRestoring("deux", ClipboardSnapshot{});
        clip().fetch();
        platform.clock().advance(Paster::kMinHoldMs);
        QTRY_VERIFY_WITH_TIMEOUT(clip().content.isEmpty(), 1000);

        // No restore when not asked, nor when the user copied before the target read.
        settled.reset();
        await(Paster::paste("reste", false, std::nullopt, [this](bool t) { settled = t; }));
        clip().fetch();
        advance(Paster::kRestoreTimeoutMs, 0);
        QTRY_COMPARE_WITH_TIMEOUT(settled, std::optional<bool>(true), 1000);
        QCOMPARE(clip().text(), std::optional<QString>("reste"));
        pasteRestoring("texte");
        clip().setText("copié ensuite", false, {});
        advance(Paster::kRestoreTimeoutMs);
        QCOMPARE(clip().text(), std::optional<QString>("copié ensuite"));
        QCOMPARE(settled, std::optional<bool>(false));
    }

    // xterm pastes PRIMARY: the selection the user had comes back as well as the clipboard,
    // unless the user selected something else meanwhile.
    void aShiftInsertPasteGivesBackThePrimarySelectionToo() {
        platform.windows().front = windowOf("XTerm");
        clip().select("choix d'avant");
        pasteRestoring("make test");
        QCOMPARE(clip().selection, std::optional<QString>("make test"));
        QCOMPARE(clip().fetch(), std::optional<QString>("make test"));
        QVERIFY(restoredAfter(Paster::kMinHoldMs));
        QCOMPARE(clip().selection, std::optional<QString>("choix d'avant"));

        // Nothing was selected before: nothing is after.
        clip().select(std::nullopt);
        pasteRestoring("ls");
        clip().fetch();
        platform.clock().advance(Paster::kMinHoldMs);
        QTRY_VERIFY_WITH_TIMEOUT(!clip().selection, 1000);

        // A new selection made during the wait is the user's: it stays.
        clip().select("choix d'avant");
        pasteRestoring("pwd");
        clip().select("choix d'après");
        QVERIFY(restoredAfter(Paster::kRestoreTimeoutMs));
        QCOMPARE(clip().selection, std::optional<QString>("choix d'après"));

        // Ctrl+V pastes leave PRIMARY alone.
        platform.windows().front = windowOf("firefox");
        const uint64_t selections = clip().selectionChanges;
        pasteRestoring("texte");
        clip().fetch();
        QVERIFY(restoredAfter(Paster::kMinHoldMs));
        QCOMPARE(clip().selectionChanges, selections);
    }

    void keysWaitUntilTheUserLetsGoOfModifiers() {
        platform.keyboard().flags = modifier::Control | modifier::Option; // still on Ctrl+Alt
        bool done = false;
        auto task = [](bool* d) -> QCoro::Task<void> {
            co_await Paster::paste("texte", false);
            *d = true;
        }(&done);
        QTest::qWait(400);
        QVERIFY(posted().isEmpty() && !done);
        QElapsedTimer t;
        t.start();
        platform.keyboard().flags = modifier::RightOptionDown; // a device bit alone is no modifier
        QTRY_VERIFY_WITH_TIMEOUT(done, 1000);
        QVERIFY(t.elapsed() >= 50); // the settling time after the release
        QCOMPARE(posted().size(), 1);

        // A modifier that never comes up: given up after two seconds.
        platform.keyboard().flags = modifier::Shift;
        t.restart();
        await(Paster::paste("texte", false));
        QVERIFY(t.elapsed() >= 1900);
        QCOMPARE(posted().size(), 2);
    }

    // The selection is PRIMARY when it holds more than blanks; else the window's copy key and
    // what the application puts on the clipboard, after a second of polling at most, nothing
    // when nothing came (the clipboard was cleared first). In a terminal Ctrl+C would
    // interrupt the running job: its own copy key, or none in xterm, whose selection is
    // PRIMARY already.
    void copySelection() {
        const struct {
            const char* window;
            std::optional<QString> primary, answer, result;
            QList<KeyCombo> keys;
            int minMs, maxMs;
        } rows[] = {
            {"firefox", "  mot choisi\n", {}, "  mot choisi\n", {}, 0, 600},
            {"firefox", " \n", "copié", "copié", {kCtrlC}, 0, 600},
            {"firefox", {}, {}, {}, {kCtrlC}, 950, 5000},
            {"Gnome-terminal/org.gnome.Terminal",
             {},
             "make -j2",
             "make -j2",
             {{keycode::C, modifier::Control | modifier::Shift}},
             0,
             600},
            {"XTerm", {}, {}, {}, {}, 0, 500},
            {"XTerm", "tail -f", {}, "tail -f", {}, 0, 500},
        };
        for (const auto& r : rows) {
            platform.windows().front = windowOf(r.window);
            clip().selection = r.primary;
            posted().clear();
            platform.keyPoster().onPost = [this, answer = r.answer](const KeyCombo&) {
                if (answer)
                    QTimer::singleShot(50, [this, answer] { clip().setText(*answer, false, {}); });
            };
            const uint64_t changes = clip().changeCount();
            QElapsedTimer t;
            t.start();
            QCOMPARE(await(Paster::copySelection()), r.result);
            QVERIFY2(t.elapsed() >= r.minMs && t.elapsed() < r.maxMs, r.window);
            QCOMPARE(posted(), r.keys);
            if (r.keys.isEmpty()) QCOMPARE(clip().changeCount(), changes);
        }
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
        QCOMPARE(clip().text(), std::optional<QString>("Bonjour."));
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
        o.virtualKeyboard = o.dataControl = true;
        platform.keyPoster().onPost = [this](const KeyCombo&) {
            clip().onFetched({}); // a read by some client, which Wayland does not name
        };
        pasteRestoring("Salut.");
        QVERIFY(restoredAfter(Paster::kMinHoldMs + 50));
        QCOMPARE(settled, std::optional<bool>(true));
        platform.session().offered = FakeSession().offered;
    }

    // The application in front answers: its selection, even empty, is the selection, and
    // PRIMARY is not looked at; its editable state is the answer. A focus reported by another
    // process than the window in front's is not the user's, nor is a focus never reported:
    // then PRIMARY when the window in front owns it, and editable unknown.
    void theApplicationInFront() {
        platform.windows().front =
            AppWindow{5, "org.gnome.TextEditor", "Éditeur", "editor", kEditorPid};
        platform.clipboard().selection = QStringLiteral("sélection primaire");
        platform.accessibility().focus = element(20, 5, QStringLiteral("mot"));
        QCOMPARE(await(Paster::selectedTextViaAX()), std::optional<QString>("mot"));
        platform.accessibility().focus = element(20, 5);
        QCOMPARE(await(Paster::selectedTextViaAX()), std::nullopt);
        QCOMPARE(await(Paster::focusedIsEditable()), std::optional<bool>(true));
        platform.accessibility().focus->editable = false;
        QCOMPARE(await(Paster::focusedIsEditable()), std::optional<bool>(false));

        platform.accessibility().focus->pid = kEditorPid + 1;
        platform.accessibility().focus->selection = QStringLiteral("autre appli");
        QCOMPARE(await(Paster::selectedTextViaAX()), std::optional<QString>("sélection primaire"));
        QCOMPARE(await(Paster::focusedIsEditable()), std::nullopt);
        platform.accessibility().focus.reset();
        QCOMPARE(await(Paster::selectedTextViaAX()), std::optional<QString>("sélection primaire"));
        platform.clipboard().primaryInFront = false;
        QCOMPARE(await(Paster::selectedTextViaAX()), std::nullopt);
        QCOMPARE(await(Paster::focusedIsEditable()), std::nullopt);
    }

    // A paste arrived when the text grew by its length less the selection it replaced, or
    // when the text before the caret is the pasted text.
    void landed_data() {
        QTest::addColumn<FocusedElement>("before");
        QTest::addColumn<FocusedElement>("after");
        QTest::addColumn<QString>("beforeCaret");
        QTest::addColumn<bool>("arrived");
        const QString text = QStringLiteral("Été 😀");
        QTest::newRow("appended") << element(10, 10) << element(15, 15) << "" << true;
        QTest::newRow("inserted, caret read late")
            << element(10, 3) << element(15, 3) << "" << true;
        QTest::newRow("replaced a selection of the same length")
            << element(10, 8, QStringLiteral("abcde")) << element(10, 8) << text << true;
        QTest::newRow("replaced a longer selection")
            << element(10, 8, QStringLiteral("abcdefg")) << element(8, 6) << text << true;
        QTest::newRow("nothing changed") << element(10, 10) << element(10, 10) << "" << false;
        QTest::newRow("the selection was only deleted")
            << element(10, 8, QStringLiteral("abcde")) << element(5, 3) << "" << false;
        QTest::newRow("something else was typed")
            << element(10, 10) << element(11, 11) << "x" << false;
    }
    void landed() {
        QFETCH(FocusedElement, before);
        QFETCH(FocusedElement, after);
        QFETCH(QString, beforeCaret);
        QFETCH(bool, arrived);
        QCOMPARE(Paster::landed(before, after, QStringLiteral("Été 😀"),
                                beforeCaret.isEmpty() ? std::nullopt
                                                      : std::optional<QString>(beforeCaret)),
                 arrived);
    }
};

QTEST_GUILESS_MAIN(TstPaster)
#include "tst_paster.moc"
