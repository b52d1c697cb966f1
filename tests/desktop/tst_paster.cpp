// The paster on the fake desktop: the paste keys each kind of window gets, the user's
// clipboard coming back only after the target read the text (or after the time-out), the wait
// for the user's modifiers, and reading the selection.
#include "Await.h"
#include "FakePlatform.h"

#include "desktop/Paster.h"

#include <QElapsedTimer>
#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

AppWindow windowOf(const QString& windowClass) {
    AppWindow w;
    w.id = 7;
    w.windowClass = windowClass;
    w.name = windowClass;
    return w;
}

const ClipboardSnapshot kUserClipboard{
    {QStringLiteral("text/html"), QByteArray("<b>mes notes</b>")},
    {QStringLiteral("text/plain"), QByteArray("mes notes")},
    {QStringLiteral("image/png"), QByteArray("\x89PNG\r\n", 6)},
};

} // namespace

class TstPaster : public QObject {
    Q_OBJECT
    FakePlatform platform;

    FakeClipboard& clip() { return platform.clipboard(); }
    QList<KeyCombo>& posted() { return platform.keyPoster().posted; }

private Q_SLOTS:
    void init() {
        clip().content = kUserClipboard;
        clip().selection.reset();
        clip().pendingFetch = {};
        posted().clear();
        platform.keyPoster().onPost = {};
        platform.keyboard().flags = 0;
        platform.windows().front = windowOf("firefox");
    }

    void eachWindowGetsThePasteKeysItUnderstands() {
        struct Case {
            QString windowClass;
            KeyCombo keys;
            bool primary;
        };
        const KeyCombo ctrlV{keycode::V, modifier::Control};
        const KeyCombo ctrlShiftV{keycode::V, modifier::Control | modifier::Shift};
        const KeyCombo shiftInsert{keycode::Insert, modifier::Shift};
        const QList<Case> cases{
            {"firefox", ctrlV, false},
            {"Gnome-terminal", ctrlShiftV, false},
            {"gnome-terminal-server", ctrlShiftV, false},
            {"konsole", ctrlShiftV, false},
            {"kitty", ctrlShiftV, false},
            {"Alacritty", ctrlShiftV, false},
            {"org.wezfurlong.wezterm", ctrlShiftV, false},
            {"foot", ctrlShiftV, false},
            {"XTerm", shiftInsert, true},
            {"URxvt", shiftInsert, true},
            {"", ctrlV, false},
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
        QCOMPARE(posted(), QList<KeyCombo>{ctrlV});
    }

    void userClipboardComesBackOnlyAfterTheTargetReadTheText() {
        await(Paster::paste("Bonjour à tous.", true));
        QCOMPARE(clip().text(), std::optional<QString>("Bonjour à tous."));
        QTest::qWait(600); // the target is slow: no time alone brings the clipboard back early
        QCOMPARE(clip().text(), std::optional<QString>("Bonjour à tous."));
        QCOMPARE(clip().fetch(), std::optional<QString>("Bonjour à tous."));
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);

        // A second paste before the first was read: the user's clipboard still comes back,
        // not the first pasted text.
        await(Paster::paste("un", true));
        await(Paster::paste("deux", true));
        QCOMPARE(clip().fetch(), std::optional<QString>("deux"));
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, 1000);

        // A saved snapshot wins over the clipboard of the moment; an empty one clears.
        clip().content = kUserClipboard;
        await(Paster::paste("deux", true, ClipboardSnapshot{}));
        clip().fetch();
        QTRY_VERIFY_WITH_TIMEOUT(clip().content.isEmpty(), 1000);
    }

    void withoutAnyReadTheClipboardComesBackAfterTheTimeOut() {
        QElapsedTimer t;
        t.start();
        await(Paster::paste("personne ne lit", true));
        QTRY_COMPARE_WITH_TIMEOUT(clip().content, kUserClipboard, Paster::kRestoreTimeoutMs + 1500);
        QVERIFY(t.elapsed() >= Paster::kRestoreTimeoutMs - 50);
    }

    void noRestoreWhenNotAskedOrWhenTheUserCopiedMeanwhile() {
        await(Paster::paste("reste", false));
        clip().fetch();
        QTest::qWait(400);
        QCOMPARE(clip().text(), std::optional<QString>("reste"));

        clip().content = kUserClipboard;
        await(Paster::paste("texte", true));
        clip().setText("copié ensuite", false, {}); // the user copies before the target reads
        QTest::qWait(Paster::kRestoreTimeoutMs + 300);
        QCOMPARE(clip().text(), std::optional<QString>("copié ensuite"));
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
        QCOMPARE(posted(), (QList<KeyCombo>{{keycode::C, modifier::Control}}));
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
