#include "views/Pages.h"

#include "calls/CallTranslator.h"
#include "data/Store.h"
#include "meetings/MeetingRecorder.h"
#include "views/Components.h"
#include "views/CorrectorPage.h"
#include "views/MeetingsPage.h"
#include "views/SettingsPage.h"
#include "views/Symbols.h"
#include "views/TranslatorPage.h"
#include "views/ViewStyle.h"

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

namespace {
QWidget* placeholder(Page page) {
    auto* w = new QWidget;
    w->setObjectName(QStringLiteral("placeholderPage"));
    auto* v = new QVBoxLayout(w);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(18);
    v->addWidget(pageHeader(label(page), pageSubtitle(page)));
    QVBoxLayout* c = nullptr;
    QFrame* box = card(&c);
    c->setContentsMargins(40, 36, 40, 36);
    const ViewStyle::Colors colors = ViewStyle::colors(ViewStyle::darkNow());
    c->addWidget(symbol(iconName(page), colors.accent, 48), 0, Qt::AlignHCenter);
    QLabel* soon =
        text(QStringLiteral("Cette page arrive dans une prochaine version."), "cardTitle");
    soon->setAlignment(Qt::AlignCenter);
    c->addWidget(soon);
    QLabel* meanwhile = text(QStringLiteral("En attendant, la dictée, la correction et la "
                                            "traduction marchent partout avec tes touches."),
                             "secondary");
    meanwhile->setAlignment(Qt::AlignCenter);
    c->addWidget(meanwhile);
    v->addWidget(box);
    v->addStretch();
    return w;
}
} // namespace

QWidget* makePage(Page page, AppSettings& settings, DictationController& controller) {
    switch (page) {
    case Page::Settings:
        return new SettingsPage(settings, controller);
    case Page::Corrector:
        return new CorrectorPage(Store::shared());
    case Page::Translator:
        return new TranslatorPage(Store::shared(), CallTranslator::shared());
    case Page::Meetings:
        return new MeetingsPage(Store::shared(), MeetingRecorder::shared());
    default:
        return placeholder(page);
    }
}

} // namespace ombry
