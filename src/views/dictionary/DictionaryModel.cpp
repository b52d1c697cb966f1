#include "views/dictionary/DictionaryModel.h"

#include "data/Store.h"

namespace ombry {

QString DictionaryEditor::trimmedBlanks(const QString& text) {
    qsizetype from = 0, to = text.size();
    const auto blank = [](QChar c) { return c == u' ' || c == u'\t'; };
    while (from < to && blank(text.at(from)))
        ++from;
    while (to > from && blank(text.at(to - 1)))
        --to;
    return text.mid(from, to - from);
}

bool DictionaryEditor::isBlank(const QString& text) {
    return trimmedBlanks(text).isEmpty();
}

bool DictionaryEditor::addWord(QString& field) {
    const QString word = trimmedBlanks(field);
    if (word.isEmpty()) return false;
    if (store_.words().contains(word)) return false;
    QStringList words = store_.words();
    words.append(word);
    store_.setWords(std::move(words));
    field.clear();
    return true;
}

void DictionaryEditor::removeWord(const QString& word) {
    QStringList words = store_.words();
    if (words.removeAll(word) > 0) store_.setWords(std::move(words));
}

bool DictionaryEditor::editWord(int index, const QString& text) {
    QStringList words = store_.words();
    if (index < 0 || index >= words.size()) return false;
    const QString word = trimmedBlanks(text);
    if (word.isEmpty() || word == words.at(index)) return false;
    if (words.contains(word))
        words.removeAt(index);
    else
        words[index] = word;
    store_.setWords(std::move(words));
    return true;
}

bool DictionaryEditor::addSnippet(QString& trigger, QString& text) {
    if (isBlank(trigger) || isBlank(text)) return false;
    QList<Snippet> list = store_.snippets();
    list.append(Snippet{.trigger = trigger, .text = text});
    store_.setSnippets(std::move(list));
    trigger.clear();
    text.clear();
    return true;
}

bool DictionaryEditor::addCorrection(QString& heard, QString& written) {
    if (isBlank(heard) || isBlank(written)) return false;
    QList<Correction> list = store_.corrections();
    list.append(Correction{.heard = heard, .written = written});
    store_.setCorrections(std::move(list));
    heard.clear();
    written.clear();
    return true;
}

bool DictionaryEditor::editSnippet(const QUuid& id, const QString& trigger, const QString& text) {
    if (isBlank(trigger) || isBlank(text)) return false;
    QList<Snippet> list = store_.snippets();
    for (Snippet& s : list) {
        if (s.id != id) continue;
        if (s.trigger == trigger && s.text == text) return false;
        s.trigger = trigger;
        s.text = text;
        store_.setSnippets(std::move(list));
        return true;
    }
    return false;
}

bool DictionaryEditor::editCorrection(const QUuid& id, const QString& heard,
                                      const QString& written) {
    if (isBlank(heard) || isBlank(written)) return false;
    QList<Correction> list = store_.corrections();
    for (Correction& c : list) {
        if (c.id != id) continue;
        if (c.heard == heard && c.written == written) return false;
        c.heard = heard;
        c.written = written;
        store_.setCorrections(std::move(list));
        return true;
    }
    return false;
}

void DictionaryEditor::removeSnippet(const QUuid& id) {
    QList<Snippet> list = store_.snippets();
    if (list.removeIf([&](const Snippet& s) { return s.id == id; }) > 0)
        store_.setSnippets(std::move(list));
}

void DictionaryEditor::removeCorrection(const QUuid& id) {
    QList<Correction> list = store_.corrections();
    if (list.removeIf([&](const Correction& c) { return c.id == id; }) > 0)
        store_.setCorrections(std::move(list));
}

} // namespace ombry
