// The actions on the text selected in the application in front: correct it or translate it in
// place (the correction shortcut, Ctrl+C twice or three times), and read it aloud.
#include "audio/Sounds.h"
#include "correction/Corrector.h"
#include "correction/Graphemes.h"
#include "correction/Translator.h"
#include "data/Records.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/Log.h"
#include "desktop/Paster.h"
#include "dictation/DictationController.h"
#include "dictation/DictationSupport.h"
#include "engines/Cleanup.h"
#include "net/Errors.h"
#include "platform/Clock.h"
#include "platform/Platform.h"

#include <QPointer>
#include <exception>

namespace ombry {

using dictation::appIdOf;
using dictation::clock;
using dictation::sleepMs;
using dictation::trimmed;

namespace {

constexpr int kCopySettleMs = 150;

// Reading aloud in the language of the text: the detected language's code, or the voice's
// default when the text's language cannot be told.
void readAloud(const QString& text) {
    SpeechOutput& speech = Platform::current().speech();
    speech.stop();
    QString code;
    if (const std::optional<QString> name = Translator::detect(text)) {
        for (const auto& [language, iso] : Translator::codes())
            if (language == *name) code = iso;
    }
    speech.speak(text, code);
}

// "Traduit en {target}": the settings' target, or the other language when the text was
// already in it.
QString translationTitle(const QString& original) {
    QString target = AppSettings::shared().translateTarget();
    if (Translator::detect(original) == target)
        target = target == QStringLiteral("français") ? QStringLiteral("anglais")
                                                      : QStringLiteral("français");
    return QStringLiteral("Traduit en ") + target;
}

} // namespace

QCoro::Task<void> DictationController::correctSelection(bool alreadyCopied, bool translate) {
    if (state_ != State::Idle) co_return;
    if (!hookRunning()) {
        fail(QStringLiteral("Accessibilité non autorisée"));
        co_return;
    }
    setTranslating(translate);
    setState(State::Correcting);
    AppSettings& settings = AppSettings::shared();
    Clipboard& clipboard = Platform::current().clipboard();

    // After a double Ctrl+C this already holds the selection, which the user asked to copy.
    const ClipboardSnapshot saved = co_await Paster::snapshot();
    std::optional<QString> original;
    if (alreadyCopied) {
        co_await sleepMs(kCopySettleMs); // the application finishes its own copy
        co_await Paster::modifierWait();
        original = clipboard.text();
        Log::write(QStringLiteral("sélection: Ctrl+C deux fois (%1 caractères)")
                       .arg(original ? Graphemes::count(*original) : 0));
    } else {
        original = co_await Paster::copySelection();
    }
    if (trimmed(original).isEmpty()) {
        clipboard.restore(saved);
        toIdle();
        fail(QStringLiteral("Aucun texte sélectionné"));
        co_return;
    }

    QString result;
    std::optional<QString> failure;
    try {
        if (translate)
            result = co_await Translator::translate(*original, settings.translateTarget(), true);
        else
            result = (co_await Corrector::correctDetailed(
                          *original, promptName(settings.language()), Store::shared().words()))
                         .text;
    } catch (const std::exception& e) {
        failure = describe(e);
    }
    if (failure) {
        clipboard.restore(saved);
        toIdle();
        fail(*failure);
        co_return;
    }

    const std::optional<AppWindow> front = Platform::current().windows().frontmost();
    const bool changed = Graphemes::canonical(result) != Graphemes::canonical(*original);
    if (changed) {
        CorrectionRecord record;
        record.date = clock().now();
        record.appName = front && !front->name.isEmpty() ? front->name : QStringLiteral("Inconnue");
        record.bundleID = appIdOf(front);
        record.action = translate ? QStringLiteral("Traduire") : QStringLiteral("Corriger");
        record.original = *original;
        record.result = result;
        Store::shared().addFix(record);
    }
    Log::write(QStringLiteral("%1: %2 → %3 caractères")
                   .arg(translate ? QStringLiteral("traduction") : QStringLiteral("correction"))
                   .arg(Graphemes::count(*original))
                   .arg(Graphemes::count(result)));

    // A translation of text that cannot be edited (a web page's body) opens beside it and
    // leaves the page alone. An unknown element counts as editable.
    std::optional<bool> editable;
    if (translate) editable = co_await Paster::focusedIsEditable();
    if (translate && editable == std::optional<bool>(false)) {
        clipboard.restore(saved);
        toIdle();
        if (onBubble) onBubble(translationTitle(*original), *original, result);
        co_return;
    }
    // The selection still there is replaced; the user's clipboard always comes back.
    // A text that does not arrive (an element that takes no text and says nothing of
    // itself) opens beside it as a translation of a page does.
    std::function<void()> lost = notPasted(result);
    if (translate)
        lost = [self = QPointer<DictationController>(this), title = translationTitle(*original),
                original = *original, result] {
            if (self && self->onBubble) self->onBubble(title, original, result);
        };
    co_await Paster::pasteAndCheck(result, true, saved, std::move(lost));
    toIdle();
    show(translate ? QStringLiteral("Texte traduit")
         : changed ? QStringLiteral("Texte corrigé")
                   : QStringLiteral("Aucune faute"),
         false);
}

void DictationController::speakSelection() {
    // The same key starts and stops the reading.
    SpeechOutput& speech = Platform::current().speech();
    if (speech.speaking()) {
        speech.stop();
        return;
    }
    [](QPointer<DictationController> self) -> QCoro::Task<void> {
        co_await Paster::modifierWait();
        if (!self) co_return;
        std::optional<QString> selected = co_await Paster::selectedTextViaAX();
        if (!self) co_return;
        if (trimmed(selected).isEmpty()) {
            Clipboard& clipboard = Platform::current().clipboard();
            const ClipboardSnapshot saved = co_await Paster::snapshot();
            if (!self) co_return;
            selected = co_await Paster::copySelection();
            clipboard.restore(saved);
            if (!self) co_return;
        }
        if (trimmed(selected).isEmpty()) {
            self->fail(QStringLiteral("Aucun texte sélectionné"));
            co_return;
        }
        readAloud(*selected);
        self->show(QStringLiteral("Lecture à voix haute"), false);
    }(this);
}

} // namespace ombry
