#include "views/shell/TrayModel.h"

#include "correction/Graphemes.h"

namespace ombry::TrayModel {

namespace {
Entry separator() {
    Entry e;
    e.kind = Entry::Kind::Separator;
    return e;
}
Entry item(const QString& title, const QString& icon, Action action) {
    Entry e;
    e.title = title;
    e.icon = icon;
    e.action = action;
    return e;
}
Entry choice(const QString& title, Action action, std::optional<QString> data, bool on) {
    Entry e = item(title, QString(), action);
    e.checkable = true;
    e.checked = on;
    e.data = std::move(data);
    return e;
}
} // namespace

QString lastDictationTitle(const QString& text) {
    const QString shown = Graphemes::left(text, 60);
    return shown.size() == text.size() ? text : shown + QStringLiteral("…");
}

void readHistory(Input& in, const Store& store) {
    for (const Dictation& d : store.dictations()) {
        if (d.failed()) continue;
        in.lastDictation = d.finalText;
        break;
    }
    if (const std::optional<Dictation> failed = store.lastFailed())
        in.lastFailed = uuidText(failed->id);
}

QList<Entry> build(const Input& in) {
    QList<Entry> menu;
    if (in.lastDictation || in.lastFailed) {
        Entry head = item(QStringLiteral("Dernière dictée"), QString(), Action::None);
        head.enabled = false;
        menu << head;
        if (in.lastDictation)
            menu << item(lastDictationTitle(*in.lastDictation), QStringLiteral("arrow.uturn.down"),
                         Action::PasteLast);
        if (in.lastFailed) {
            Entry retry = item(QStringLiteral("Réessayer la dictée échouée"),
                               QStringLiteral("exclamationmark.triangle"), Action::RetryFailed);
            retry.data = in.lastFailed;
            menu << retry;
        }
        menu << separator();
    }
    menu << item(QStringLiteral("Ouvrir Ombry Voice"), QStringLiteral("macwindow"),
                 Action::ShowWindow)
         << separator()
         << item(in.callRunning ? QStringLiteral("Arrêter les sous-titres")
                                : QStringLiteral("Sous-titres d'appel en français"),
                 QStringLiteral("captions.bubble"), Action::ToggleCall)
         << item(in.meetingRecording ? QStringLiteral("Arrêter la réunion")
                                     : QStringLiteral("Démarrer une réunion"),
                 QStringLiteral("person.2.wave.2"), Action::ToggleMeeting)
         << item(QStringLiteral("Corriger la sélection"), QStringLiteral("checkmark.seal"),
                 Action::Correct)
         << item(QStringLiteral("Lire la sélection (Ctrl+Alt+R)"), QStringLiteral("speaker.wave.2"),
                 Action::ReadAloud)
         << separator();

    Entry languages = item(QStringLiteral("Langue : %1").arg(label(in.language)),
                           QStringLiteral("globe"), Action::None);
    languages.kind = Entry::Kind::Submenu;
    for (Language l : allCases<Language>())
        languages.children << choice(label(l), Action::PickLanguage, rawValue(l), l == in.language);

    Entry mics = item(QStringLiteral("Micro"), QStringLiteral("mic"), Action::None);
    mics.kind = Entry::Kind::Submenu;
    mics.children << choice(QStringLiteral("Micro du système"), Action::PickMic, std::nullopt,
                            !in.microphoneUID);
    for (const Microphones::Device& d : in.microphones)
        mics.children << choice(d.name, Action::PickMic, d.uid, in.microphoneUID == d.uid);

    Entry keys = item(QStringLiteral("Touche : %1").arg(label(in.key, in.rightAltIsAltGr)),
                      QStringLiteral("keyboard"), Action::None);
    keys.kind = Entry::Kind::Submenu;
    for (DictationKey k : allCases<DictationKey>())
        keys.children << choice(label(k, in.rightAltIsAltGr), Action::PickKey, rawValue(k),
                                k == in.key);

    Entry settings = item(QStringLiteral("Réglages…"), QString(), Action::OpenSettings);
    settings.shortcut = QStringLiteral("Ctrl+,");
    Entry quit = item(QStringLiteral("Quitter Ombry Voice"), QString(), Action::Quit);
    quit.shortcut = QStringLiteral("Ctrl+Q");
    menu << languages << mics << keys << separator() << settings << quit;
    return menu;
}

QString iconName(DictationController::State state) {
    switch (state) {
    case DictationController::State::Idle:
        return QStringLiteral("waveform");
    case DictationController::State::Recording:
        return QStringLiteral("waveform.circle.fill");
    case DictationController::State::Processing:
    case DictationController::State::Correcting:
        return QStringLiteral("ellipsis");
    }
    return {};
}

} // namespace ombry::TrayModel
