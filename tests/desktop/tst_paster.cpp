// The paster on the fake desktop: the paste keys each kind of window gets, the user's clipboard
// coming back only once the target itself read the text, on the platform clock, the wait for
// the user's modifiers, and reading the selection.
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
        clip().selection.reset();
        posted().clear();
        platform.keyPoster().onPost = {};
        platform.keyboard().flags = 0;
        platform.windows().front = windowOf("firefox");
        settled.reset();
    }

    void eachWindowGetsThePasteKeysItUnderstands() {
        struct Case {
            QString windowClass;
            KeyCombo keys;
            bool primary;
        };
        const QList<Case> cases{
            {"firefox", kCtrlV, false},
            {"Gnome-terminal", kCtrlShiftV, false},
            {"gnome-terminal-server", kCtrlShiftV, false},
            {"konsole", kCtrlShiftV, false},
            {"kitty", kCtrlShiftV, false},
            {"Alacritty", kCtrlShiftV, false},
            {"org.wezfurlong.wezterm", kCtrlShiftV, false},
            {"foot", kCtrlShiftV, false},
            {"XTerm", kShiftInsert, true},
            {"URxvt", kShiftInsert, true},
            {"", kCtrlV, false},
        };
        for (const Case& c : cases) {
            posted().clear();
            clip().selection.reset();
            platform.windows().front = windowOf(c.windowClass);
            await(Paster::paste("ls -la", false));
            QCOMPARE(posted(), QList<KeyCombo>{c.keys});
            QCOMPARE(clip().text(), std::optional<QString>("ls -la"));
            QCOMPARE(clip().selection.has_value(), c.primary);
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
};

QTEST_GUILESS_MAIN(TstPaster)
#include "tst_paster.moc"
