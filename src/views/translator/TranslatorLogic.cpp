#include "views/translator/TranslatorLogic.h"

#include "correction/Graphemes.h"
#include "correction/Translator.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "data/UserDefaults.h"
#include "net/Errors.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "views/common/Debounce.h"
#include "views/corrector/CorrectorLogic.h"

#include <QPointer>

namespace ombry {

namespace {} // namespace

namespace TranslatorRules {

const QStringList& targets() {
    static const QStringList list = [] {
        QStringList names;
        for (const auto& [name, code] : Translator::codes())
            names << name;
        return names;
    }();
    return list;
}

TranslationTab tab(const UserDefaults& defaults) {
    return defaults.value(QString::fromLatin1(kTabKey)).toString() == QLatin1String("calls")
               ? TranslationTab::Calls
               : TranslationTab::Text;
}

void setTab(UserDefaults& defaults, TranslationTab tab) {
    defaults.setValue(QString::fromLatin1(kTabKey), tab == TranslationTab::Calls
                                                        ? QStringLiteral("calls")
                                                        : QStringLiteral("text"));
}

QList<CorrectionRecord> recent(const QList<CorrectionRecord>& records) {
    QList<CorrectionRecord> out;
    for (const CorrectionRecord& r : records) {
        if (!r.action.startsWith(QLatin1String("Traduire"))) continue;
        out << r;
        if (out.size() == 5) break;
    }
    return out;
}

QString charactersLabel(const QString& text) {
    return QStringLiteral("%1 caractères").arg(Graphemes::count(text));
}

QString code(const QString& name) {
    for (const auto& [n, c] : Translator::codes())
        if (n == name) return c;
    return QStringLiteral("fr");
}

} // namespace TranslatorRules

TranslatorModel::TranslatorModel(Store& store, QObject* parent)
    : QObject(parent), store_(store), debounce_(new Debounce(this)),
      target_(AppSettings::shared().translateTarget()) {
    copiedTimer_.setSingleShot(true);
    connect(&copiedTimer_, &QTimer::timeout, this, [this] {
        copied_ = false;
        Q_EMIT changed();
    });
}

TranslatorModel::~TranslatorModel() = default;

void TranslatorModel::setSource(const QString& source) {
    if (source == source_) return;
    source_ = source;
    schedule(TranslatorRules::kTypingDelayMs);
}

void TranslatorModel::setTarget(const QString& target) {
    if (target == target_) return;
    target_ = target;
    schedule(0);
}

// Each call supersedes the one before: the waiting translation is cancelled, and one already
// sent is ignored when it answers, since its generation is no longer the current one.
void TranslatorModel::schedule(int64_t delayMs) {
    debounce_->cancel();
    const uint64_t generation = ++generation_;
    detected_ = Translator::detect(source_);
    if (!source_.trimmed().isEmpty()) {
        debounce_->schedule(delayMs,
                            [this, generation] { translate(generation, source_, target_); });
    } else {
        result_.clear();
        working_ = false;
    }
    Q_EMIT changed();
}

QCoro::Task<void> TranslatorModel::translate(uint64_t generation, QString source, QString target) {
    QPointer<TranslatorModel> self(this);
    working_ = true;
    error_.reset();
    ++requests_;
    Q_EMIT changed();
    try {
        const QString answer = co_await Translator::translate(source, target, false);
        if (!self || generation != generation_) co_return;
        if (source == source_) {
            result_ = answer;
            if (target != AppSettings::shared().translateTarget())
                AppSettings::shared().setTranslateTarget(target);
        }
    } catch (const std::exception& e) {
        if (!self || generation != generation_) co_return;
        error_ = describe(e);
    }
    working_ = false;
    Q_EMIT changed();
}

void TranslatorModel::swap() {
    if (result_.isEmpty()) return;
    const std::optional<QString> language = Translator::detect(source_);
    const bool retarget = language && TranslatorRules::targets().contains(*language);
    const QString former = source_;
    source_ = result_;
    result_ = former;
    if (retarget) target_ = *language;
    // The new source is translated again, as any change of the source is.
    schedule(TranslatorRules::kTypingDelayMs);
}

void TranslatorModel::copy() {
    if (result_.isEmpty()) return;
    Platform::current().clipboard().setText(result_, false);
    copied_ = true;
    copiedTimer_.start(TranslatorRules::kCopiedMs);
    CorrectionRecord record;
    record.date = Platform::current().clock().now();
    record.appName = QString::fromLatin1(CorrectorRules::kAppName);
    record.bundleID = QString::fromLatin1(CorrectorRules::kAppId);
    record.action = QStringLiteral("Traduire · ") + target_;
    record.original = source_;
    record.result = result_;
    store_.addFix(record);
    Q_EMIT stored();
    Q_EMIT changed();
}

void TranslatorModel::speak(const QString& text) {
    SpeechOutput& speech = Platform::current().speech();
    if (speech.speaking()) {
        speech.stop();
        return;
    }
    if (text.trimmed().isEmpty()) return;
    speech.speak(text, TranslatorRules::code(Translator::detect(text).value_or(QString())));
}

} // namespace ombry
