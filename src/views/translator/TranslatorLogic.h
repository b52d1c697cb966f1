#pragma once

#include "data/Records.h"

#include <QCoroTask>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <optional>

namespace ombry {

class Debounce;
class Store;
class UserDefaults;

// The two tabs of the translation page, kept in the user default "translationTab".
enum class TranslationTab { Text, Calls };

namespace TranslatorRules {

inline constexpr int kTypingDelayMs = 700; // pause in typing before a translation
inline constexpr int kCopiedMs = 1500;
inline constexpr const char* kTabKey = "translationTab";

// The languages offered as targets, by their French names.
const QStringList& targets();
// The tab last chosen ("text" by default, and for a value that is not a tab).
TranslationTab tab(const UserDefaults& defaults);
void setTab(UserDefaults& defaults, TranslationTab tab);
// The five newest copied translations (records whose action begins with "Traduire").
QList<CorrectionRecord> recent(const QList<CorrectionRecord>& records);
// "{n} caractères".
QString charactersLabel(const QString& text);
// The two-letter code of a French language name; "fr" for an unknown one.
QString code(const QString& name);

} // namespace TranslatorRules

// The state of the text translator and what its controls do. A change of the source waits for
// a pause in typing, a change of target translates at once; an answer for a text or a target
// that has changed since never replaces the newer one. Main thread.
class TranslatorModel : public QObject {
    Q_OBJECT
public:
    explicit TranslatorModel(Store& store, QObject* parent = nullptr);
    ~TranslatorModel() override;

    const QString& source() const { return source_; }
    const QString& result() const { return result_; }
    const QString& target() const { return target_; }
    const std::optional<QString>& detected() const { return detected_; }
    bool working() const { return working_; }
    bool copied() const { return copied_; }
    const std::optional<QString>& error() const { return error_; }
    // Translations that were sent, for tests and the journal.
    int requests() const { return requests_; }

    void setSource(const QString& source);
    void setTarget(const QString& target);
    // "Inverser": the result becomes the source, and the target the source's language.
    void swap();
    // "Copier": the result to the clipboard, and the translation into the history.
    void copy();
    // "Lire à voix haute": stops what is being said, or says `text` in its language.
    void speak(const QString& text);

Q_SIGNALS:
    void changed();
    void stored();

private:
    void schedule(int64_t delayMs);
    QCoro::Task<void> translate(uint64_t generation, QString source, QString target);

    Store& store_;
    Debounce* debounce_;
    QTimer copiedTimer_;
    QString source_;
    QString result_;
    QString target_;
    std::optional<QString> detected_;
    bool working_ = false;
    bool copied_ = false;
    std::optional<QString> error_;
    uint64_t generation_ = 0;
    int requests_ = 0;
};

} // namespace ombry
