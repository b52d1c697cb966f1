#include "online/Credits.h"

#include "data/Settings.h"
#include "desktop/Log.h"
#include "desktop/Notify.h"
#include "net/Endpoints.h"
#include "net/Http.h"
#include "net/Json.h"
#include "online/CreditsConfig.h"
#include "platform/Clock.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <QCoroTimer>
#include <QHostInfo>
#include <QJsonDocument>
#include <QTimer>
#include <algorithm>

namespace ombry {

namespace {

constexpr double kNotifyIntervalSeconds = 86400.0;
constexpr double kSiteTimeoutSeconds = 10.0;
const QString kNotifiedKey = QStringLiteral("lowCreditsNotifiedAt");

// Sleeps `ms` of the platform clock: real time on the system clock, and with a manual clock as
// long as it takes a test to move it on.
QCoro::Task<void> sleepOnClock(int64_t ms) {
    const Clock& clock = Platform::current().clock();
    const int64_t deadline = clock.elapsedMs() + ms;
    for (int64_t left = ms; left > 0; left = deadline - clock.elapsedMs()) {
        QTimer timer;
        timer.setSingleShot(true);
        timer.start(int(std::max<int64_t>(1, clock.maxSleepMs(left))));
        co_await timer;
    }
}

QJsonObject statusRequest() {
    return {{QStringLiteral("app"), QStringLiteral("voice")}};
}

QString computerName() {
    const QString name = QHostInfo::localHostName().trimmed();
    return name.isEmpty() ? QStringLiteral("ordinateur") : name;
}

} // namespace

Credits::Credits(QObject* parent) : QObject(parent) {}

Credits& Credits::shared() {
    static Credits* instance = [] {
        auto* credits = new Credits;
        // Its fields belong to the main thread, whichever thread asks first.
        if (QCoreApplication* app = QCoreApplication::instance())
            credits->moveToThread(app->thread());
        return credits;
    }();
    return *instance;
}

void Credits::setBalance(int credits) {
    balance_ = credits;
    exhausted_ = credits < 1;
    Q_EMIT balanceChanged();
    Q_EMIT exhaustedChanged();
}

void Credits::setLinkedEmail(std::optional<QString> email) {
    linkedEmail_ = std::move(email);
    Q_EMIT linkedEmailChanged();
}

void Credits::setLinking(bool linking) {
    linking_ = linking;
    Q_EMIT linkingChanged();
}

void Credits::update(std::optional<int> credits) {
    QMetaObject::invokeMethod(
        this,
        [this, credits] {
            if (!credits) return;
            setBalance(*credits);
            warnIfLow(*credits);
        },
        Qt::QueuedConnection);
}

void Credits::warnIfLow(int credits) {
    if (credits > 9) return;
    UserDefaults& defaults = AppSettings::shared().defaults();
    const double last = defaults.doubleValue(kNotifiedKey).value_or(0.0);
    const double now = double(Platform::current().clock().now().toMSecsSinceEpoch()) / 1000.0;
    if (!(now - last > kNotifyIntervalSeconds)) return;
    defaults.setValue(kNotifiedKey, now);
    if (credits < 1)
        Notify::post(QStringLiteral("Plus de crédits Ombry"),
                     QStringLiteral("La dictée continue avec Local, sur ton ordinateur."));
    else
        Notify::post(QStringLiteral("Plus que %1 crédits Ombry").arg(credits),
                     QStringLiteral("Recharge depuis Réglages › Compte, en un clic."));
}

QCoro::Task<std::optional<QJsonObject>> Credits::post(QString path, QJsonObject body) {
    const QUrl url = Endpoints::siteURL(path);
    if (url.isEmpty()) co_return std::nullopt;
    try {
        const Http::Headers none;
        const Http::Reply reply = co_await Http::postJson(
            url, CreditsConfig::withIdentity(std::move(body)), none, kSiteTimeoutSeconds);
        if (reply.status != 200) co_return std::nullopt;
        const QJsonDocument doc = QJsonDocument::fromJson(reply.body);
        if (!doc.isObject()) co_return std::nullopt;
        co_return doc.object();
    } catch (const std::exception&) {
        co_return std::nullopt;
    }
}

void Credits::applyStatus(const QJsonObject& answer) {
    if (const std::optional<int> credits = Json::integer(answer.value(QLatin1String("credits"))))
        setBalance(*credits);
    const QJsonValue email = answer.value(QLatin1String("email"));
    setLinkedEmail(email.isString() ? std::optional<QString>(email.toString()) : std::nullopt);
}

QCoro::Task<void> Credits::refresh() {
    const std::optional<QJsonObject> answer =
        co_await post(QStringLiteral("api/link/status"), statusRequest());
    if (answer) applyStatus(*answer);
}

QCoro::Task<void> Credits::link() {
    setLinking(true);
    QJsonObject request = statusRequest();
    request.insert(QStringLiteral("name"), computerName());
    const std::optional<QJsonObject> start =
        co_await post(QStringLiteral("api/link/start"), request);
    const QUrl page(start ? start->value(QLatin1String("url")).toString() : QString(),
                    QUrl::StrictMode);
    if (!page.isValid() || page.scheme().isEmpty()) {
        setLinking(false);
        co_return;
    }
    Platform::current().browser().open(page);
    for (int poll = 0; poll < kLinkPolls; ++poll) {
        co_await sleepOnClock(kLinkPollMs);
        const std::optional<QJsonObject> status =
            co_await post(QStringLiteral("api/link/status"), statusRequest());
        if (!status) continue;
        applyStatus(*status);
        if (linkedEmail_) {
            Log::write(QStringLiteral("compte: ordinateur relié"));
            break;
        }
    }
    setLinking(false);
}

} // namespace ombry
