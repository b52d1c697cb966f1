#pragma once

#include "data/Records.h"
#include "data/Settings.h"

#include <QList>
#include <QString>
#include <optional>

// What the settings page computes from the settings: the names of the engines, the estimated
// cost, the titles that depend on a value, the applications that dictations went to, and the
// shortcut typed into the shortcut recorder. Plain functions, tested without a screen.
namespace ombry::SettingsModel {

enum class Tab { General, Dictation, Correction, Account, Permissions, Advanced };
QList<Tab> allTabs();
QString rawValue(Tab tab);
QString label(Tab tab);
std::optional<Tab> tabFromRaw(const QString& raw);
// The tab stored under "settingsTab"; General when none or unknown.
Tab storedTab(const UserDefaults& defaults);
void storeTab(UserDefaults& defaults, Tab tab);
inline constexpr const char* kTabKey = "settingsTab";

// The name of a model of a price table, or its id when the table does not have it.
QString modelName(const QList<Model>& table, const QString& id);

// "Transcription" and "Reformulation" rows of the engine card.
QString sttLabel(TranscriptionEngine engine, bool usesOwnKey, const QString& deepgramModel);
QString rewriteLabel(RewriteEngine engine, bool usesOwnKey, bool localModelAvailable,
                     const QString& openRouterModel);

// The choices offered by "Changer", in the order of the enumerations.
QString speechChoice(TranscriptionEngine engine, bool usesOwnKey);
QString cleanupChoice(RewriteEngine engine, bool usesOwnKey);

// Dollars per thousand dictations for the chosen engines, and its text ("Gratuit", "0,050 $",
// "1,08 $").
double totalCost(TranscriptionEngine engine, RewriteEngine rewrite, const QString& deepgramModel,
                 const QString& openRouterModel);
QString formatCost(double dollars);
// "Coût estimé": the credit rate when credits pay, else the cost with " / 1 000 dictées".
QString costText(bool usesCredits, TranscriptionEngine engine, RewriteEngine rewrite,
                 const QString& deepgramModel, const QString& openRouterModel);

// "Vers l'anglais", "Vers le français".
QString translateMenuTitle(const QString& language);

// The applications that dictations went to, each once, newest first, with an id.
struct AppEntry {
    QString name;
    QString bundleID;
    bool operator==(const AppEntry&) const = default;
};
QList<AppEntry> dictatedApps(const QList<Dictation>& dictations);
// translateApps with the id added or removed.
QStringList toggledApps(const QStringList& apps, const QString& bundleID, bool on);

// A shortcut typed into the recorder: the program's key code, its modifier flags and how it is
// shown ("Ctrl+Alt+C"). Nothing for a key without a code, a lone modifier, or a key without
// Ctrl, Alt or Super (a plain letter would take the letter away from typing).
struct Shortcut {
    int keyCode = 0;
    quint64 modifiers = 0;
    QString label;
    bool operator==(const Shortcut&) const = default;
};
std::optional<Shortcut> shortcutFromQt(int qtKey, Qt::KeyboardModifiers modifiers);

// The balance line of the credits card.
QString balanceText(std::optional<int> balance);

} // namespace ombry::SettingsModel
