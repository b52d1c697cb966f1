// The dictionary's edits on a store in a temporary folder, then the page used as a user would,
// checked in what it shows and what the store holds (the files are the store's tests').
#include "../PageTesting.h"
#include "FakePlatform.h"
#include "data/Store.h"
#include "views/dictionary/DictionaryModel.h"
#include "views/dictionary/DictionaryView.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

using namespace ombry;

namespace {

QList<QWidget*> rowsNamed(QWidget& root, const QString& name) {
    QList<QWidget*> out;
    for (QWidget* w : root.findChildren<QWidget*>(name))
        if (w->isVisibleTo(&root)) out << w;
    return out;
}

QWidget* chip(QWidget& root, const QString& word) {
    for (QWidget* w : rowsNamed(root, QStringLiteral("wordChip")))
        if (w->property("word").toString() == word) return w;
    return nullptr;
}

} // namespace

class TstDictionary : public QObject {
    Q_OBJECT
    test::FakePlatform platform_;
    std::unique_ptr<QTemporaryDir> dir_;
    std::unique_ptr<Store> store_;

private Q_SLOTS:
    void init() {
        dir_ = std::make_unique<QTemporaryDir>();
        store_ = std::make_unique<Store>(dir_->filePath(QStringLiteral("Ombry Voice")));
    }
    void cleanup() {
        store_.reset();
        dir_.reset();
    }

    void wordsAreTrimmedAndExact() {
        DictionaryEditor editor(*store_);
        QString field = QStringLiteral("  Ombry\t ");
        QVERIFY(editor.addWord(field));
        QCOMPARE(field, QString());
        // Again: nothing changes, and the field keeps what was typed.
        field = QStringLiteral(" Ombry");
        QVERIFY(!editor.addWord(field));
        QCOMPARE(field, QStringLiteral(" Ombry"));
        field = QStringLiteral("ombry");
        QVERIFY(editor.addWord(field));
        field = QStringLiteral(" \t ");
        QVERIFY(!editor.addWord(field));
        QCOMPARE(store_->words(), (QStringList{"Ombry", "ombry"}));

        // Removal takes every equal entry (a list from an older file may hold twins).
        store_->setWords({"Qt", "Ombry", "Qt", "ombry"});
        editor.removeWord(QStringLiteral("Qt"));
        QCOMPARE(store_->words(), (QStringList{"Ombry", "ombry"}));
        // A word edited into one already there leaves a single entry; blank edits are refused.
        QVERIFY(editor.editWord(1, QStringLiteral(" Kubernetes ")));
        QCOMPARE(store_->words(), (QStringList{"Ombry", "Kubernetes"}));
        QVERIFY(editor.editWord(1, QStringLiteral("Ombry")));
        QCOMPARE(store_->words(), QStringList{QStringLiteral("Ombry")});
        QVERIFY(!editor.editWord(0, QStringLiteral("  ")));
        QVERIFY(!editor.editWord(3, QStringLiteral("x")));
        QCOMPARE(store_->words(), QStringList{QStringLiteral("Ombry")});
    }

    void shortcutsAndCorrectionsGoById() {
        DictionaryEditor editor(*store_);
        QString heard = QStringLiteral("cube ernest"), written = QStringLiteral("Kubernetes");
        QVERIFY(editor.addCorrection(heard, written));
        QVERIFY(heard.isEmpty() && written.isEmpty());
        heard = QStringLiteral("kuber"), written = QStringLiteral("Kubernetes");
        QVERIFY(editor.addCorrection(heard, written));
        heard = QStringLiteral("  "), written = QStringLiteral("x");
        QVERIFY(!editor.addCorrection(heard, written));
        QCOMPARE(heard, QStringLiteral("  "));
        QCOMPARE(store_->corrections().size(), 2);
        // The very next dictation gets it.
        QCOMPARE(store_->applyCorrections(QStringLiteral("le cluster Cube Ernest tourne")),
                 QStringLiteral("le cluster Kubernetes tourne"));
        // Two records with the same text: removing one by its id leaves the other.
        const QUuid first = store_->corrections().at(0).id;
        QVERIFY(
            editor.editCorrection(first, QStringLiteral("kuber"), QStringLiteral("Kubernetes")));
        editor.removeCorrection(first);
        QCOMPARE(store_->corrections().size(), 1);
        QCOMPARE(store_->corrections().at(0).heard, QStringLiteral("kuber"));
        QVERIFY(store_->corrections().at(0).id != first);

        QString trigger = QStringLiteral("mon adresse"), text = QStringLiteral("12 rue des Lilas");
        QVERIFY(editor.addSnippet(trigger, text));
        trigger = QStringLiteral("ma signature"), text = QStringLiteral("Claire");
        QVERIFY(editor.addSnippet(trigger, text));
        const QUuid sig = store_->snippets().at(1).id;
        QVERIFY(!editor.editSnippet(sig, QStringLiteral("ma signature"), QStringLiteral("")));
        QVERIFY(
            editor.editSnippet(sig, QStringLiteral("ma signature"), QStringLiteral("Claire Q.")));
        QCOMPARE(store_->snippet(QStringLiteral("Ma signature !"))->text,
                 QStringLiteral("Claire Q."));
        editor.removeSnippet(store_->snippets().at(0).id);
        QCOMPARE(store_->snippets().size(), 1);
        QCOMPARE(store_->snippets().at(0).id, sig);
    }

    void pageAsAUserUsesIt() {
        store_->setWords({QStringLiteral("Qt")});
        DictionaryView page(*store_);
        page.resize(900, 800);
        page.show();
        QVERIFY(QTest::qWaitForWindowExposed(&page));

        // A word typed and added with the button, another with Enter.
        auto* newWord = page.findChild<QLineEdit*>(QStringLiteral("newWord"));
        auto* addWord = page.findChild<QPushButton*>(QStringLiteral("addWord"));
        QVERIFY(!addWord->isEnabled());
        QTest::keyClicks(newWord, QStringLiteral("  Ombry "));
        QVERIFY(addWord->isEnabled());
        QTest::mouseClick(addWord, Qt::LeftButton);
        QCOMPARE(newWord->text(), QString());
        QTest::keyClicks(newWord, QStringLiteral("Kubernetes"));
        QTest::keyClick(newWord, Qt::Key_Return);
        QCOMPARE(store_->words(), (QStringList{"Qt", "Ombry", "Kubernetes"}));
        QTRY_VERIFY(chip(page, QStringLiteral("Kubernetes")));

        // The cross of a chip removes its word.
        QTest::mouseClick(chip(page, QStringLiteral("Qt"))->findChild<QToolButton*>(),
                          Qt::LeftButton);
        QCOMPARE(store_->words(), (QStringList{"Ombry", "Kubernetes"}));
        QTRY_VERIFY(!chip(page, QStringLiteral("Qt")));

        // A double click on a word edits it in place.
        QTRY_VERIFY(chip(page, QStringLiteral("Ombry")));
        QWidget* ombry = chip(page, QStringLiteral("Ombry"));
        auto* label = ombry->findChild<QLabel*>(QStringLiteral("wordLabel"));
        QTest::mouseDClick(label, Qt::LeftButton);
        auto* edit = ombry->findChild<QLineEdit*>(QStringLiteral("wordEdit"));
        QTRY_VERIFY(edit->isVisible());
        edit->selectAll();
        QTest::keyClicks(edit, QStringLiteral("Ombry Voice"));
        QTest::keyClick(edit, Qt::Key_Return);
        QCOMPARE(store_->words(), (QStringList{"Ombry Voice", "Kubernetes"}));
        QTRY_VERIFY(chip(page, QStringLiteral("Ombry Voice")));

        // A voice shortcut: both fields, then Enter.
        auto* trigger = page.findChild<QLineEdit*>(QStringLiteral("snippetTrigger"));
        auto* text = page.findChild<QLineEdit*>(QStringLiteral("snippetText"));
        auto* addSnippet = page.findChild<QPushButton*>(QStringLiteral("addSnippet"));
        QTest::keyClicks(trigger, QStringLiteral("mon adresse"));
        QVERIFY(!addSnippet->isEnabled());
        QTest::keyClicks(text, QStringLiteral("12 rue des Lilas"));
        QTest::keyClick(text, Qt::Key_Return);
        QCOMPARE(store_->snippets().at(0).text, QStringLiteral("12 rue des Lilas"));
        QVERIFY(trigger->text().isEmpty() && text->text().isEmpty());
        QTRY_COMPARE(rowsNamed(page, QStringLiteral("snippetRow")).size(), 1);

        // Two automatic corrections with the same text, added with the button.
        auto* heard = page.findChild<QLineEdit*>(QStringLiteral("correctionHeard"));
        auto* written = page.findChild<QLineEdit*>(QStringLiteral("correctionWritten"));
        auto* addCorrection = page.findChild<QPushButton*>(QStringLiteral("addCorrection"));
        for (int i = 0; i < 2; ++i) {
            test::typeText(heard, QStringLiteral("post gré"));
            QTest::keyClicks(written, QStringLiteral("PostgreSQL"));
            QTest::mouseClick(addCorrection, Qt::LeftButton);
        }
        QCOMPARE(store_->corrections().size(), 2);
        QTRY_COMPARE(rowsNamed(page, QStringLiteral("correctionRow")).size(), 2);

        // Editing the second row in place changes that record only.
        QWidget* second = rowsNamed(page, QStringLiteral("correctionRow")).at(1);
        const QUuid secondId = second->property("recordId").toUuid();
        auto* right = second->findChild<QLineEdit*>(QStringLiteral("rowRight"));
        right->setFocus();
        right->selectAll();
        QTest::keyClicks(right, QStringLiteral("Postgres"));
        QTest::keyClick(right, Qt::Key_Return);
        QCOMPARE(store_->corrections().at(1).written, QStringLiteral("Postgres"));
        QCOMPARE(store_->corrections().at(0).written, QStringLiteral("PostgreSQL"));
        // Emptied, a field comes back to what is stored.
        right->selectAll();
        QTest::keyClick(right, Qt::Key_Delete);
        QTest::keyClick(right, Qt::Key_Return);
        QCOMPARE(store_->corrections().at(1).written, QStringLiteral("Postgres"));
        QCOMPARE(right->text(), QStringLiteral("Postgres"));

        // The bin of the first row removes that record, by its id.
        QWidget* first = rowsNamed(page, QStringLiteral("correctionRow")).at(0);
        QTest::mouseClick(first->findChild<QToolButton*>(QStringLiteral("removeRow")),
                          Qt::LeftButton);
        QCOMPARE(store_->corrections().at(0).id, secondId);
        QTRY_COMPARE(rowsNamed(page, QStringLiteral("correctionRow")).size(), 1);

        // A change made elsewhere shows on the page.
        store_->setSnippets({});
        QTRY_COMPARE(rowsNamed(page, QStringLiteral("snippetRow")).size(), 0);
    }
};

QTEST_MAIN(TstDictionary)
#include "tst_dictionary.moc"
