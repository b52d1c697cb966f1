#include "views/corrector/CorrectorLogic.h"

#include "correction/LanguageTool.h"
#include "data/Store.h"
#include "desktop/Log.h"
#include "engines/Cleanup.h"
#include "net/Errors.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "views/common/Debounce.h"

#include <QHash>
#include <QPointer>
#include <QRegularExpression>
#include <algorithm>
#include <cmath>

namespace ombry {

namespace {

const QString kEmpty = QStringLiteral("∅");

} // namespace

namespace CorrectorRules {

QString label(TextAction action) {
    switch (action) {
    case TextAction::Correct:
        return QStringLiteral("Corriger");
    case TextAction::Formal:
        return QStringLiteral("Plus formel");
    case TextAction::Friendly:
        return QStringLiteral("Plus amical");
    case TextAction::Concise:
        return QStringLiteral("Plus court");
    case TextAction::Clearer:
        return QStringLiteral("Plus clair");
    case TextAction::Email:
        return QStringLiteral("Email pro");
    case TextAction::Summary:
        return QStringLiteral("Résumer");
    case TextAction::Translate:
        return QStringLiteral("Traduire");
    }
    return {};
}

QString label(CorrectorMode mode) {
    switch (mode) {
    case CorrectorMode::Correct:
        return QStringLiteral("Corriger");
    case CorrectorMode::Rephrase:
        return QStringLiteral("Reformuler");
    case CorrectorMode::Summary:
        return QStringLiteral("Résumer");
    }
    return {};
}

const QList<TextAction>& tones() {
    static const QList<TextAction> list{TextAction::Formal, TextAction::Friendly,
                                        TextAction::Concise, TextAction::Clearer,
                                        TextAction::Email};
    return list;
}

int words(const QString& text) {
    // Every white space of Unicode, the non-breaking ones of French typography included.
    static const QRegularExpression blanks(QStringLiteral("\\s+"),
                                           QRegularExpression::UseUnicodePropertiesOption);
    return int(text.split(blanks, Qt::SkipEmptyParts).size());
}

int score(const QString& text, const Analysis& analysis) {
    const int n = std::max(words(text), 1);
    const double lost = double(analysis.fixes.size()) / n * 100.0 * 2.5;
    return std::max(0, 100 - int(std::lround(lost)));
}

QString finalText(const Analysis& analysis, const QSet<QUuid>& ignored) {
    QString text = analysis.corrected;
    for (const Fix& fix : analysis.fixes) {
        if (!ignored.contains(fix.id)) continue;
        if (fix.correction == kEmpty || fix.original == kEmpty) continue;
        const qsizetype at = text.indexOf(fix.correction);
        if (at < 0) continue;
        text.replace(at, fix.correction.size(), fix.original);
    }
    return text;
}

QList<QPair<qsizetype, qsizetype>> highlights(const QString& text, const QList<Fix>& fixes) {
    QList<QPair<qsizetype, qsizetype>> out;
    for (const Fix& fix : fixes) {
        if (fix.correction.isEmpty() || fix.correction == kEmpty) continue;
        // A whole word is a better guess than the inside of another word ("a" in "la").
        qsizetype at = -1;
        for (qsizetype from = 0;;) {
            const qsizetype found = text.indexOf(fix.correction, from);
            if (found < 0) break;
            const qsizetype end = found + fix.correction.size();
            const bool before = found > 0 && text.at(found - 1).isLetterOrNumber();
            const bool after = end < text.size() && text.at(end).isLetterOrNumber();
            if (!before && !after) {
                at = found;
                break;
            }
            from = found + 1;
        }
        if (at < 0) at = text.indexOf(fix.correction);
        if (at >= 0) out.append({at, fix.correction.size()});
    }
    return out;
}

QString wordsLabel(int n) {
    return QStringLiteral("%1 mot%2").arg(n).arg(n >= 2 ? QStringLiteral("s") : QString());
}

QString liveLabel(std::optional<int> count) {
    if (!count) return {};
    if (*count == 0) return QStringLiteral("Aucune faute repérée");
    if (*count == 1) return QStringLiteral("1 faute repérée");
    return QStringLiteral("%1 fautes repérées").arg(*count);
}

QString correctionsLabel(int n) {
    return QStringLiteral("%1 correction%2").arg(n).arg(n >= 2 ? QStringLiteral("s") : QString());
}

QString punctuationNote(PunctuationLevel level) {
    return QStringLiteral("Ponctuation %1 · à changer dans Réglages")
        .arg(ombry::label(level).toLower());
}

QList<Mistake> frequentMistakes(const QList<CorrectionRecord>& records) {
    QList<Mistake> list;
    QHash<QString, qsizetype> index;
    for (const CorrectionRecord& record : records) {
        for (const Fix& fix : record.fixes) {
            if (fix.original == kEmpty || fix.correction == kEmpty) continue;
            if (fix.original.size() >= 30) continue;
            const QString key =
                fix.original.toLower() + QStringLiteral("→") + fix.correction.toLower();
            const auto found = index.constFind(key);
            if (found != index.constEnd()) {
                ++list[*found].count;
            } else {
                index.insert(key, list.size());
                list.append({fix.original, fix.correction, 1});
            }
        }
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const Mistake& a, const Mistake& b) { return a.count > b.count; });
    if (list.size() > 6) list.resize(6);
    return list;
}

} // namespace CorrectorRules

CorrectorModel::CorrectorModel(Store& store, QObject* parent)
    : QObject(parent), store_(store), live_(new Debounce(this)) {
    copiedTimer_.setSingleShot(true);
    connect(&copiedTimer_, &QTimer::timeout, this, [this] {
        copied_ = false;
        Q_EMIT changed();
    });
}

CorrectorModel::~CorrectorModel() = default;

void CorrectorModel::setText(const QString& text) {
    if (text == text_) return;
    text_ = text;
    scheduleLiveCheck();
    Q_EMIT changed();
}

void CorrectorModel::setMode(CorrectorMode mode) {
    if (mode == mode_) return;
    mode_ = mode;
    Q_EMIT changed();
}

void CorrectorModel::setTone(TextAction tone) {
    if (tone == tone_) return;
    tone_ = tone;
    Q_EMIT changed();
}

void CorrectorModel::reset() {
    analysis_.reset();
    rewritten_.reset();
    ignored_.clear();
    error_.reset();
}

// A keystroke only arms the timer; the request goes out after a pause, and an answer for a
// text that has changed since is dropped (its generation is no longer the current one).
void CorrectorModel::scheduleLiveCheck() {
    live_->cancel();
    ++liveGeneration_;
    const AppSettings& settings = AppSettings::shared();
    if (mode_ == CorrectorMode::Correct && settings.useLanguageTool() &&
        CorrectorRules::words(text_) >= 2) {
        const uint64_t generation = liveGeneration_;
        live_->schedule(CorrectorRules::kLiveDelayMs,
                        [this, generation] { liveCheck(generation, text_); });
    } else {
        liveCount_.reset();
    }
}

QCoro::Task<void> CorrectorModel::liveCheck(uint64_t generation, QString text) {
    QPointer<CorrectorModel> self(this);
    ++liveRequests_;
    QList<LanguageTool::Match> matches;
    try {
        matches = co_await LanguageTool::check(text, rawValue(AppSettings::shared().language()));
    } catch (const std::exception&) {
        co_return; // the count stays as it was
    }
    if (!self || generation != liveGeneration_) co_return;
    const AppSettings& settings = AppSettings::shared();
    int n = 0;
    for (const LanguageTool::Match& m : matches)
        if (LanguageTool::allowed(m, settings.correctionScope(), settings.punctuation())) ++n;
    liveCount_ = n;
    Q_EMIT changed();
}

void CorrectorModel::run() {
    reset();
    working_ = true;
    Log::write(QStringLiteral("correcteur: %1, %2 caractères")
                   .arg(CorrectorRules::label(mode_))
                   .arg(text_.size()));
    Q_EMIT changed();
    runTask(text_, mode_, tone_);
}

QCoro::Task<void> CorrectorModel::runTask(QString text, CorrectorMode mode, TextAction tone) {
    QPointer<CorrectorModel> self(this);
    const QString language = promptName(AppSettings::shared().language());
    try {
        if (mode == CorrectorMode::Correct) {
            const Analysis analysis = co_await Analyzer::analyze(text, language, store_.words());
            if (!self) co_return;
            analysis_ = analysis;
            working_ = false;
            Q_EMIT changed();
            if (analysis.corrected == text) co_return;

            explaining_ = true;
            Q_EMIT changed();
            const QList<Fix> explained = co_await Analyzer::explain(analysis.fixes, text, language);
            if (!self) co_return;
            QList<Fix> fixes = analysis.fixes;
            if (analysis_ && analysis_->corrected == analysis.corrected) {
                analysis_->fixes = explained;
                fixes = explained;
            }
            explaining_ = false;
            Q_EMIT changed();
            store(CorrectorRules::label(TextAction::Correct), text, analysis.corrected, fixes);
        } else {
            const TextAction action = mode == CorrectorMode::Summary ? TextAction::Summary : tone;
            const QString result = co_await Analyzer::rewrite(
                text, action, language, AppSettings::shared().translateTarget());
            if (!self) co_return;
            rewritten_ = result;
            working_ = false;
            Q_EMIT changed();
            store(CorrectorRules::label(action), text, result, {});
        }
    } catch (const std::exception& e) {
        if (!self) co_return;
        error_ = describe(e);
        working_ = false;
        explaining_ = false;
        Log::write(QStringLiteral("correcteur: ") + *error_);
        Q_EMIT changed();
    }
}

void CorrectorModel::store(const QString& action, const QString& original, const QString& result,
                           const QList<Fix>& fixes) {
    CorrectionRecord record;
    record.date = Platform::current().clock().now();
    record.appName = QString::fromLatin1(CorrectorRules::kAppName);
    record.bundleID = QString::fromLatin1(CorrectorRules::kAppId);
    record.action = action;
    record.original = original;
    record.result = result;
    record.fixes = fixes;
    store_.addFix(record);
    Q_EMIT stored();
}

QString CorrectorModel::resultText() const {
    if (analysis_) return CorrectorRules::finalText(*analysis_, ignored_);
    return rewritten_.value_or(QString());
}

void CorrectorModel::toggleIgnored(const QUuid& id) {
    if (!ignored_.remove(id)) ignored_.insert(id);
    Q_EMIT changed();
}

void CorrectorModel::toggleAll() {
    if (!ignored_.isEmpty()) {
        ignored_.clear();
    } else if (analysis_) {
        for (const Fix& fix : analysis_->fixes)
            ignored_.insert(fix.id);
    }
    Q_EMIT changed();
}

void CorrectorModel::copy() {
    const QString text = resultText();
    if (text.isEmpty()) return;
    Platform::current().clipboard().setText(text, false);
    copied_ = true;
    copiedTimer_.start(CorrectorRules::kCopiedMs);
    Q_EMIT changed();
}

void CorrectorModel::clear() {
    setText(QString());
}

} // namespace ombry
