#include "views/shell/Pages.h"

#include "calls/CallTranslator.h"
#include "data/Store.h"
#include "dictation/DictationController.h"
#include "meetings/MeetingRecorder.h"
#include "views/common/Components.h"
#include "views/common/Symbols.h"
#include "views/common/ViewStyle.h"
#include "views/corrector/CorrectorPage.h"
#include "views/dashboard/DashboardView.h"
#include "views/dictionary/DictionaryView.h"
#include "views/history/HistoryView.h"
#include "views/meetings/MeetingsPage.h"
#include "views/settings/SettingsPage.h"
#include "views/translator/TranslatorPage.h"

#include <QVBoxLayout>

namespace ombry {

using namespace Components;

QString pageSubtitle(Page page) {
    switch (page) {
    case Page::Dashboard:
        return QStringLiteral("Tes dictées, le temps gagné et tes applis en un coup d'œil.");
    case Page::Corrector:
        return QStringLiteral("Colle un texte : il revient corrigé, avec l'explication de chaque "
                              "faute.");
    case Page::Translator:
        return QStringLiteral("Traduis un texte, ou écoute-le dans sa langue.");
    case Page::Meetings:
        return QStringLiteral("Enregistre une réunion : titre, résumé et tâches arrivent tout "
                              "seuls.");
    case Page::History:
        return QStringLiteral("Toutes tes dictées, avec l'audio des 30 derniers jours.");
    case Page::Dictionary:
        return QStringLiteral("Les mots à bien écrire et tes raccourcis vocaux.");
    case Page::Settings:
        return QStringLiteral("Tout se règle ici, et chaque choix compte tout de suite.");
    }
    return {};
}

QWidget* makePage(Page page, AppSettings& settings, DictationController& controller) {
    switch (page) {
    case Page::Dashboard: {
        auto* dashboard = new DashboardView(Store::shared(), settings);
        QObject::connect(dashboard, &DashboardView::showHistory, dashboard,
                         [] { Navigation::shared().setPage(Page::History); });
        return dashboard;
    }
    case Page::Corrector:
        return new CorrectorPage(Store::shared());
    case Page::Translator:
        return new TranslatorPage(Store::shared(), CallTranslator::shared());
    case Page::Meetings:
        return new MeetingsPage(Store::shared(), MeetingRecorder::shared());
    case Page::History: {
        auto* history = new HistoryView(Store::shared());
        history->onRetry = [&controller](const QUuid& id) { controller.retry(id); };
        return history;
    }
    case Page::Dictionary:
        return new DictionaryView(Store::shared());
    case Page::Settings:
        return new SettingsPage(settings, controller);
    }
    return new QWidget;
}

} // namespace ombry
