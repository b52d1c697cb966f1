#pragma once

#include "data/Records.h"

#include <QString>
#include <QUuid>

// The edits of the dictionary page: the user's words, voice shortcuts and automatic
// corrections, each change written through the store's setters (saved 0.4 s later).
namespace ombry {

class Store;

class DictionaryEditor {
public:
    explicit DictionaryEditor(Store& store) : store_(store) {}

    // Adds the word of the entry field, trimmed of blanks and tabs, and empties the field.
    // Nothing happens to an empty word, nor to one the list already holds exactly (the field
    // then keeps its text). True when the word was added.
    bool addWord(QString& field);
    // Removes every entry equal to the word.
    void removeWord(const QString& word);
    // Changes the word at `index` in place. An empty result changes nothing; a word the list
    // already holds elsewhere removes the edited entry instead. True when the list changed.
    bool editWord(int index, const QString& text);

    // A new shortcut (correction) with a fresh id, the fields as typed, at the end of its
    // list; the fields are emptied. Refused (false, fields kept) while one field is blank.
    bool addSnippet(QString& trigger, QString& text);
    bool addCorrection(QString& heard, QString& written);
    // Changes the fields of the record with that id; blank fields are refused.
    bool editSnippet(const QUuid& id, const QString& trigger, const QString& text);
    bool editCorrection(const QUuid& id, const QString& heard, const QString& written);
    // Removes the record with that id, and only it.
    void removeSnippet(const QUuid& id);
    void removeCorrection(const QUuid& id);

    // Blank: nothing but blanks and tabs.
    static bool isBlank(const QString& text);
    static QString trimmedBlanks(const QString& text);

private:
    Store& store_;
};

} // namespace ombry
