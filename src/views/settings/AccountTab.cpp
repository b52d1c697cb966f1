// The tab "Compte": the credits of the hosted service, or the user's own keys.
#include "views/settings/SettingsPage.h"

#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "online/Credits.h"
#include "online/CreditsConfig.h"
#include "platform/Platform.h"
#include "views/common/Components.h"
#include "views/common/PageLook.h"
#include "views/common/Switch.h"
#include "views/settings/SettingsControls.h"
#include "views/shell/Navigation.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QTimer>
#include <QVBoxLayout>

namespace ombry {

using namespace settings_controls;

QWidget* SettingsPage::account() {
    auto* page = new QWidget;
    auto* v = column(page);
    Credits& credits = Credits::shared();

    QVBoxLayout* c = nullptr;
    v->addWidget(card(&c));
    c->addWidget(text(QStringLiteral("Crédits Ombry"), "cardTitle"));
    QLabel* balance = text(SM::balanceText(credits.balance()), "bigNumber");
    balance->setProperty("role", QStringLiteral("balance"));
    c->addWidget(balance);
    c->addWidget(text(QStringLiteral("1 crédit ≈ 5 min de dictée · partagés avec Ombry Lisse"),
                      "secondary"));
    QLabel* exhausted =
        text(QStringLiteral("Plus de crédits : la dictée continue avec Local, sur l'ordinateur."),
             "bad");
    exhausted->setVisible(credits.exhausted());
    c->addWidget(exhausted);
    auto* packs = new QHBoxLayout;
    for (const CreditsConfig::Pack& pack : CreditsConfig::packs()) {
        auto* b =
            new QPushButton(QStringLiteral("%1 crédits · %2").arg(pack.credits).arg(pack.price));
        b->setObjectName(QStringLiteral("primary"));
        connect(b, &QPushButton::clicked, this, [pack] {
            const QUrl page = CreditsConfig::packURL(pack);
            if (const std::optional<QUrl> url = CreditsConfig::checkoutURL(page.toString()))
                Platform::current().browser().open(*url);
        });
        packs->addWidget(b);
    }
    auto* refresh = new QPushButton(QStringLiteral("Actualiser"));
    connect(refresh, &QPushButton::clicked, this, [] { Credits::shared().refresh(); });
    packs->addWidget(refresh);
    packs->addStretch();
    c->addLayout(packs);

    auto* linkRow = new QHBoxLayout;
    QLabel* linked = text(QString(), "secondary");
    auto* link = new QPushButton(QStringLiteral("Relier à ton compte Ombry"));
    link->setObjectName(QStringLiteral("linkButton"));
    connect(link, &QPushButton::clicked, this, [] { Credits::shared().link(); });
    linkRow->addWidget(linked);
    linkRow->addWidget(link);
    linkRow->addStretch();
    c->addLayout(linkRow);
    auto showCredits = [balance, exhausted, linked, link] {
        Credits& cr = Credits::shared();
        balance->setText(SM::balanceText(cr.balance()));
        exhausted->setVisible(cr.exhausted());
        linked->setVisible(bool(cr.linkedEmail()));
        if (cr.linkedEmail()) linked->setText(QStringLiteral("Relié à %1").arg(*cr.linkedEmail()));
        link->setVisible(!cr.linkedEmail());
        link->setText(cr.linking() ? QStringLiteral("En attente du site…")
                                   : QStringLiteral("Relier à ton compte Ombry"));
        link->setEnabled(!cr.linking());
    };
    for (auto signal : {&Credits::balanceChanged, &Credits::exhaustedChanged,
                        &Credits::linkedEmailChanged, &Credits::linkingChanged})
        connect(&credits, signal, page, showCredits);
    showCredits();
    if (!snapshotMode()) QTimer::singleShot(0, this, [] { Credits::shared().refresh(); });

    QVBoxLayout* k = nullptr;
    v->addWidget(card(&k));
    addSwitch(k, "ownKeySwitch", settings_, &AppSettings::ownKeyMode, &AppSettings::setOwnKeyMode,
              QStringLiteral("Mode avancé"),
              QStringLiteral("Utiliser mes propres clés OpenRouter et Deepgram"));
    auto* keyRows = new QWidget;
    auto* kr = new QVBoxLayout(keyRows);
    kr->setContentsMargins(0, 0, 0, 0);
    for (APIService service : {APIService::OpenRouter, APIService::Deepgram}) {
        const QString name = service == APIService::OpenRouter ? QStringLiteral("OpenRouter")
                                                               : QStringLiteral("Deepgram");
        auto* w = new QWidget;
        w->setProperty("service", rawValue(service));
        auto* h = new QHBoxLayout(w);
        h->setContentsMargins(0, 0, 0, 0);
        h->addWidget(text(name));
        QLabel* state = text(QString(), "secondary");
        state->setProperty("role", QStringLiteral("keyState"));
        h->addWidget(state, 1);
        auto* field = new QLineEdit;
        field->setEchoMode(QLineEdit::Password);
        field->setPlaceholderText(QStringLiteral("Clé %1").arg(name));
        field->setVisible(false);
        field->setMinimumWidth(260);
        auto* save = new QPushButton(QStringLiteral("Enregistrer"));
        save->setObjectName(QStringLiteral("primary"));
        save->setVisible(false);
        auto* edit = new QPushButton(QStringLiteral("Modifier"));
        h->addWidget(field);
        h->addWidget(save);
        h->addWidget(edit);
        auto showKey = [state, service] {
            state->setText(KeyStore::shared().key(service) ? QStringLiteral("••••")
                                                           : QStringLiteral("Absente"));
        };
        showKey();
        connect(&KeyStore::shared(), &KeyStore::keysChanged, state, showKey);
        connect(edit, &QPushButton::clicked, w, [field, save, edit] {
            field->setVisible(true);
            save->setVisible(true);
            edit->setVisible(false);
            field->setFocus();
        });
        auto commit = [field, save, edit, service] {
            KeyStore::shared().save(field->text(), service);
            field->clear();
            field->setVisible(false);
            save->setVisible(false);
            edit->setVisible(true);
        };
        connect(save, &QPushButton::clicked, w, commit);
        connect(field, &QLineEdit::returnPressed, w, commit);
        kr->addWidget(w);
    }
    keyRows->setVisible(settings_.ownKeyMode());
    connect(&settings_, &AppSettings::ownKeyModeChanged, keyRows,
            [this, keyRows] { keyRows->setVisible(settings_.ownKeyMode()); });
    k->addWidget(keyRows);
    v->addStretch();
    return PageLook::scrolled(page);
}

} // namespace ombry
