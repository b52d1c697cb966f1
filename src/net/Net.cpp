#include "net/Net.h"

#include "net/Endpoints.h"
#include "net/Http.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QThread>
#include <exception>
#include <mutex>

namespace ombry::Net {

QNetworkAccessManager* session() {
    static QNetworkAccessManager* manager = nullptr;
    static std::once_flag once;
    std::call_once(once, [] {
        manager = new QNetworkAccessManager;
        manager->setCache(nullptr);
        manager->setAutoDeleteReplies(false);
        if (QCoreApplication* app = QCoreApplication::instance()) {
            if (manager->thread() != app->thread()) manager->moveToThread(app->thread());
            // Gone with the application, before Qt's network internals.
            QObject::connect(app, &QObject::destroyed, [] { delete manager; });
        }
    });
    return manager;
}

QNetworkRequest request(const QUrl& url, double timeoutSeconds) {
    QNetworkRequest r(url);
    r.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    r.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    r.setTransferTimeout(int(timeoutSeconds * 1000.0));
    // A redirect never takes the headers (a key) or the body to another host.
    r.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                   QNetworkRequest::SameOriginRedirectPolicy);
    return r;
}

namespace {

// Through Http::send, so that the HEAD takes one of the host's slots like any other request.
// Nobody awaits the task: it ends by itself, its answer and its failure dropped.
QCoro::Task<void> head(QUrl url) {
    if (!url.isValid()) co_return;
    const Http::Headers none;
    try {
        co_await Http::send("HEAD", url, QByteArray(), none, 60.0);
    } catch (const std::exception&) {
    }
}

void fire() {
    if (Endpoints::siteIsValid())
        head(Endpoints::siteURL(QStringLiteral("api/credits")));
    else
        head(QUrl(Endpoints::openRouter() + QStringLiteral("/api/v1/models?limit=1")));
    head(QUrl(Endpoints::languageTool() + QStringLiteral("/v2/languages")));
}

} // namespace

void warmUp() {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) return;
    if (QThread::currentThread() == app->thread())
        fire();
    else
        QMetaObject::invokeMethod(app, &fire, Qt::QueuedConnection);
}

} // namespace ombry::Net
