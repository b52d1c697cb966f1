#pragma once

#include "data/UserDefaults.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <optional>

namespace ombry {

class KeyStore;

// The user's choices. Each enumeration is stored by its raw text; the order of allCases<E>()
// is the order in which pickers list them.
enum class DictationKey { RightOption, RightCommand, RightControl, Fn };
enum class Language { Auto, Fr, En, Es, De, It };
enum class Theme { Light, Dark };
enum class PerformanceMode { Auto, Light, Full };
enum class PunctuationLevel { Light, Normal, Full };
// `Local` is the engine of this machine (a local speech server, else pocketsphinx; the local
// model server for rewriting); it is stored as "apple", the value settings files have always had.
enum class TranscriptionEngine { Gemini, Local, Deepgram };
enum class RewriteEngine { Local, OpenRouter, None };

QString rawValue(DictationKey v);
QString rawValue(Language v);
QString rawValue(Theme v);
QString rawValue(PerformanceMode v);
QString rawValue(PunctuationLevel v);
QString rawValue(TranscriptionEngine v);
QString rawValue(RewriteEngine v);

// French display labels. TranscriptionEngine and RewriteEngine have none here: their texts
// depend on the mode and belong to the settings page.
// The dictation key by its name on the keyboard. Right Alt is "Alt Gr" where the layout makes
// it AltGr and "Alt droite" where it is a plain Alt (KeyboardHook::rightAltIsAltGr() tells);
// "Alt Gr" when that is not known, the key of most French keyboards.
QString label(DictationKey v, std::optional<bool> rightAltIsAltGr);
QString label(Language v);
QString label(Theme v);
QString label(PerformanceMode v);
QString label(PunctuationLevel v);

// The value of a raw text, or nothing for an unknown text (exact, case-sensitive match).
template <class E> std::optional<E> fromRaw(const QString& raw);
template <class E> QList<E> allCases();
template <> std::optional<DictationKey> fromRaw<DictationKey>(const QString& raw);
template <> QList<DictationKey> allCases<DictationKey>();
template <> std::optional<Language> fromRaw<Language>(const QString& raw);
template <> QList<Language> allCases<Language>();
template <> std::optional<Theme> fromRaw<Theme>(const QString& raw);
template <> QList<Theme> allCases<Theme>();
template <> std::optional<PerformanceMode> fromRaw<PerformanceMode>(const QString& raw);
template <> QList<PerformanceMode> allCases<PerformanceMode>();
template <> std::optional<PunctuationLevel> fromRaw<PunctuationLevel>(const QString& raw);
template <> QList<PunctuationLevel> allCases<PunctuationLevel>();
template <> std::optional<TranscriptionEngine> fromRaw<TranscriptionEngine>(const QString& raw);
template <> QList<TranscriptionEngine> allCases<TranscriptionEngine>();
template <> std::optional<RewriteEngine> fromRaw<RewriteEngine>(const QString& raw);
template <> QList<RewriteEngine> allCases<RewriteEngine>();

// The language an engine that needs exactly one gets (auto gives fr), and Deepgram's code
// (auto gives multi).
QString localeCode(Language v);
QString deepgramCode(Language v);

// What correction may change: a bit set stored as one integer.
namespace CorrectionScope {
inline constexpr int Spelling = 1;
inline constexpr int Grammar = 2;
inline constexpr int Punctuation = 4;
inline constexpr int Typography = 8;
inline constexpr int Style = 16;
inline constexpr int Default = Spelling | Grammar | Punctuation | Typography;
// The five options in the order of the settings chips.
QList<int> options();
QString label(int option); // "Orthographe", ...; empty for a value that is not one option
} // namespace CorrectionScope

// One entry of a price table. OpenRouter prices are dollars per million tokens; Deepgram's
// priceIn is dollars per minute of audio.
struct Model {
    QString id;
    QString name;
    QString note;
    double priceIn = 0;
    double priceOut = 0;
};

// The user's settings, read once from the user defaults when made and written back at each
// set. Every setter writes at once and emits the property's change signal.
class AppSettings : public QObject {
    Q_OBJECT
public:
    static AppSettings& shared(); // over UserDefaults::standard() and KeyStore::shared()
    // keys: where the default of transcriptionEngine looks for an OpenRouter key; nullptr
    // means KeyStore::shared(), asked only when that default is needed.
    explicit AppSettings(UserDefaults& defaults, KeyStore* keys = nullptr,
                         QObject* parent = nullptr);

    UserDefaults& defaults() { return d_; }

    static const QList<Model>& openRouterModels();
    static const QList<Model>& deepgramModels();
    // Cost of a thousand dictations of a quarter of a minute.
    static double costPer1000Deepgram(const QString& modelId);
    // Cost of a thousand dictations of 350 input and 80 output tokens; nothing for an unknown id.
    static std::optional<double> costPer1000OpenRouter(const QString& modelId);

    // The product site's base address: OMBRY_SITE_URL, empty by default (no hosted service).
    static QString siteURL();
    static bool siteURLIsValid();

    // Sets the application's palette to the dark or light appearance of `theme`. Does
    // nothing while there is no QGuiApplication.
    void applyTheme() const;

    DictationKey key() const { return key_; }
    Language language() const { return language_; }
    bool sounds() const { return sounds_; }
    bool restoreClipboard() const { return restoreClipboard_; }
    Theme theme() const { return theme_; }
    bool correctionShortcut() const { return correctionShortcut_; }
    int correctionKeyCode() const { return correctionKeyCode_; }
    quint64 correctionModifiers() const { return correctionModifiers_; }
    QString correctionLabel() const { return correctionLabel_; }
    bool correctionDoubleCopy() const { return correctionDoubleCopy_; }
    bool correctorUsesLocalModel() const { return correctorUsesLocalModel_; }
    QString translateTarget() const { return translateTarget_; }
    QStringList translateApps() const { return translateApps_; }
    bool voiceCommands() const { return voiceCommands_; }
    bool adaptTone() const { return adaptTone_; }
    bool livePreview() const { return livePreview_; }
    bool ownKeyMode() const { return ownKeyMode_; }
    std::optional<QString> microphoneUID() const { return microphoneUID_; }
    PerformanceMode performanceMode() const { return performanceMode_; }
    bool useLanguageTool() const { return useLanguageTool_; }
    PunctuationLevel punctuation() const { return punctuation_; }
    int correctionScope() const { return correctionScope_; }
    int typingWPM() const { return typingWPM_; }
    TranscriptionEngine transcriptionEngine() const { return transcriptionEngine_; }
    RewriteEngine rewriteEngine() const { return rewriteEngine_; }
    QString deepgramModel() const { return deepgramModel_; }
    QString openRouterModel() const { return openRouterModel_; }
    // Keys posted by other programs (XTEST) count as the user's: remote desktops send them so.
    bool acceptPostedKeys() const { return acceptPostedKeys_; }
    // The local servers of the on-device engines: a speech server speaking the OpenAI-compatible
    // transcription interface (empty: none, pocketsphinx transcribes) and a chat server (empty:
    // the usual local address); their environment variables override both. The model name
    // the speech server is asked for (most of them accept or ignore it).
    QString localSpeechServer() const { return localSpeechServer_; }
    QString localModelServer() const { return localModelServer_; }
    QString localSpeechModel() const { return localSpeechModel_; }
    // The chord proposed to the desktop's shortcut service for the dictation key, where a lone
    // modifier cannot be a shortcut (a Wayland session); the desktop may let the user change it.
    QString portalShortcut() const { return portalShortcut_; }
    // On Wayland, the dictation key read from the keyboard devices (members of the input group):
    // a lone modifier can then be held, but any program of the user can read every key too.
    bool readKeyboardDevices() const { return readKeyboardDevices_; }
    // On Wayland where the desktop offers no other way, keys posted through /dev/uinput.
    bool uinputKeys() const { return uinputKeys_; }

    void setKey(DictationKey v);
    void setLanguage(Language v);
    void setSounds(bool v);
    void setRestoreClipboard(bool v);
    void setTheme(Theme v); // also applies it
    void setCorrectionShortcut(bool v);
    void setCorrectionKeyCode(int v);
    void setCorrectionModifiers(quint64 v);
    void setCorrectionLabel(const QString& v);
    void setCorrectionDoubleCopy(bool v);
    void setCorrectorUsesLocalModel(bool v);
    void setTranslateTarget(const QString& v);
    void setTranslateApps(const QStringList& v);
    void setVoiceCommands(bool v);
    void setAdaptTone(bool v);
    void setLivePreview(bool v);
    void setOwnKeyMode(bool v);
    void setMicrophoneUID(const std::optional<QString>& v); // none removes the key
    void setPerformanceMode(PerformanceMode v);
    void setUseLanguageTool(bool v);
    void setPunctuation(PunctuationLevel v);
    void setCorrectionScope(int v);
    void setTypingWPM(int v);
    void setTranscriptionEngine(TranscriptionEngine v);
    void setRewriteEngine(RewriteEngine v);
    void setDeepgramModel(const QString& v);
    void setOpenRouterModel(const QString& v);
    void setAcceptPostedKeys(bool v);
    void setPortalShortcut(const QString& v);
    void setReadKeyboardDevices(bool v);
    void setUinputKeys(bool v);
    void setLocalSpeechServer(const QString& v);
    void setLocalModelServer(const QString& v);
    void setLocalSpeechModel(const QString& v);

Q_SIGNALS:
    void keyChanged();
    void languageChanged();
    void soundsChanged();
    void restoreClipboardChanged();
    void themeChanged();
    void correctionShortcutChanged();
    void correctionKeyCodeChanged();
    void correctionModifiersChanged();
    void correctionLabelChanged();
    void correctionDoubleCopyChanged();
    void correctorUsesLocalModelChanged();
    void translateTargetChanged();
    void translateAppsChanged();
    void voiceCommandsChanged();
    void adaptToneChanged();
    void livePreviewChanged();
    void ownKeyModeChanged();
    void microphoneUIDChanged();
    void performanceModeChanged();
    void useLanguageToolChanged();
    void punctuationChanged();
    void correctionScopeChanged();
    void typingWPMChanged();
    void transcriptionEngineChanged();
    void rewriteEngineChanged();
    void deepgramModelChanged();
    void openRouterModelChanged();
    void acceptPostedKeysChanged();
    void portalShortcutChanged();
    void readKeyboardDevicesChanged();
    void uinputKeysChanged();
    void localSpeechServerChanged();
    void localModelServerChanged();
    void localSpeechModelChanged();

private:
    TranscriptionEngine defaultTranscriptionEngine() const;
    template <class V>
    void write(V& member, const V& value, const char* key, const QJsonValue& stored,
               void (AppSettings::*changed)());

    UserDefaults& d_;
    KeyStore* keys_;

    DictationKey key_;
    Language language_;
    bool sounds_;
    bool restoreClipboard_;
    Theme theme_;
    bool correctionShortcut_;
    int correctionKeyCode_;
    quint64 correctionModifiers_;
    QString correctionLabel_;
    bool correctionDoubleCopy_;
    bool correctorUsesLocalModel_;
    QString translateTarget_;
    QStringList translateApps_;
    bool voiceCommands_;
    bool adaptTone_;
    bool livePreview_;
    bool ownKeyMode_;
    std::optional<QString> microphoneUID_;
    PerformanceMode performanceMode_;
    bool useLanguageTool_;
    PunctuationLevel punctuation_;
    int correctionScope_;
    int typingWPM_;
    TranscriptionEngine transcriptionEngine_;
    RewriteEngine rewriteEngine_;
    QString deepgramModel_;
    QString openRouterModel_;
    bool acceptPostedKeys_;
    QString portalShortcut_;
    bool readKeyboardDevices_;
    bool uinputKeys_;
    QString localSpeechServer_;
    QString localModelServer_;
    QString localSpeechModel_;
};

} // namespace ombry
