// What the paster takes from the focused element of the window in front: the selection and
// the editable state as its application reports them, PRIMARY only from the window in front,
// and whether a pasted text arrived.
#include "Await.h"
#include "FakePlatform.h"

#include "desktop/Paster.h"

#include <QTest>

using namespace ombry;
using namespace ombry::test;

namespace {

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

class TstFocusedElement : public QObject {
    Q_OBJECT
    FakePlatform platform;

private Q_SLOTS:
    void init() {
        platform.windows().front =
            AppWindow{5, "org.gnome.TextEditor", "Éditeur", "editor", kEditorPid};
        platform.accessibility().focus.reset();
        platform.clipboard().selection = QStringLiteral("sélection primaire");
        platform.clipboard().primaryInFront = true;
    }

    // The application in front answers: its selection, even empty, is the selection, and
    // PRIMARY is not looked at; its editable state is the answer. A focus reported by another
    // process than the window in front's is not the user's, nor is a focus never reported:
    // then PRIMARY when the window in front owns it, and editable unknown.
    void theApplicationInFront() {
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

QTEST_GUILESS_MAIN(TstFocusedElement)
#include "tst_focusedelement.moc"
