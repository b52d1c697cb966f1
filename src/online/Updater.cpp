#include "online/Updater.h"

#include "desktop/Log.h"
#include "desktop/Notify.h"
#include "net/Endpoints.h"
#include "net/Errors.h"
#include "net/Http.h"
#include "net/Json.h"
#include "net/Net.h"
#include "online/BuildInfo.h"
#include "online/UpdatePackage.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QCoroFuture>
#include <QCoroNetworkReply>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFuture>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSysInfo>
#include <QTemporaryFile>
#include <QUuid>
#include <QtConcurrent/QtConcurrentRun>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

namespace ombry {

namespace {

const QString kRefused = QStringLiteral("Téléchargement refusé par le site.");
const QString kNoLink = QStringLiteral("Lien de téléchargement absent.");
const QString kNoProgram = QStringLiteral("Le fichier téléchargé ne contient pas l'appli.");
const QString kBadSignature =
    QStringLiteral("La signature de la nouvelle version n'est pas valide.");

constexpr double kDownloadTimeoutSeconds = 60.0;
// Larger than any release; a download that grows past it is refused.
constexpr qint64 kMaxDownloadBytes = qint64(1) << 30;
constexpr qint64 kMaxSignatureBytes = 4096;

// Fetches `url` into `into`. The status of the answer (0 when it is not HTTP); the body is
// written only for a 200. A transfer that fails once the answer has begun throws
// TransportError, and so does a request that gets no answer.
QCoro::Task<int> fetch(QUrl url, QIODevice* into, qint64 maxBytes) {
    QNetworkRequest request = Net::request(url, kDownloadTimeoutSeconds);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    const bool credential = request.hasRawHeader("Authorization") || !url.userInfo().isEmpty();
    std::unique_ptr<QNetworkReply, void (*)(QNetworkReply*)> reply(
        Net::session()->get(request), [](QNetworkReply* r) { r->deleteLater(); });
    qint64 received = 0;
    bool tooLarge = false;
    bool writeFailed = false;
    QNetworkReply* const r = reply.get();
    // A refused redirect ends the reply with its 3xx status.
    QObject::connect(r, &QNetworkReply::redirected, r, [r, url, credential](const QUrl& to) {
        if (Updater::downloadMayFollow(url, url.resolved(to), credential))
            Q_EMIT r->redirectAllowed();
        else
            r->abort();
    });
    const QMetaObject::Connection reading = QObject::connect(r, &QNetworkReply::readyRead, r, [&] {
        const QByteArray chunk = r->readAll();
        if (r->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 200) return;
        received += chunk.size();
        if (received > maxBytes) {
            tooLarge = true;
            r->abort();
            return;
        }
        if (into->write(chunk) != chunk.size()) {
            writeFailed = true;
            r->abort();
        }
    });
    co_await r;
    QObject::disconnect(reading);

    const QVariant status = r->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const QNetworkReply::NetworkError error = r->error();
    if (!status.isValid()) {
        if (error == QNetworkReply::ProtocolFailure || error == QNetworkReply::ProtocolUnknownError)
            co_return 0;
        throw TransportError(r->errorString(), error == QNetworkReply::OperationCanceledError);
    }
    if (status.toInt() != 200) co_return status.toInt();
    if (tooLarge) throw UpdateFail(kRefused);
    if (writeFailed)
        throw UpdateFail(QStringLiteral("Écriture impossible : ") + into->errorString());
    if (error == QNetworkReply::OperationCanceledError) throw TransportError({}, true);
    bool known = false;
    const qint64 announced = r->header(QNetworkRequest::ContentLengthHeader).toLongLong(&known);
    if (error != QNetworkReply::NoError || (known && announced != received))
        throw TransportError(QStringLiteral("téléchargement incomplet"), false);
    co_return 200;
}

// What the install does off the main thread, from the downloaded archive to the swap.
void unpackAndSwap(const QString& archivePath, const QByteArray& signature,
                   const QString& installed, const QString& runningProgram) {
    // Read once: the bytes checked are the bytes unpacked, whatever happens to the file meanwhile.
    QByteArray archive;
    {
        QFile file(archivePath);
        if (!file.open(QIODevice::ReadOnly)) throw UpdateFail(kBadSignature);
        archive = file.readAll();
        if (!UpdatePackage::signatureOK(archive, signature, BuildInfo::updatePublicKey()))
            throw UpdateFail(kBadSignature);
    }
    const QFileInfo installedInfo(installed);
    const QString beside = installedInfo.absolutePath();
    // Unpacked beside the installed program, on its file system, so that the swap is a rename.
    const QString unpacked = QDir(beside).filePath(
        QStringLiteral(".ombry-update-") + QUuid::createUuid().toString(QUuid::WithoutBraces));
    const QString staging = installedInfo.absoluteFilePath() + QStringLiteral(".nouveau");
    struct Cleanup {
        QString path;
        ~Cleanup() { UpdatePackage::removeTree(path); }
    } cleanup{unpacked};

    UpdatePackage::extract(archive, unpacked);
    const QString program = UpdatePackage::findProgram(unpacked);
    if (program.isEmpty()) throw UpdateFail(kNoProgram);
    const QString id = UpdatePackage::identifierOf(program);
    if (id != Updater::identifier && id != Updater::formerIdentifier)
        throw UpdateFail(kBadSignature);
    if (!UpdatePackage::fitsProcessor(program, runningProgram)) throw UpdateFail(kNoProgram);

    UpdatePackage::removeTree(staging);
    if (std::rename(QFile::encodeName(program).constData(),
                    QFile::encodeName(staging).constData()) != 0)
        throw UpdateFail(QStringLiteral("Remplacement impossible : ") +
                         QString::fromLocal8Bit(std::strerror(errno)));
    try {
        UpdatePackage::swapIn(staging, installedInfo.absoluteFilePath());
    } catch (...) {
        UpdatePackage::removeTree(staging);
        throw;
    }
}

// A file name made of the feed's version: no folder separator can come from the feed.
QString safeName(QString version) {
    for (QChar& c : version)
        if (c == QLatin1Char('/') || c == QChar(0)) c = QLatin1Char('_');
    return version;
}

} // namespace

std::optional<Release> Release::fromJson(const QByteArray& body) {
    const QJsonDocument doc = QJsonDocument::fromJson(body);
    if (!doc.isObject()) return std::nullopt;
    const QJsonObject o = doc.object();
    const QJsonValue version = o.value(QLatin1String("version"));
    const std::optional<int64_t> build = Json::integer64(o.value(QLatin1String("build")));
    const QJsonValue notes = o.value(QLatin1String("notes"));
    const QJsonValue page = o.value(QLatin1String("page"));
    const QJsonValue downloads = o.value(QLatin1String("downloads"));
    if (!version.isString() || !build || !notes.isArray() || !page.isString() ||
        !downloads.isObject())
        return std::nullopt;
    Release release;
    release.version = version.toString();
    release.build = *build;
    for (const QJsonValue& line : notes.toArray()) {
        if (!line.isString()) return std::nullopt;
        release.notes << line.toString();
    }
    release.page = page.toString();
    const QJsonObject links = downloads.toObject();
    for (auto it = links.constBegin(); it != links.constEnd(); ++it) {
        if (!it.value().isString()) return std::nullopt;
        release.downloads.insert(it.key(), it.value().toString());
    }
    return release;
}

Updater::Updater(QObject* parent) : QObject(parent), relaunch_(&Updater::relaunchDetached) {}

Updater& Updater::shared() {
    static Updater* instance = [] {
        auto* updater = new Updater;
        // Its fields belong to the main thread, whichever thread asks first.
        if (QCoreApplication* app = QCoreApplication::instance())
            updater->moveToThread(app->thread());
        return updater;
    }();
    return *instance;
}

void Updater::setAvailable(std::optional<Release> release) {
    available_ = std::move(release);
    Q_EMIT availableChanged();
}

void Updater::setInstalling(bool installing) {
    installing_ = installing;
    Q_EMIT installingChanged();
}

void Updater::setError(std::optional<QString> error) {
    error_ = std::move(error);
    Q_EMIT errorChanged();
}

void Updater::setDismissed(bool dismissed) {
    dismissed_ = dismissed;
    Q_EMIT dismissedChanged();
}

int64_t Updater::currentBuild() {
    bool ok = false;
    const int64_t build = BuildInfo::buildNumberText().trimmed().toLongLong(&ok);
    return ok ? build : 0;
}

QString Updater::processorKey() {
    return QSysInfo::buildCpuArchitecture();
}

void Updater::start() {
    if (timer_) return;
    timer_ = std::make_unique<QTimer>();
    timer_->setInterval(kCheckIntervalSeconds * 1000);
    connect(timer_.get(), &QTimer::timeout, this, [this] { checkAndOffer(); });
    checkAndOffer();
    timer_->start();
}

QCoro::Task<void> Updater::checkAndOffer() {
    const bool wanted = co_await check();
    if (!wanted || !available_) co_return;
    // One notification for each new build, however many days it stays on offer.
    if (offeredBuild_ == available_->build) co_return;
    offeredBuild_ = available_->build;
    Notify::post(QStringLiteral("Mise à jour disponible"),
                 QStringLiteral("Ombry Voice %1 est disponible").arg(available_->version));
}

QCoro::Task<bool> Updater::check() {
    const QUrl url = Endpoints::siteURL(QStringLiteral("api/updates?app=") + appKey);
    if (url.isEmpty() || !url.isValid()) co_return false;
    std::optional<Release> release;
    try {
        const Http::Headers none;
        const Http::Reply reply =
            co_await Http::send("GET", url, QByteArray(), none, kFeedTimeoutSeconds);
        if (reply.status != 200) co_return false;
        release = Release::fromJson(reply.body);
    } catch (const std::exception&) {
        co_return false;
    }
    if (!release) co_return false;
    const bool wanted = currentBuild() < release->build;
    if (wanted) Log::write(QStringLiteral("mise à jour disponible : ") + release->version);
    setAvailable(wanted ? release : std::nullopt);
    co_return wanted;
}

QString Updater::installedFolder() const {
    if (!installedOverride_.isEmpty()) return installedOverride_;
    const QString folder = UpdatePackage::programFolderOf(QCoreApplication::applicationFilePath());
    if (folder.isEmpty()) return {};
    const QString id = UpdatePackage::identifierOf(folder);
    if (id != identifier && id != formerIdentifier) return {};
    return folder;
}

bool Updater::downloadMayFollow(const QUrl& from, const QUrl& to, bool carriesCredential) {
    const auto port = [](const QUrl& u) {
        return u.port(u.scheme() == QLatin1String("https") ? 443 : 80);
    };
    const bool sameOrigin =
        from.scheme() == to.scheme() && from.host() == to.host() && port(from) == port(to);
    return sameOrigin || (to.scheme() == QLatin1String("https") && !carriesCredential);
}

QString Updater::manualUpdateText(const QString& executable) {
    const QString path = QDir::cleanPath(executable);
    if (path.startsWith(QLatin1String("/usr/")) && !path.startsWith(QLatin1String("/usr/local/")))
        return QStringLiteral("Cette copie vient du gestionnaire de paquets du système : "
                              "mets-la à jour avec lui.");
    return QStringLiteral("Cette copie a été compilée ou installée à la main : mets-la à jour "
                          "depuis ses sources.");
}

std::optional<QString> Updater::manualUpdate() const {
    if (!installedFolder().isEmpty()) return std::nullopt;
    return manualUpdateText(QCoreApplication::applicationFilePath());
}

QCoro::Task<void> Updater::install() {
    if (!available_) co_return;
    setInstalling(true);
    setError(std::nullopt);
    co_await runInstall(*available_);
    setInstalling(false);
}

QCoro::Task<void> Updater::runInstall(Release release) {
    try {
        const QString installed = installedFolder();
        if (installed.isEmpty()) throw UpdateFail(*manualUpdate());

        const QString link = release.downloads.value(processorKey());
        const QUrl given(link, QUrl::StrictMode);
        if (link.isEmpty() || !given.isValid()) throw UpdateFail(kNoLink);
        if (given.scheme() != QLatin1String("https")) throw UpdateFail(kRefused);
        // Only the path is kept: a release is fetched from the product site's own host,
        // whatever host the feed names.
        if (!Endpoints::siteIsValid()) throw UpdateFail(kRefused);
        QUrl pathOnly;
        pathOnly.setPath(given.path(QUrl::FullyEncoded), QUrl::TolerantMode);
        const QUrl source = QUrl(Endpoints::site() + QLatin1Char('/')).resolved(pathOnly);
        if (!source.isValid() || source.path().isEmpty() || given.path().isEmpty())
            throw UpdateFail(kRefused);
        QUrl signatureSource = source;
        signatureSource.setPath(source.path(QUrl::FullyEncoded) + QStringLiteral(".sig"),
                                QUrl::TolerantMode);

        QTemporaryFile download(QDir::temp().filePath(QStringLiteral("ombry-download-XXXXXX")));
        if (!download.open())
            throw UpdateFail(QStringLiteral("Écriture impossible : ") + download.errorString());
        const int archiveStatus = co_await fetch(source, &download, kMaxDownloadBytes);
        if (archiveStatus != 200 || !download.flush()) throw UpdateFail(kRefused);
        QBuffer signature;
        signature.open(QIODevice::WriteOnly);
        const int signatureStatus = co_await fetch(signatureSource, &signature, kMaxSignatureBytes);
        if (signatureStatus != 200) throw UpdateFail(kRefused);

        // The archive stays in the temporary folder after the install, as downloaded.
        const QString archive = QDir::temp().filePath(
            QStringLiteral("OmbryVoice-%1.tar.gz").arg(safeName(release.version)));
        QFile::remove(archive);
        if (!download.rename(archive))
            throw UpdateFail(QStringLiteral("Écriture impossible : ") + download.errorString());
        download.setAutoRemove(false);
        download.close();

        const QString running = QCoreApplication::applicationFilePath();
        // Off the main thread; what the work throws is thrown here.
        QFuture<std::exception_ptr> unpacking =
            QtConcurrent::run([archive, signature = signature.data(), installed, running] {
                try {
                    unpackAndSwap(archive, signature, installed, running);
                    return std::exception_ptr();
                } catch (...) {
                    return std::current_exception();
                }
            });
        const std::exception_ptr failure = co_await unpacking;
        if (failure) std::rethrow_exception(failure);

        Log::write(QStringLiteral("mise à jour installée : ") + release.version);
        if (relaunch_) relaunch_(installed);
    } catch (const std::exception& e) {
        const auto* known = dynamic_cast<const Error*>(&e);
        const QString message = known ? known->description() : QString::fromUtf8(e.what());
        Log::write(QStringLiteral("mise à jour : échec (") + message + QLatin1Char(')'));
        setError(message);
    }
}

void Updater::relaunchDetached(const QString& programFolder) {
    // The shell outlives this process: a second later, and once this process has ended (for at
    // most half a minute more), it starts the new program, so that the new one never meets the
    // old one still running.
    QProcess::startDetached(
        QStringLiteral("/bin/sh"),
        {QStringLiteral("-c"),
         QStringLiteral("sleep 1; i=0; while kill -0 \"$1\" 2>/dev/null && [ $i -lt 150 ]; do "
                        "sleep 0.2; i=$((i+1)); done; exec \"$0\""),
         QDir(programFolder).filePath(UpdatePackage::kExecutable),
         QString::number(QCoreApplication::applicationPid())});
    QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit,
                              Qt::QueuedConnection);
}

} // namespace ombry
