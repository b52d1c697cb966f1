#include "data/Settings.h"

#include "data/KeyStore.h"

#include <QGuiApplication>
#include <QJsonArray>
#include <QPalette>
#include <QUrl>
#include <array>

namespace ombry {

// ---------------------------------------------------------------------------------------------
// Enumerations: one table each, in picker order, with raw value and label.

namespace {

template <class E> struct Case {
    E value;
    const char* raw;
    const char* label;
};

// Labels name the keys as a PC keyboard has them; Right Alt's depends on the layout (below).
constexpr std::array<Case<DictationKey>, 4> kDictationKeys{{
    {DictationKey::RightOption, "rightOption", "Alt Gr"},
    {DictationKey::RightCommand, "rightCommand", "Super droite"},
    {DictationKey::RightControl, "rightControl", "Ctrl droite"},
    {DictationKey::Fn, "fn", "Menu"},
}};

constexpr std::array<Case<Language>, 6> kLanguages{{
    {Language::Auto, "auto", "Automatique (je parle plusieurs langues)"},
    {Language::Fr, "fr", "Français"},
    {Language::En, "en", "Anglais"},
    {Language::Es, "es", "Espagnol"},
    {Language::De, "de", "Allemand"},
    {Language::It, "it", "Italien"},
}};

constexpr std::array<Case<Theme>, 2> kThemes{{
    {Theme::Light, "light", "Clair"},
    {Theme::Dark, "dark", "Sombre"},
}};

constexpr std::array<Case<PerformanceMode>, 3> kPerformanceModes{{
    {PerformanceMode::Auto, "auto", "Automatique"},
    {PerformanceMode::Light, "light", "Léger"},
    {PerformanceMode::Full, "full", "Complet"},
}};

constexpr std::array<Case<PunctuationLevel>, 3> kPunctuationLevels{{
    {PunctuationLevel::Light, "light", "Légère"},
    {PunctuationLevel::Normal, "normal", "Normale"},
    {PunctuationLevel::Full, "full", "Complète"},
}};

constexpr std::array<Case<TranscriptionEngine>, 3> kTranscriptionEngines{{
    {TranscriptionEngine::Gemini, "gemini", ""},
    {TranscriptionEngine::Local, "apple", ""},
    {TranscriptionEngine::Deepgram, "deepgram", ""},
}};

constexpr std::array<Case<RewriteEngine>, 3> kRewriteEngines{{
    {RewriteEngine::Local, "apple", ""},
    {RewriteEngine::OpenRouter, "openRouter", ""},
    {RewriteEngine::None, "none", ""},
}};

template <class E, size_t N> const Case<E>& find(const std::array<Case<E>, N>& table, E v) {
    for (const auto& c : table)
        if (c.value == v) return c;
    return table.front();
}

template <class E, size_t N>
std::optional<E> findRaw(const std::array<Case<E>, N>& table, const QString& raw) {
    for (const auto& c : table)
        if (raw == QLatin1String(c.raw)) return c.value;
    return std::nullopt;
}

template <class E, size_t N> QList<E> values(const std::array<Case<E>, N>& table) {
    QList<E> list;
    for (const auto& c : table)
        list.append(c.value);
    return list;
}

} // namespace

#define OMBRY_ENUM(E, table)                                                                       \
    QString rawValue(E v) {                                                                        \
        return QLatin1String(find(table, v).raw);                                                  \
    }                                                                                              \
    template <> std::optional<E> fromRaw<E>(const QString& raw) {                                  \
        return findRaw(table, raw);                                                                \
    }                                                                                              \
    template <> QList<E> allCases<E>() {                                                           \
        return values(table);                                                                      \
    }
OMBRY_ENUM(DictationKey, kDictationKeys)
OMBRY_ENUM(Language, kLanguages)
OMBRY_ENUM(Theme, kThemes)
OMBRY_ENUM(PerformanceMode, kPerformanceModes)
OMBRY_ENUM(PunctuationLevel, kPunctuationLevels)
OMBRY_ENUM(TranscriptionEngine, kTranscriptionEngines)
OMBRY_ENUM(RewriteEngine, kRewriteEngines)
#undef OMBRY_ENUM

QString label(DictationKey v, std::optional<bool> rightAltIsAltGr) {
    if (v == DictationKey::RightOption && rightAltIsAltGr == false)
        return QStringLiteral("Alt droite");
    return QString::fromUtf8(find(kDictationKeys, v).label);
}
QString label(Language v) {
    return QString::fromUtf8(find(kLanguages, v).label);
}
QString label(Theme v) {
    return QString::fromUtf8(find(kThemes, v).label);
}
QString label(PerformanceMode v) {
    return QString::fromUtf8(find(kPerformanceModes, v).label);
}
QString label(PunctuationLevel v) {
    return QString::fromUtf8(find(kPunctuationLevels, v).label);
}

QString localeCode(Language v) {
    // An engine that needs exactly one language gets French for "auto".
    return v == Language::Auto ? QStringLiteral("fr") : rawValue(v);
}

QString deepgramCode(Language v) {
    return v == Language::Auto ? QStringLiteral("multi") : rawValue(v);
}

namespace CorrectionScope {

QList<int> options() {
    return {Spelling, Grammar, Punctuation, Typography, Style};
}

QString label(int option) {
    switch (option) {
    case Spelling:
        return QStringLiteral("Orthographe");
    case Grammar:
        return QStringLiteral("Grammaire et accords");
    case Punctuation:
        return QStringLiteral("Ponctuation");
    case Typography:
        return QStringLiteral("Majuscules et espaces");
    case Style:
        return QStringLiteral("Style plus fluide");
    default:
        return {};
    }
}

} // namespace CorrectionScope

// ---------------------------------------------------------------------------------------------
// Price tables

const QList<Model>& AppSettings::openRouterModels() {
    static const QList<Model> models{
        {QStringLiteral("google/gemini-2.5-flash-lite"), QStringLiteral("Gemini 2.5 Flash Lite"),
         QStringLiteral("le meilleur rapport, très rapide"), 0.1, 0.4},
        {QStringLiteral("nvidia/nemotron-3-super-120b-a12b:free"),
         QStringLiteral("Nemotron 3 Super"), QStringLiteral("gratuit, plus lent"), 0, 0},
        {QStringLiteral("google/gemma-4-31b-it:free"), QStringLiteral("Gemma 4 31B"),
         QStringLiteral("gratuit, souvent saturé"), 0, 0},
        {QStringLiteral("mistralai/mistral-small-3.2-24b-instruct"),
         QStringLiteral("Mistral Small 3.2"), QStringLiteral("très bon en français"), 0.094, 0.25},
        {QStringLiteral("mistralai/mistral-nemo"), QStringLiteral("Mistral Nemo"),
         QStringLiteral("le moins cher"), 0.029, 0.03},
        {QStringLiteral("anthropic/claude-haiku-5.5"), QStringLiteral("Claude Haiku 5.5"),
         QStringLiteral("la meilleure qualité"), 0.1, 0.5},
        {QStringLiteral("openai/gpt-4o-mini"), QStringLiteral("GPT-4o mini"), QString(), 0.15, 0.6},
    };
    return models;
}

const QList<Model>& AppSettings::deepgramModels() {
    static const QList<Model> models{
        {QStringLiteral("nova-3"), QStringLiteral("Nova-3"), QStringLiteral("le plus précis"),
         0.0043, 0},
        {QStringLiteral("nova-2"), QStringLiteral("Nova-2"), QStringLiteral("ancien modèle"),
         0.0043, 0},
    };
    return models;
}

double AppSettings::costPer1000Deepgram(const QString& modelId) {
    double priceIn = 0.0043; // stands in for an id outside the table
    for (const Model& m : deepgramModels())
        if (m.id == modelId) priceIn = m.priceIn;
    return priceIn * 0.25 * 1000;
}

std::optional<double> AppSettings::costPer1000OpenRouter(const QString& modelId) {
    for (const Model& m : openRouterModels())
        if (m.id == modelId) return (m.priceIn * 350 + m.priceOut * 80) / 1000000 * 1000;
    return std::nullopt;
}

QString AppSettings::siteURL() {
    return qEnvironmentVariable("OMBRY_SITE_URL");
}

bool AppSettings::siteURLIsValid() {
    const QString text = siteURL().trimmed();
    if (text.isEmpty()) return false;
    const QUrl url(text, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    return url.isValid() && (scheme == u"http" || scheme == u"https") && !url.host().isEmpty();
}

// ---------------------------------------------------------------------------------------------
// Keys

namespace {

template <class E> E readEnum(const UserDefaults& d, const QString& key, E fallback) {
    if (const auto text = d.stringValue(key))
        if (const auto v = fromRaw<E>(*text)) return *v;
    return fallback;
}

bool readBool(const UserDefaults& d, const QString& key, bool fallback) {
    return d.boolValue(key).value_or(fallback);
}

} // namespace

#define K(name) QStringLiteral(name)

AppSettings::AppSettings(UserDefaults& defaults, KeyStore* keys, QObject* parent)
    : QObject(parent), d_(defaults), keys_(keys) {
    key_ = readEnum(d_, K("key"), DictationKey::RightOption);
    language_ = readEnum(d_, K("language"), Language::Fr);
    sounds_ = readBool(d_, K("sounds"), true);
    restoreClipboard_ = readBool(d_, K("restoreClipboard"), true);
    // Only the exact text "dark" is the dark theme.
    theme_ = d_.stringValue(K("theme")) == QStringLiteral("dark") ? Theme::Dark : Theme::Light;
    correctionShortcut_ = readBool(d_, K("correctionShortcut"), true);
    correctionKeyCode_ = int(d_.integerValue(K("correctionKeyCode")).value_or(8));
    const auto modifiers = d_.integerValue(K("correctionModifiers"));
    correctionModifiers_ = modifiers && *modifiers >= 0 ? quint64(*modifiers) : 0xC0000;
    correctionLabel_ = d_.stringValue(K("correctionLabel")).value_or(K("Ctrl+Alt+C"));
    correctionDoubleCopy_ = readBool(d_, K("correctionDoubleCopy"), true);
    // Stored under its former key, so that settings files keep their meaning.
    correctorUsesLocalModel_ = readBool(d_, K("correctorUsesApple"), true);
    translateTarget_ = d_.stringValue(K("translateTarget")).value_or(K("anglais"));
    translateApps_ = d_.stringListValue(K("translateApps")).value_or(QStringList());
    voiceCommands_ = readBool(d_, K("voiceCommands"), true);
    adaptTone_ = readBool(d_, K("adaptTone"), true);
    livePreview_ = readBool(d_, K("livePreview"), false);
    ownKeyMode_ = readBool(d_, K("ownKeyMode"), false);
    acceptPostedKeys_ = readBool(d_, K("acceptPostedKeys"), false);
    portalShortcut_ = d_.stringValue(K("portalShortcut")).value_or(QString()).trimmed();
    if (portalShortcut_.isEmpty()) portalShortcut_ = K("CTRL+ALT+D");
    readKeyboardDevices_ = readBool(d_, K("readKeyboardDevices"), false);
    uinputKeys_ = readBool(d_, K("uinputKeys"), false);
    microphoneUID_ = d_.stringValue(K("microphoneUID"));
    performanceMode_ = readEnum(d_, K("performanceMode"), PerformanceMode::Auto);
    useLanguageTool_ = readBool(d_, K("useLanguageTool"), true);
    punctuation_ = readEnum(d_, K("punctuation"), PunctuationLevel::Light);
    // A stored 0 (every option cleared) reads as the default set.
    const auto scope = d_.integerValue(K("correctionScope"));
    correctionScope_ = scope && *scope != 0 ? int(*scope) : CorrectionScope::Default;
    typingWPM_ = int(d_.integerValue(K("typingWPM")).value_or(40));
    const auto engine = d_.stringValue(K("transcriptionEngine"));
    const auto known = engine ? fromRaw<TranscriptionEngine>(*engine) : std::nullopt;
    transcriptionEngine_ = known ? *known : defaultTranscriptionEngine();
    rewriteEngine_ = readEnum(d_, K("rewriteEngine"), RewriteEngine::Local);
    deepgramModel_ = d_.stringValue(K("deepgramModel")).value_or(K("nova-3"));
    openRouterModel_ = d_.stringValue(K("openRouterModel"))
                           .value_or(K("mistralai/mistral-small-3.2-24b-instruct"));
    localSpeechServer_ = d_.stringValue(K("localSpeechServer")).value_or(QString());
    localModelServer_ = d_.stringValue(K("localModelServer")).value_or(QString());
    localSpeechModel_ = d_.stringValue(K("localSpeechModel")).value_or(K("whisper-1"));
}

AppSettings& AppSettings::shared() {
    static AppSettings* instance = new AppSettings(UserDefaults::standard());
    return *instance;
}

TranscriptionEngine AppSettings::defaultTranscriptionEngine() const {
    // A build without a hosted service, and no OpenRouter key: only the local engine works.
    if (siteURLIsValid()) return TranscriptionEngine::Gemini;
    KeyStore& keys = keys_ ? *keys_ : KeyStore::shared();
    return keys.key(APIService::OpenRouter) ? TranscriptionEngine::Gemini
                                            : TranscriptionEngine::Local;
}

void AppSettings::applyTheme() const {
    auto* app = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    if (!app) return;
    if (theme_ == Theme::Light) {
        QGuiApplication::setPalette(QPalette());
        return;
    }
    QPalette p;
    const QColor window(0x1E, 0x1E, 0x22), base(0x16, 0x16, 0x1A), text(0xEC, 0xEC, 0xF0);
    const QColor button(0x2A, 0x2A, 0x30), highlight(0x4C, 0x7D, 0xF0);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, button);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, QColor(0x8A, 0x8A, 0x94));
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, button);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::white);
    p.setColor(QPalette::Highlight, highlight);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, highlight.lighter(130));
    p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x70, 0x70, 0x78));
    p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x70, 0x70, 0x78));
    p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x70, 0x70, 0x78));
    QGuiApplication::setPalette(p);
}

// ---------------------------------------------------------------------------------------------
// Setters: write at once, then tell the observers.

template <class V>
void AppSettings::write(V& member, const V& value, const char* key, const QJsonValue& stored,
                        void (AppSettings::*changed)()) {
    member = value;
    d_.setValue(QLatin1String(key), stored);
    Q_EMIT(this->*changed)();
}

void AppSettings::setKey(DictationKey v) {
    write(key_, v, "key", rawValue(v), &AppSettings::keyChanged);
}

void AppSettings::setLanguage(Language v) {
    write(language_, v, "language", rawValue(v), &AppSettings::languageChanged);
}

void AppSettings::setSounds(bool v) {
    write(sounds_, v, "sounds", v, &AppSettings::soundsChanged);
}

void AppSettings::setRestoreClipboard(bool v) {
    write(restoreClipboard_, v, "restoreClipboard", v, &AppSettings::restoreClipboardChanged);
}

void AppSettings::setTheme(Theme v) {
    theme_ = v;
    d_.setValue(K("theme"), QJsonValue(rawValue(v)));
    applyTheme();
    Q_EMIT themeChanged();
}

void AppSettings::setCorrectionShortcut(bool v) {
    write(correctionShortcut_, v, "correctionShortcut", v, &AppSettings::correctionShortcutChanged);
}

void AppSettings::setCorrectionKeyCode(int v) {
    write(correctionKeyCode_, v, "correctionKeyCode", v, &AppSettings::correctionKeyCodeChanged);
}

void AppSettings::setCorrectionModifiers(quint64 v) {
    write(correctionModifiers_, v, "correctionModifiers", qint64(v),
          &AppSettings::correctionModifiersChanged);
}

void AppSettings::setCorrectionLabel(const QString& v) {
    write(correctionLabel_, v, "correctionLabel", v, &AppSettings::correctionLabelChanged);
}

void AppSettings::setCorrectionDoubleCopy(bool v) {
    write(correctionDoubleCopy_, v, "correctionDoubleCopy", v,
          &AppSettings::correctionDoubleCopyChanged);
}

void AppSettings::setCorrectorUsesLocalModel(bool v) {
    write(correctorUsesLocalModel_, v, "correctorUsesApple", v,
          &AppSettings::correctorUsesLocalModelChanged);
}

void AppSettings::setTranslateTarget(const QString& v) {
    write(translateTarget_, v, "translateTarget", v, &AppSettings::translateTargetChanged);
}

void AppSettings::setTranslateApps(const QStringList& v) {
    write(translateApps_, v, "translateApps", QJsonArray::fromStringList(v),
          &AppSettings::translateAppsChanged);
}

void AppSettings::setVoiceCommands(bool v) {
    write(voiceCommands_, v, "voiceCommands", v, &AppSettings::voiceCommandsChanged);
}

void AppSettings::setAdaptTone(bool v) {
    write(adaptTone_, v, "adaptTone", v, &AppSettings::adaptToneChanged);
}

void AppSettings::setLivePreview(bool v) {
    write(livePreview_, v, "livePreview", v, &AppSettings::livePreviewChanged);
}

void AppSettings::setOwnKeyMode(bool v) {
    write(ownKeyMode_, v, "ownKeyMode", v, &AppSettings::ownKeyModeChanged);
}

void AppSettings::setAcceptPostedKeys(bool v) {
    write(acceptPostedKeys_, v, "acceptPostedKeys", v, &AppSettings::acceptPostedKeysChanged);
}

void AppSettings::setPortalShortcut(const QString& v) {
    write(portalShortcut_, v, "portalShortcut", v, &AppSettings::portalShortcutChanged);
}

void AppSettings::setReadKeyboardDevices(bool v) {
    write(readKeyboardDevices_, v, "readKeyboardDevices", v,
          &AppSettings::readKeyboardDevicesChanged);
}

void AppSettings::setUinputKeys(bool v) {
    write(uinputKeys_, v, "uinputKeys", v, &AppSettings::uinputKeysChanged);
}

void AppSettings::setPerformanceMode(PerformanceMode v) {
    write(performanceMode_, v, "performanceMode", rawValue(v),
          &AppSettings::performanceModeChanged);
}

void AppSettings::setUseLanguageTool(bool v) {
    write(useLanguageTool_, v, "useLanguageTool", v, &AppSettings::useLanguageToolChanged);
}

void AppSettings::setPunctuation(PunctuationLevel v) {
    write(punctuation_, v, "punctuation", rawValue(v), &AppSettings::punctuationChanged);
}

void AppSettings::setCorrectionScope(int v) {
    write(correctionScope_, v, "correctionScope", v, &AppSettings::correctionScopeChanged);
}

void AppSettings::setTypingWPM(int v) {
    write(typingWPM_, v, "typingWPM", v, &AppSettings::typingWPMChanged);
}

void AppSettings::setTranscriptionEngine(TranscriptionEngine v) {
    write(transcriptionEngine_, v, "transcriptionEngine", rawValue(v),
          &AppSettings::transcriptionEngineChanged);
}

void AppSettings::setRewriteEngine(RewriteEngine v) {
    write(rewriteEngine_, v, "rewriteEngine", rawValue(v), &AppSettings::rewriteEngineChanged);
}

void AppSettings::setDeepgramModel(const QString& v) {
    write(deepgramModel_, v, "deepgramModel", v, &AppSettings::deepgramModelChanged);
}

void AppSettings::setOpenRouterModel(const QString& v) {
    write(openRouterModel_, v, "openRouterModel", v, &AppSettings::openRouterModelChanged);
}

void AppSettings::setLocalSpeechServer(const QString& v) {
    write(localSpeechServer_, v, "localSpeechServer", v, &AppSettings::localSpeechServerChanged);
}

void AppSettings::setLocalModelServer(const QString& v) {
    write(localModelServer_, v, "localModelServer", v, &AppSettings::localModelServerChanged);
}

void AppSettings::setLocalSpeechModel(const QString& v) {
    write(localSpeechModel_, v, "localSpeechModel", v, &AppSettings::localSpeechModelChanged);
}

void AppSettings::setMicrophoneUID(const std::optional<QString>& v) {
    microphoneUID_ = v;
    if (v)
        d_.setValue(K("microphoneUID"), *v);
    else
        d_.remove(K("microphoneUID"));
    Q_EMIT microphoneUIDChanged();
}

} // namespace ombry
