// The tab "Avancé".
#include "views/settings/SettingsPage.h"

#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/DeviceProfile.h"
#include "desktop/Log.h"
#include "engines/LocalEngine.h"
#include "engines/LocalSpeech.h"
#include "views/common/Components.h"
#include "views/common/PageLook.h"
#include "views/common/Switch.h"
#include "views/settings/SettingsControls.h"
#include "views/shell/Navigation.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPointer>
#include <QSpinBox>
#include <QVBoxLayout>
#include <functional>

namespace ombry {

using namespace settings_controls;

QWidget* SettingsPage::advanced() {
    auto* page = new QWidget;
    auto* v = column(page);

    QVBoxLayout* c1 = addCard(v, QStringLiteral("Performances"));
    QComboBox* perf = picker<PerformanceMode>("performancePicker", settings_.performanceMode());
    QLabel* mode = text(QString(), "rowDetail");
    auto showMode = [mode] {
        mode->setText(DeviceProfile::lightVisuals()
                          ? QStringLiteral("Mode léger : toutes les fonctions sont là, avec moins "
                                           "d'effets de verre et d'animations.")
                          : QStringLiteral("Mode complet : effets de verre et animations au "
                                           "maximum."));
    };
    connect(perf, &QComboBox::activated, this, [this, showMode](int i) {
        settings_.setPerformanceMode(allCases<PerformanceMode>().at(i));
        showMode();
    });
    showMode();
    c1->addWidget(row(QStringLiteral("Effets visuels"), QString(), perf));
    c1->addWidget(mode);
    QLabel* machine = text(DeviceProfile::summary(), "secondary");
    machine->setWordWrap(false);
    c1->addWidget(row(QStringLiteral("Ton ordinateur"), QString(), machine));

    QVBoxLayout* c2 = addCard(v, QStringLiteral("Statistiques"));
    auto* wpm = new QSpinBox;
    wpm->setObjectName(QStringLiteral("typingWPM"));
    wpm->setRange(5, 250);
    wpm->setButtonSymbols(QAbstractSpinBox::NoButtons);
    wpm->setAlignment(Qt::AlignRight);
    wpm->setSuffix(QStringLiteral(" mots/min"));
    wpm->setValue(settings_.typingWPM());
    connect(wpm, &QSpinBox::valueChanged, &settings_, &AppSettings::setTypingWPM);
    c2->addWidget(row(QStringLiteral("Ta vitesse de frappe"),
                      QStringLiteral("Sert à calculer le temps gagné"), wpm));

    QVBoxLayout* c3 = addCard(v, QStringLiteral("Clavier et moteurs locaux"));
    addSwitch(c3, "acceptPostedKeysSwitch", settings_, &AppSettings::acceptPostedKeys,
              &AppSettings::setAcceptPostedKeys, QStringLiteral("Bureau à distance"),
              QStringLiteral("Compter les touches envoyées par un autre programme (bureau "
                             "à distance, VNC)"));
    auto server = [&](const char* name, const QString& title, const QString& detail,
                      const QString& value, const std::function<void(const QString&)>& set) {
        auto* field = new QLineEdit(value);
        field->setObjectName(QLatin1String(name));
        field->setMinimumWidth(260);
        connect(field, &QLineEdit::editingFinished, this,
                [field, set] { set(field->text().trimmed()); });
        // "Tester" asks the address in the field whether a server answers there; the answer
        // comes back later, beside the button, and the page stays usable meanwhile.
        auto* test = new QPushButton(QStringLiteral("Tester"));
        test->setObjectName(QLatin1String(name) + QStringLiteral("Test"));
        auto* result = text(QString(), "secondary");
        result->setObjectName(QLatin1String(name) + QStringLiteral("Result"));
        result->setWordWrap(false);
        connect(test, &QPushButton::clicked, this, [field, test, result, set] {
            const QString address = field->text().trimmed();
            set(address);
            if (address.isEmpty()) {
                result->setText(QStringLiteral("Aucune adresse"));
                return;
            }
            test->setEnabled(false);
            result->setText(QStringLiteral("Test…"));
            [](QString address, QPointer<QPushButton> test,
               QPointer<QLabel> result) -> QCoro::Task<void> {
                const bool ok = co_await LocalServers::answers(address);
                if (test) test->setEnabled(true);
                if (result)
                    result->setText(ok ? QStringLiteral("Le serveur répond")
                                       : QStringLiteral("Le serveur ne répond pas"));
            }(address, test, result);
        });
        auto* control = new QWidget;
        auto* h = new QHBoxLayout(control);
        h->setContentsMargins(0, 0, 0, 0);
        h->addWidget(result);
        h->addWidget(field);
        h->addWidget(test);
        c3->addWidget(row(title, detail, control));
    };
    server("localSpeechServer", QStringLiteral("Serveur de transcription local"),
           QStringLiteral("Adresse d'un serveur compatible Whisper ; vide : pocketsphinx"),
           settings_.localSpeechServer(),
           [this](const QString& v) { settings_.setLocalSpeechServer(v); });
    server(
        "localModelServer", QStringLiteral("Serveur de modèle local"),
        QStringLiteral("Adresse d'un serveur de discussion compatible OpenAI (llama.cpp, Ollama)"),
        settings_.localModelServer(),
        [this](const QString& v) { settings_.setLocalModelServer(v); });

    QVBoxLayout* c4 = addCard(v, QStringLiteral("Aide"));
    auto* exportLog = new QPushButton(QStringLiteral("Exporter…"));
    exportLog->setObjectName(QStringLiteral("exportLog"));
    connect(exportLog, &QPushButton::clicked, this, [this] {
        const QString path = askLogPath ? askLogPath(this) : QString();
        if (path.isEmpty()) return;
        Log::sync();
        QFile::remove(path);
        QFile::copy(Log::url(), path);
    });
    c4->addWidget(row(QStringLiteral("Journal pour le support"),
                      QStringLiteral("Sans aucun texte dicté ni aucune clé"), exportLog));
    auto* erase = new QPushButton(QStringLiteral("Tout effacer…"));
    erase->setObjectName(QStringLiteral("eraseButton"));
    connect(erase, &QPushButton::clicked, this, [this, erase] {
        if (!confirmErase || !confirmErase(this)) return;
        Store::shared().eraseEverything();
        erase->setText(QStringLiteral("Effacé"));
        erase->setEnabled(false);
    });
    c4->addWidget(row(
        QStringLiteral("Effacer mes données"),
        QStringLiteral("Historique, dictionnaire, réunions et audios de cet ordinateur"), erase));

    v->addWidget(
        text(QStringLiteral("Ombry Voice %1").arg(QStringLiteral(OMBRY_VERSION)), "secondary"), 0,
        Qt::AlignHCenter);
    v->addStretch();
    return PageLook::scrolled(page);
}

} // namespace ombry
