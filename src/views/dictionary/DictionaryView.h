#pragma once

#include "views/dictionary/DictionaryModel.h"

#include <QList>
#include <QStringList>
#include <QWidget>

class QLabel;
class QLayout;
class QLineEdit;
class QPushButton;
class QVBoxLayout;

namespace ombry {

class Store;

// The page "Dictionnaire": three cards that edit the user's words (chips), voice shortcuts
// and automatic corrections (rows of two fields). Every change goes straight to the store.
// A word is changed by a double click on its chip; a shortcut or correction by editing its
// fields in place (Enter or leaving the field saves it).
class DictionaryView : public QWidget {
    Q_OBJECT
public:
    explicit DictionaryView(Store& store, QWidget* parent = nullptr);

    // The lists as the page shows them now.
    QStringList shownWords() const { return shownWords_; }
    QList<Snippet> shownSnippets() const { return shownSnippets_; }
    QList<Correction> shownCorrections() const { return shownCorrections_; }

private:
    void syncWords();
    void syncSnippets();
    void syncCorrections();
    void addWord();
    void addSnippet();
    void addCorrection();
    QWidget* makeWordChip(int index, const QString& word);
    QWidget* makePairRow(const QString& kind, const QUuid& id, const QString& left,
                         const QString& right);
    void updateButtons();

    Store& store_;
    DictionaryEditor editor_;

    QLineEdit* newWord_;
    QPushButton* addWord_;
    QLayout* chips_;
    QWidget* chipsBox_;
    QLabel* noWords_;
    QStringList shownWords_;

    QLineEdit* trigger_;
    QLineEdit* snippetText_;
    QPushButton* addSnippet_;
    QVBoxLayout* snippetRows_;
    QLabel* noSnippets_;
    QList<Snippet> shownSnippets_;

    QLineEdit* heard_;
    QLineEdit* written_;
    QPushButton* addCorrection_;
    QVBoxLayout* correctionRows_;
    QLabel* noCorrections_;
    QList<Correction> shownCorrections_;
};

} // namespace ombry
