// The corrector, translator and meetings pages with realistic data, light and dark, drawn
// offscreen in the window's look; OMBRY_PICTURES=folder keeps them as {page}-{light|dark}.png.
#include "../../correction/ServiceReplies.h"
#include "../PageTesting.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "calls/CallTranslator.h"
#include "data/Store.h"
#include "meetings/MeetingRecorder.h"
#include "views/common/ViewStyle.h"
#include "views/corrector/CorrectorLogic.h"
#include "views/corrector/CorrectorPage.h"
#include "views/meetings/MeetingsPage.h"
#include "views/translator/TranslatorLogic.h"
#include "views/translator/TranslatorPage.h"

#include <QDir>
#include <QImage>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QVBoxLayout>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kText = QStringLiteral(
    "Bonjour à tous, je vous envoie le compte rendu de la réunion de hier. Les chiffres du "
    "trimestre sont bon et l'équipe à bien travailler. On se retrouve jeudi pour valider le "
    "budget.");
const QString kCorrected = QStringLiteral(
    "Bonjour à tous, je vous envoie le compte rendu de la réunion d'hier. Les chiffres du "
    "trimestre sont bons et l'équipe a bien travaillé. On se retrouve jeudi pour valider le "
    "budget.");

Fix fix(const QString& original, const QString& correction, const QString& kind) {
    Fix f;
    f.original = original;
    f.correction = correction;
    f.kind = kind;
    return f;
}

Meeting meeting(const QString& title, const QString& summary, const QStringList& tasks,
                int hoursAgo, double seconds) {
    Meeting m;
    m.title = title;
    m.summary = summary;
    m.tasks = tasks;
    m.duration = seconds;
    m.date = QDateTime::fromSecsSinceEpoch(1773480413 - hoursAgo * 3600, Qt::UTC);
    m.transcript = QStringLiteral("Bon, on commence. Premier point, le budget du trimestre…");
    return m;
}

// A flat picture is one colour everywhere.
bool drawn(const QImage& image) {
    const QRgb first = image.pixel(0, 0);
    int other = 0;
    for (int y = 0; y < image.height(); y += 7)
        for (int x = 0; x < image.width(); x += 7)
            if (image.pixel(x, y) != first) ++other;
    return other > 500;
}

} // namespace

class TstPagePictures : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    QTemporaryDir dir;
    std::unique_ptr<Store> store;

    // The page inside the window's page area, as the window shows it.
    QImage picture(QWidget* page, bool dark, const QString& name) {
        QWidget root;
        root.setObjectName(QStringLiteral("pageArea"));
        auto* v = new QVBoxLayout(&root);
        v->setContentsMargins(32, 26, 32, 22);
        page->setParent(&root);
        v->addWidget(page);
        ViewStyle::apply(&root, dark);
        root.resize(960, 900);
        root.show();
        for (int i = 0; i < 5; ++i)
            QTest::qWait(20);
        const QImage image = root.grab().toImage();
        const QString folder = qEnvironmentVariable("OMBRY_PICTURES");
        if (!folder.isEmpty()) {
            QDir().mkpath(folder);
            image.save(QDir(folder).filePath(name + (dark ? "-dark.png" : "-light.png")));
        }
        page->setParent(nullptr);
        return image;
    }

private Q_SLOTS:
    void initTestCase() {
        pointServicesAt(server);
        openRouterOn();
        server.on(kLanguageTool,
                  ltReply({ltFinding(kText, "de hier", {"d'hier"}, "TYPOS",
                                     "Élision devant une voyelle."),
                           ltFinding(kText, "bon", {"bons"}, "GRAMMAR",
                                     "Accord de l'adjectif avec « chiffres »."),
                           ltFinding(kText, "à", {"a"}, "TYPOS", "Confusion entre « a » et « à »."),
                           ltFinding(kText, "travailler", {"travaillé"}, "GRAMMAR",
                                     "Participe passé après l'auxiliaire.")}));
        server.setHandler([](const RecordedRequest& r) {
            const QString system = systemOf(r);
            if (system.contains(QStringLiteral("Traduis")) ||
                system.contains(QStringLiteral("tradu")))
                return chatReply(QStringLiteral(
                    "Hi everyone, here are the minutes of yesterday's meeting. The quarterly "
                    "figures are good and the team did great work. See you Thursday to approve "
                    "the budget."));
            return chatReply(kCorrected);
        });
        store = std::make_unique<Store>(dir.path());
        CorrectionRecord r1;
        r1.action = QStringLiteral("Corriger");
        r1.fixes = {fix("a", "à", "orthographe"), fix("sa", "ça", "orthographe"),
                    fix("quand même", "quand même", "style")};
        CorrectionRecord r2;
        r2.action = QStringLiteral("Corriger");
        r2.fixes = {fix("a", "à", "orthographe"), fix("malgrés", "malgré", "orthographe"),
                    fix("ils sont aller", "ils sont allés", "accord")};
        CorrectionRecord r3;
        r3.action = QStringLiteral("Corriger");
        r3.fixes = {fix("a", "à", "orthographe"), fix("sa", "ça", "orthographe"),
                    fix("language", "langage", "orthographe")};
        CorrectionRecord t;
        t.action = QStringLiteral("Traduire · anglais");
        t.original = QStringLiteral("Merci pour ton retour, je regarde ça demain.");
        t.result = QStringLiteral("Thanks for your feedback, I'll look at it tomorrow.");
        store->setFixes({t, r1, r2, r3});
        store->setMeetings(
            {meeting(QStringLiteral("Point budget du trimestre"),
                     QStringLiteral("Les chiffres du trimestre sont bons. Le budget marketing est "
                                    "reconduit, la refonte du site passe au deuxième trimestre."),
                     {QStringLiteral("Claire envoie le budget révisé avant vendredi"),
                      QStringLiteral("Marc prépare la maquette de la page d'accueil"),
                      QStringLiteral("Planifier la revue avec le client")},
                     3, 2730),
             meeting(QStringLiteral("Appel avec l'agence"),
                     QStringLiteral("L'agence propose deux pistes graphiques ; la seconde plaît "
                                    "davantage. Devis attendu la semaine prochaine."),
                     {QStringLiteral("Relancer l'agence pour le devis")}, 50, 1260)});
    }

    void corrector_data() {
        QTest::addColumn<bool>("dark");
        QTest::newRow("light") << false;
        QTest::newRow("dark") << true;
    }
    void corrector() {
        QFETCH(bool, dark);
        AppSettings::shared().setTheme(dark ? Theme::Dark : Theme::Light);
        auto* page = new CorrectorPage(*store);
        page->model().setText(kText);
        page->model().run();
        QTRY_VERIFY(page->model().analysis().has_value() && !page->model().explaining());
        platform.clock().advance(900);
        QTRY_VERIFY(page->model().liveCount().has_value());
        page->model().toggleIgnored(page->model().analysis()->fixes.last().id);
        const QImage image = picture(page, dark, QStringLiteral("corrector"));
        QVERIFY(drawn(image));
        delete page;
    }

    void translator_data() { corrector_data(); }
    void translator() {
        QFETCH(bool, dark);
        AppSettings::shared().setTheme(dark ? Theme::Dark : Theme::Light);
        CallTranslator call;
        auto* page = new TranslatorPage(*store, call);
        page->model().setSource(kCorrected);
        platform.clock().advance(700);
        QTRY_VERIFY(!page->model().result().isEmpty());
        QVERIFY(drawn(picture(page, dark, QStringLiteral("translator"))));
        delete page;
    }

    void meetings_data() { corrector_data(); }
    void meetings() {
        QFETCH(bool, dark);
        AppSettings::shared().setTheme(dark ? Theme::Dark : Theme::Light);
        auto* page = new MeetingsPage(*store, MeetingRecorder::shared());
        auto* card = page->findChild<QWidget*>(QStringLiteral("meetingCard"));
        QTest::qWait(10);
        QList<QPushButton*> tasks = card->findChildren<QPushButton*>(QStringLiteral("task"));
        tasks.first()->click();
        QVERIFY(drawn(picture(page, dark, QStringLiteral("meetings"))));
        delete page;
    }
};

QTEST_MAIN(TstPagePictures)
#include "tst_pagepictures.moc"
