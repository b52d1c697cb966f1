#include "views/shell/ShellModel.h"

#include "online/CreditsConfig.h"

#include <QRegularExpression>
#include <pwd.h>
#include <unistd.h>

namespace ombry::ShellModel {

QString statusTitle(DictationController::State state, bool translating, bool meetingRecording) {
    using S = DictationController::State;
    if (meetingRecording) return QStringLiteral("Réunion en cours");
    switch (state) {
    case S::Idle:
        return QStringLiteral("Prêt");
    case S::Recording:
        return QStringLiteral("J'écoute…");
    case S::Processing:
        return QStringLiteral("Mise au propre…");
    case S::Correcting:
        return translating ? QStringLiteral("Traduction…") : QStringLiteral("Correction…");
    }
    return {};
}

QString firstName(const QString& fullName) {
    const QStringList words =
        fullName.split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
    return words.isEmpty() ? QString() : words.first();
}

QString fullUserName() {
    static const QString name = [] {
        if (const passwd* pw = ::getpwuid(::getuid())) {
            const QString gecos =
                QString::fromLocal8Bit(pw->pw_gecos).section(QLatin1Char(','), 0, 0);
            if (!gecos.trimmed().isEmpty()) return gecos.trimmed();
            return QString::fromLocal8Bit(pw->pw_name);
        }
        return qEnvironmentVariable("USER");
    }();
    return name;
}

QString greeting(const QString& fullName) {
    const QString first = firstName(fullName);
    return first.isEmpty() ? QStringLiteral("Salut") : QStringLiteral("Salut %1").arg(first);
}

QString holdKey(const QString& keyLabel) {
    return QStringLiteral("Maintiens %1").arg(keyLabel);
}

std::optional<QString> microphoneAdvice(bool soundServer, bool microphone) {
    if (microphone) return std::nullopt;
    if (!soundServer)
        return QStringLiteral("Le serveur de son ne répond pas : vérifie que PulseAudio ou "
                              "PipeWire tourne, puis réessaie.");
    return QStringLiteral("Aucun micro n'est pris comme entrée : branche-le, puis choisis-le "
                          "dans les Paramètres du système, rubrique Son.");
}

std::optional<UpdateBanner> updateBanner(const std::optional<Release>& available, bool installing,
                                         const std::optional<QString>& error, bool dismissed,
                                         const std::optional<QString>& manual) {
    if (!available || dismissed) return std::nullopt;
    UpdateBanner b;
    b.title = QStringLiteral("Ombry Voice %1 est disponible").arg(available->version);
    b.install = installing ? QStringLiteral("Installation…") : QStringLiteral("Mettre à jour");
    b.installEnabled = !installing;
    b.error = error;
    b.manual = manual;
    b.notes = available->notes;
    b.page = available->page;
    return b;
}

std::optional<CreditsBanner> creditsBanner(bool usesCredits, std::optional<int> balance,
                                           double dismissedAt, double now) {
    if (!usesCredits || !balance || *balance > 9) return std::nullopt;
    if (now - dismissedAt <= kBannerQuietSeconds) return std::nullopt;
    CreditsBanner b;
    const int n = *balance;
    if (n < 1) {
        b.title = QStringLiteral("Plus de crédits Ombry");
        b.text = QStringLiteral("La dictée continue avec Local, sur ton ordinateur. Recharge pour "
                                "retrouver Ombry IA.");
    } else {
        b.title = QStringLiteral("Plus que %1 crédit%2 Ombry")
                      .arg(n)
                      .arg(n == 1 ? QString() : QStringLiteral("s"));
        b.text = QStringLiteral("Environ %1 minutes de dictée.").arg(kMinutesPerCredit * n);
    }
    const CreditsConfig::Pack& pack = CreditsConfig::packs().first();
    b.button = QStringLiteral("%1 crédits · %2").arg(pack.credits).arg(pack.price);
    return b;
}

QString Onboarding::counter() const {
    return QStringLiteral("%1 sur %2").arg(step_ + 1).arg(kSteps);
}

QString Onboarding::nextTitle() const {
    return step_ == kSteps - 1 ? QStringLiteral("Commencer") : QStringLiteral("Continuer");
}

bool Onboarding::next() {
    if (step_ == kSteps - 1) return true;
    ++step_;
    return false;
}

void Onboarding::back() {
    if (step_ > 0) --step_;
}

} // namespace ombry::ShellModel
