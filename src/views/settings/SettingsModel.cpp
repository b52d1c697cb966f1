#include "views/settings/SettingsModel.h"

#include "data/UserDefaults.h"
#include "platform/Desktop.h"

#include <QKeySequence>
#include <QSet>
#include <cmath>

namespace ombry::SettingsModel {

namespace {
struct TabInfo {
    Tab tab;
    const char* raw;
    const char* label;
};
const TabInfo kTabs[] = {
    {Tab::General, "general", "Général"},
    {Tab::Dictation, "dictation", "Dictée"},
    {Tab::Correction, "correction", "Correction et traduction"},
    {Tab::Account, "account", "Compte"},
    {Tab::Permissions, "permissions", "Autorisations"},
    {Tab::Advanced, "advanced", "Avancé"},
};
} // namespace

QList<Tab> allTabs() {
    QList<Tab> out;
    for (const TabInfo& t : kTabs)
        out << t.tab;
    return out;
}
QString rawValue(Tab tab) {
    return QString::fromLatin1(kTabs[int(tab)].raw);
}
QString label(Tab tab) {
    return QString::fromUtf8(kTabs[int(tab)].label);
}

std::optional<Tab> tabFromRaw(const QString& raw) {
    for (const TabInfo& t : kTabs)
        if (raw == QLatin1String(t.raw)) return t.tab;
    return std::nullopt;
}

Tab storedTab(const UserDefaults& defaults) {
    return tabFromRaw(defaults.stringValue(QLatin1String(kTabKey)).value_or(QString()))
        .value_or(Tab::General);
}

void storeTab(UserDefaults& defaults, Tab tab) {
    defaults.setValue(QLatin1String(kTabKey), rawValue(tab));
}

QString modelName(const QList<Model>& table, const QString& id) {
    for (const Model& m : table)
        if (m.id == id) return m.name;
    return id;
}

QString sttLabel(TranscriptionEngine engine, bool usesOwnKey, const QString& deepgramModel) {
    switch (engine) {
    case TranscriptionEngine::Gemini:
        return usesOwnKey ? QStringLiteral("Gemini 2.5 Flash Lite · OpenRouter")
                          : QStringLiteral("Ombry IA");
    case TranscriptionEngine::Local:
        return QStringLiteral("Local · sur l'ordinateur");
    case TranscriptionEngine::Deepgram:
        return QStringLiteral("Deepgram · %1")
            .arg(modelName(AppSettings::deepgramModels(), deepgramModel));
    }
    return {};
}

QString rewriteLabel(RewriteEngine engine, bool usesOwnKey, bool localModelAvailable,
                     const QString& openRouterModel) {
    switch (engine) {
    case RewriteEngine::Local:
        return localModelAvailable ? QStringLiteral("IA locale · sur l'ordinateur")
                                   : QStringLiteral("IA locale · non disponible");
    case RewriteEngine::OpenRouter:
        return usesOwnKey ? QStringLiteral("OpenRouter · %1")
                                .arg(modelName(AppSettings::openRouterModels(), openRouterModel))
                          : QStringLiteral("Ombry IA");
    case RewriteEngine::None:
        return QStringLiteral("Nettoyage simple");
    }
    return {};
}

QString speechChoice(TranscriptionEngine engine, bool usesOwnKey) {
    switch (engine) {
    case TranscriptionEngine::Gemini:
        return usesOwnKey ? QStringLiteral("Gemini · niveau Whisper · ≈ 0,05 $ / 1 000 dictées")
                          : QStringLiteral("Ombry IA · niveau Whisper · crédits");
    case TranscriptionEngine::Local:
        return QStringLiteral("Local, sur l'ordinateur · gratuit");
    case TranscriptionEngine::Deepgram:
        return QStringLiteral("Deepgram · ≈ 0,26 $ / h");
    }
    return {};
}

QString cleanupChoice(RewriteEngine engine, bool usesOwnKey) {
    switch (engine) {
    case RewriteEngine::Local:
        return QStringLiteral("IA locale, sur l'ordinateur · gratuit");
    case RewriteEngine::OpenRouter:
        return usesOwnKey ? QStringLiteral("OpenRouter") : QStringLiteral("Ombry IA · crédits");
    case RewriteEngine::None:
        return QStringLiteral("Aucune · nettoyage simple · gratuit");
    }
    return {};
}

double totalCost(TranscriptionEngine engine, RewriteEngine rewrite, const QString& deepgramModel,
                 const QString& openRouterModel) {
    double speech = 0;
    switch (engine) {
    case TranscriptionEngine::Gemini:
        speech = 0.05;
        break;
    case TranscriptionEngine::Local:
        speech = 0;
        break;
    case TranscriptionEngine::Deepgram:
        speech = AppSettings::costPer1000Deepgram(deepgramModel);
        break;
    }
    // Gemini cleans in the same call; the other engines hand the raw text to the clean-up.
    double cleanup = 0;
    if (engine != TranscriptionEngine::Gemini && rewrite == RewriteEngine::OpenRouter)
        cleanup = AppSettings::costPer1000OpenRouter(openRouterModel).value_or(0);
    return speech + cleanup;
}

QString formatCost(double dollars) {
    if (dollars == 0) return QStringLiteral("Gratuit");
    // A hair above the value so that a half cent rounds up as people expect (1,075 → 1,08),
    // whatever the binary form of the product.
    const double shown = dollars + 1e-9;
    QString text =
        dollars < 0.1 ? QString::asprintf("%.3f $", shown) : QString::asprintf("%.2f $", shown);
    return text.replace(QLatin1Char('.'), QLatin1Char(','));
}

QString costText(bool usesCredits, TranscriptionEngine engine, RewriteEngine rewrite,
                 const QString& deepgramModel, const QString& openRouterModel) {
    if (usesCredits) return QStringLiteral("1 crédit ≈ 5 min de dictée");
    const QString cost = formatCost(totalCost(engine, rewrite, deepgramModel, openRouterModel));
    if (cost == QLatin1String("Gratuit")) return cost;
    return cost + QStringLiteral(" / 1 000 dictées");
}

QString translateMenuTitle(const QString& language) {
    static const QString vowels = QStringLiteral("aeiouéè");
    if (!language.isEmpty() && vowels.contains(language.at(0).toLower()))
        return QStringLiteral("Vers l'%1").arg(language);
    return QStringLiteral("Vers le %1").arg(language);
}

QList<AppEntry> dictatedApps(const QList<Dictation>& dictations) {
    QList<AppEntry> out;
    QSet<QString> seen;
    for (const Dictation& d : dictations) {
        if (!d.bundleID || d.bundleID->isEmpty() || seen.contains(*d.bundleID)) continue;
        seen.insert(*d.bundleID);
        out << AppEntry{d.appName.isEmpty() ? *d.bundleID : d.appName, *d.bundleID};
    }
    return out;
}

QStringList toggledApps(const QStringList& apps, const QString& bundleID, bool on) {
    QStringList out = apps;
    out.removeAll(bundleID);
    if (on) out << bundleID;
    return out;
}

namespace {
// Qt's key → the program's key code (the vocabulary of the keyboard hook).
int codeOfQtKey(int key) {
    static const QHash<int, int> table = {
        {Qt::Key_A, 0},          {Qt::Key_S, 1},           {Qt::Key_D, 2},
        {Qt::Key_F, 3},          {Qt::Key_H, 4},           {Qt::Key_G, 5},
        {Qt::Key_Z, 6},          {Qt::Key_X, 7},           {Qt::Key_C, 8},
        {Qt::Key_V, 9},          {Qt::Key_B, 11},          {Qt::Key_Q, 12},
        {Qt::Key_W, 13},         {Qt::Key_E, 14},          {Qt::Key_R, 15},
        {Qt::Key_Y, 16},         {Qt::Key_T, 17},          {Qt::Key_1, 18},
        {Qt::Key_2, 19},         {Qt::Key_3, 20},          {Qt::Key_4, 21},
        {Qt::Key_6, 22},         {Qt::Key_5, 23},          {Qt::Key_Equal, 24},
        {Qt::Key_9, 25},         {Qt::Key_7, 26},          {Qt::Key_Minus, 27},
        {Qt::Key_8, 28},         {Qt::Key_0, 29},          {Qt::Key_BracketRight, 30},
        {Qt::Key_O, 31},         {Qt::Key_U, 32},          {Qt::Key_BracketLeft, 33},
        {Qt::Key_I, 34},         {Qt::Key_P, 35},          {Qt::Key_L, 37},
        {Qt::Key_J, 38},         {Qt::Key_Apostrophe, 39}, {Qt::Key_K, 40},
        {Qt::Key_Semicolon, 41}, {Qt::Key_Backslash, 42},  {Qt::Key_Comma, 43},
        {Qt::Key_Slash, 44},     {Qt::Key_N, 45},          {Qt::Key_M, 46},
        {Qt::Key_Period, 47},    {Qt::Key_Space, 49},      {Qt::Key_F1, 122},
        {Qt::Key_F2, 120},       {Qt::Key_F3, 99},         {Qt::Key_F4, 118},
        {Qt::Key_F5, 96},        {Qt::Key_F6, 97},         {Qt::Key_F7, 98},
        {Qt::Key_F8, 100},       {Qt::Key_F9, 101},        {Qt::Key_F10, 109},
        {Qt::Key_F11, 103},      {Qt::Key_F12, 111},       {Qt::Key_Home, 115},
        {Qt::Key_PageUp, 116},   {Qt::Key_Delete, 117},    {Qt::Key_End, 119},
        {Qt::Key_PageDown, 121}, {Qt::Key_Left, 123},      {Qt::Key_Right, 124},
        {Qt::Key_Down, 125},     {Qt::Key_Up, 126},        {Qt::Key_Insert, keycode::Insert},
    };
    return table.value(key, -1);
}
} // namespace

std::optional<Shortcut> shortcutFromQt(int qtKey, Qt::KeyboardModifiers modifiers) {
    const int code = codeOfQtKey(qtKey);
    if (code < 0) return std::nullopt;
    Shortcut s;
    s.keyCode = code;
    QStringList parts;
    if (modifiers & Qt::ControlModifier) {
        s.modifiers |= modifier::Control;
        parts << QStringLiteral("Ctrl");
    }
    if (modifiers & Qt::AltModifier) {
        s.modifiers |= modifier::Option;
        parts << QStringLiteral("Alt");
    }
    if (modifiers & Qt::ShiftModifier) {
        s.modifiers |= modifier::Shift;
        parts << QStringLiteral("Maj");
    }
    if (modifiers & Qt::MetaModifier) {
        s.modifiers |= modifier::Command;
        parts << QStringLiteral("Super");
    }
    if (!(s.modifiers & (modifier::Control | modifier::Option | modifier::Command)))
        return std::nullopt;
    parts << QKeySequence(qtKey).toString(QKeySequence::PortableText);
    s.label = parts.join(QLatin1Char('+'));
    return s;
}

QString balanceText(std::optional<int> balance) {
    if (!balance) return QStringLiteral("Solde…");
    return QStringLiteral("%1 crédits").arg(*balance);
}

} // namespace ombry::SettingsModel
