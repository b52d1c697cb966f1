#pragma once

#include "correction/Analyzer.h"
#include "data/Records.h"
#include "data/Settings.h"

#include <QCoroTask>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QUuid>
#include <optional>

namespace ombry {

class Debounce;
class Store;

// The corrector page's three ways of working on a text.
enum class CorrectorMode { Correct, Rephrase, Summary };

// The rules of the corrector page that need no state.
namespace CorrectorRules {

inline constexpr int kLiveDelayMs = 900; // pause in typing before the live check
inline constexpr int kCopiedMs = 1500;   // how long "Copié" shows
inline constexpr const char* kAppName = "Ombry Voice";
inline constexpr const char* kAppId = "ombry-voice"; // this program's desktop-file id

QString label(TextAction action);  // "Corriger", "Plus formel", ...
QString label(CorrectorMode mode); // "Corriger", "Reformuler", "Résumer"
// The tones offered in rephrasing, in the order of the buttons.
const QList<TextAction>& tones();

// Words split at whitespace, empty pieces dropped.
int words(const QString& text);
// 100 minus 250 points per mistake per word, rounded, never below 0.
int score(const QString& text, const Analysis& analysis);
// The corrected text with the refused changes taken back, by a search of each refused
// correction's first occurrence. A change with "∅" on one side stays applied.
QString finalText(const Analysis& analysis, const QSet<QUuid>& ignored);
// Where the changes stand in a text: each fix's correction where it first stands as a whole
// word, else its first occurrence.
QList<QPair<qsizetype, qsizetype>> highlights(const QString& text, const QList<Fix>& fixes);

// "{n} mot" / "{n} mots".
QString wordsLabel(int n);
// "Aucune faute repérée", "{n} faute repérée", "{n} fautes repérées"; empty without a count.
QString liveLabel(std::optional<int> count);
// "{n} correction" / "{n} corrections".
QString correctionsLabel(int n);
// "Ponctuation normale · à changer dans Réglages".
QString punctuationNote(PunctuationLevel level);

// One frequent mistake: the pair as first seen, and how often it was made.
struct Mistake {
    QString original;
    QString correction;
    int count = 0;
};
// The six most frequent changes of the stored corrections, most frequent first; changes with
// "∅" on one side or an original of 30 characters or more are left out.
QList<Mistake> frequentMistakes(const QList<CorrectionRecord>& records);

} // namespace CorrectorRules

// The state of the corrector page and what its buttons do. The widget shows it and calls it;
// everything runs on the main thread. `changed` follows every change of state.
class CorrectorModel : public QObject {
    Q_OBJECT
public:
    explicit CorrectorModel(Store& store, QObject* parent = nullptr);
    ~CorrectorModel() override;

    const QString& text() const { return text_; }
    CorrectorMode mode() const { return mode_; }
    TextAction tone() const { return tone_; }
    bool working() const { return working_; }
    bool explaining() const { return explaining_; }
    const std::optional<Analysis>& analysis() const { return analysis_; }
    const std::optional<QString>& rewritten() const { return rewritten_; }
    const QSet<QUuid>& ignored() const { return ignored_; }
    const std::optional<QString>& error() const { return error_; }
    bool copied() const { return copied_; }
    std::optional<int> liveCount() const { return liveCount_; }
    // Live checks that reached the grammar service.
    int liveRequests() const { return liveRequests_; }

    // Each change of text schedules the live count of mistakes.
    void setText(const QString& text);
    void setMode(CorrectorMode mode);
    void setTone(TextAction tone);

    // Corrects, rephrases or summarises the text, by mode.
    void run();
    // The text the page offers: the final text of an analysis, or the rewritten text.
    QString resultText() const;
    void toggleIgnored(const QUuid& id);
    // "Tout accepter" while something is refused, "Tout ignorer" otherwise.
    void toggleAll();
    // Puts the result on the clipboard and shows "Copié" for a moment.
    void copy();
    void clear();

Q_SIGNALS:
    void changed();
    // A run stored its record (the page refreshes its panel of frequent mistakes).
    void stored();

private:
    void reset();
    void scheduleLiveCheck();
    QCoro::Task<void> liveCheck(uint64_t generation, QString text);
    QCoro::Task<void> runTask(QString text, CorrectorMode mode, TextAction tone);
    void store(const QString& action, const QString& original, const QString& result,
               const QList<Fix>& fixes);

    Store& store_;
    Debounce* live_;
    QTimer copiedTimer_;
    QString text_;
    CorrectorMode mode_ = CorrectorMode::Correct;
    TextAction tone_ = TextAction::Formal;
    bool working_ = false;
    bool explaining_ = false;
    std::optional<Analysis> analysis_;
    std::optional<QString> rewritten_;
    QSet<QUuid> ignored_;
    std::optional<QString> error_;
    bool copied_ = false;
    std::optional<int> liveCount_;
    uint64_t liveGeneration_ = 0;
    int liveRequests_ = 0;
};

} // namespace ombry
