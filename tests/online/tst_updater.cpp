// The updater against a local server playing the product site: archives made and signed here
// with the key pair this test was built to trust; the installed program is a folder of the
// test's own, compared byte for byte after every refused update.
#include "Await.h"
#include "FakePlatform.h"
#include "TestHttpServer.h"

#include "online/UpdatePackage.h"
#include "online/Updater.h"

#include <QDirIterator>
#include <QJsonArray>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <archive.h>
#include <archive_entry.h>
#include <openssl/evp.h>

#include <memory>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

using namespace ombry;
using namespace ombry::test;

namespace {

const QString kFeed = QStringLiteral("/api/updates");
const QString kArchivePath = QStringLiteral("/files/ombry-voice.tar.gz");
const QString kBadSignature =
    QStringLiteral("La signature de la nouvelle version n'est pas valide.");
const QString kNoProgram = QStringLiteral("Le fichier téléchargé ne contient pas l'appli.");
const QString kRefused = QStringLiteral("Téléchargement refusé par le site.");

// ---- keys ----

using KeyPtr = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;

KeyPtr trustedKey() {
    const QByteArray seed = QByteArray::fromHex(OMBRY_TEST_UPDATE_SEED_HEX);
    return KeyPtr(
        EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr,
                                     reinterpret_cast<const unsigned char*>(seed.constData()), 32),
        EVP_PKEY_free);
}

KeyPtr freshKey() {
    EVP_PKEY* key = nullptr;
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_id(EVP_PKEY_ED25519, nullptr);
    EVP_PKEY_keygen_init(ctx);
    EVP_PKEY_keygen(ctx, &key);
    EVP_PKEY_CTX_free(ctx);
    return KeyPtr(key, EVP_PKEY_free);
}

QByteArray sign(EVP_PKEY* key, const QByteArray& data) {
    QByteArray signature(64, 0);
    size_t size = 64;
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    EVP_DigestSignInit(ctx, nullptr, nullptr, nullptr, key);
    EVP_DigestSign(ctx, reinterpret_cast<unsigned char*>(signature.data()), &size,
                   reinterpret_cast<const unsigned char*>(data.constData()), size_t(data.size()));
    EVP_MD_CTX_free(ctx);
    return signature;
}

// ---- archives ----

struct Member {
    QByteArray name;
    char type = 'f'; // f file, d folder, l symbolic link, h hard link, c character device
    QByteArray data; // a file's bytes, a link's target
    int mode = 0644;
};

QByteArray tarGz(const QList<Member>& members) {
    QByteArray out;
    archive* a = archive_write_new();
    archive_write_add_filter_gzip(a);
    archive_write_set_format_pax_restricted(a);
    archive_write_open(
        a, &out, nullptr,
        [](archive*, void* sink, const void* buffer, size_t length) -> la_ssize_t {
            static_cast<QByteArray*>(sink)->append(static_cast<const char*>(buffer),
                                                   qsizetype(length));
            return la_ssize_t(length);
        },
        nullptr);
    for (const Member& m : members) {
        archive_entry* e = archive_entry_new();
        archive_entry_set_pathname(e, m.name.constData());
        archive_entry_set_perm(e, m.mode);
        archive_entry_set_filetype(e, m.type == 'd'   ? AE_IFDIR
                                      : m.type == 'l' ? AE_IFLNK
                                      : m.type == 'c' ? AE_IFCHR
                                                      : AE_IFREG);
        if (m.type == 'l') archive_entry_set_symlink(e, m.data.constData());
        if (m.type == 'h') archive_entry_set_hardlink(e, m.data.constData());
        if (m.type == 'c') archive_entry_set_rdev(e, makedev(1, 3));
        if (m.type == 'f') archive_entry_set_size(e, m.data.size());
        archive_write_header(a, e);
        if (m.type == 'f') archive_write_data(a, m.data.constData(), size_t(m.data.size()));
        archive_entry_free(e);
    }
    archive_write_close(a);
    archive_write_free(a);
    return out;
}

// The first bytes of this test program: an ELF header for the processor it runs on.
QByteArray ownElfHeader() {
    QFile self(QCoreApplication::applicationFilePath());
    self.open(QIODevice::ReadOnly);
    return self.read(64);
}

QByteArray foreignElfHeader() {
    QByteArray header = ownElfHeader();
    // e_machine of another processor: AArch64 (183) here, x86-64 (62) on an AArch64 machine.
    const bool aarch64 = quint8(header[18]) == 183;
    header[18] = char(aarch64 ? 62 : 183);
    header[19] = 0;
    return header;
}

// A release folder "Ombry Voice" whose program, when started, writes where it was started
// from into `marker`.
QList<Member> release(const QString& marker, const QByteArray& helper = ownElfHeader()) {
    return {
        {"Ombry Voice/", 'd', {}, 0755},
        {"Ombry Voice/bin/ombry-voice", 'f', "#!/bin/sh\necho \"$0\" > '" + marker.toUtf8() + "'\n",
         0755},
        {"Ombry Voice/identifier", 'f', "com.quennard.ombryvoice\n"},
        {"Ombry Voice/lib/ombry-helper", 'f', helper, 0755},
        {"Ombry Voice/lib/libombry.so", 'l', "ombry-helper", 0777},
        {"Ombry Voice/share/notes.txt", 'f', "version deux\n"},
    };
}

// ---- folders ----

// Every entry under `folder` (links not followed): its kind, mode and bytes or target.
QMap<QString, QByteArray> snapshot(const QString& folder) {
    QMap<QString, QByteArray> out;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QByteArray name = QFile::encodeName(path);
        const QString key = QDir(folder).relativeFilePath(path);
        struct stat st {};
        ::lstat(name.constData(), &st);
        const QByteArray mode = QByteArray::number(st.st_mode & 07777, 8);
        if (S_ISLNK(st.st_mode)) {
            char target[4096];
            const ssize_t n = ::readlink(name.constData(), target, sizeof target);
            out[key] = "link " + QByteArray(target, n < 0 ? 0 : qsizetype(n));
        } else if (S_ISDIR(st.st_mode)) {
            out[key] = "folder " + mode;
        } else {
            QFile file(path);
            file.open(QIODevice::ReadOnly);
            out[key] = "file " + mode + " " + file.readAll();
        }
    }
    return out;
}

QStringList entries(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

void writeFile(const QString& path, const QByteArray& bytes,
               QFileDevice::Permissions permissions = QFileDevice::ReadOwner |
                                                      QFileDevice::WriteOwner) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
    file.close();
    file.setPermissions(permissions);
}

} // namespace

class TstUpdater : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer site;
    Updater& updater = Updater::shared();
    KeyPtr key = trustedKey();
    const QString systemTemp = QDir::tempPath();
    std::unique_ptr<QTemporaryDir> place;
    QString installed;
    QStringList relaunched;

    QString marker() const { return place->filePath(QStringLiteral("started-from")); }

    // The feed offers a release `ahead` builds from this one, to download from `link`.
    void serveFeed(int64_t ahead,
                   const QString& link = QStringLiteral("https://cdn.example.org") + kArchivePath,
                   const QString& processor = Updater::processorKey()) {
        site.on(kFeed, Reply::json(QJsonObject{
                           {"version", "9.9"},
                           {"build", qint64(Updater::currentBuild() + ahead)},
                           {"notes", QJsonArray{"Plus rapide", "Moins de bruit"}},
                           {"page", "https://ombry.example/notes/9.9"},
                           {"downloads", QJsonObject{{processor, link}}},
                       }));
    }
    void serveArchive(const QByteArray& archive, const QByteArray& signature) {
        site.on(kArchivePath, Reply::text(archive));
        site.on(kArchivePath + QStringLiteral(".sig"), Reply::text(signature));
    }
    // Checks, installs, and gives the installation's error.
    QString checkAndInstall() {
        if (!await(updater.check())) return QStringLiteral("(pas d'offre)");
        await(updater.install());
        [&] { QVERIFY(!updater.installing()); }();
        return updater.error().value_or(QString());
    }

private Q_SLOTS:
    void initTestCase() {
        updater.setRelaunch([this](const QString& folder) { relaunched << folder; });
    }

    void init() {
        site.reset();
        qputenv("OMBRY_SITE_URL", site.url().toString().toUtf8());
        place = std::make_unique<QTemporaryDir>(systemTemp + "/tst_updater-XXXXXX");
        QDir(place->path()).mkdir("tmp");
        qputenv("TMPDIR", place->filePath("tmp").toUtf8());
        installed = place->filePath(QStringLiteral("programs/Ombry Voice"));
        writeFile(installed + "/bin/ombry-voice", "#!/bin/sh\necho version un\n",
                  QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        writeFile(installed + "/identifier", "com.quennard.ombryvoice\n");
        writeFile(installed + "/share/notes.txt", "version un\n");
        QFile::link("notes.txt", installed + "/share/latest.txt");
        updater.setInstalledFolder(installed);
        relaunched.clear();
    }

    void feedDecidesTheOffer() {
        serveFeed(1);
        QVERIFY(await(updater.check()));
        QCOMPARE(site.last().path, kFeed);
        QCOMPARE(site.last().queryValues("app"), QStringList{"voice"});
        QCOMPARE(updater.available()->version, QStringLiteral("9.9"));
        QCOMPARE(updater.available()->notes, (QStringList{"Plus rapide", "Moins de bruit"}));

        // A failing check leaves the offer as it was: a missing member, an error status, a
        // site that does not answer.
        const QJsonObject noNotes{{"version", "10"},
                                  {"build", qint64(Updater::currentBuild() + 5)},
                                  {"page", "p"},
                                  {"downloads", QJsonObject{}}};
        for (const Reply& failure : {Reply::json(noNotes), Reply::text("panne", 500),
                                     Reply::dropped(), Reply::json(QByteArray("[]"))}) {
            site.on(kFeed, failure);
            QVERIFY(!await(updater.check()));
            QCOMPARE(updater.available()->version, QStringLiteral("9.9"));
        }

        // The same build is no update, whatever the version says; a lower one clears the offer.
        serveFeed(0);
        QVERIFY(!await(updater.check()));
        QVERIFY(!updater.available());
        serveFeed(1);
        QVERIFY(await(updater.check()));
        serveFeed(-1);
        QVERIFY(!await(updater.check()));
        QVERIFY(!updater.available());

        // Build numbers go beyond 32 bits (a date and a time, say).
        serveFeed(int64_t(202611241830) - Updater::currentBuild());
        QVERIFY(await(updater.check()));
        QCOMPARE(updater.available()->build, int64_t(202611241830));

        // No site, no question asked.
        const int asked = site.count();
        qputenv("OMBRY_SITE_URL", "");
        QVERIFY(!await(updater.check()));
        QCOMPARE(site.count(), asked);
    }

    void installSwapsInTheNewProgram() {
        serveFeed(1);
        // The site sends the archive's download on to a CDN, over https.
        const QByteArray archive = tarGz(release(marker()));
        serveArchive("", sign(key.get(), archive));
        TestHttpServer cdn(TestHttpServer::Scheme::Https);
        cdn.on(QStringLiteral("/a.tar.gz"), Reply::text(archive));
        Reply moved = Reply::text("", 302);
        moved.headers.append({"Location", cdn.url().toEncoded() + "/a.tar.gz"});
        site.on(kArchivePath, moved);
        // What a former attempt left is replaced.
        writeFile(installed + ".nouveau/identifier", "ancien essai");
        // The offer shows the installation under way, then its end.
        QList<bool> installing;
        connect(&updater, &Updater::installingChanged, this,
                [&] { installing << updater.installing(); });
        QCOMPARE(checkAndInstall(), QString());
        disconnect(&updater, &Updater::installingChanged, this, nullptr);
        QCOMPARE(installing, (QList<bool>{true, false}));

        // Fetched from the product site under the feed's path, then from where it sent it on.
        QCOMPARE(site.requests(kArchivePath).size(), 1);
        QCOMPARE(cdn.requests("/a.tar.gz").size(), 1);
        const QMap<QString, QByteArray> now = snapshot(installed);
        QCOMPARE(now.value("identifier"), "file 644 com.quennard.ombryvoice\n");
        QCOMPARE(now.value("share/notes.txt"), "file 644 version deux\n");
        QCOMPARE(now.value("lib/libombry.so"), "link ombry-helper");
        QVERIFY(now.value("bin/ombry-voice").startsWith("file 755 #!/bin/sh"));
        QVERIFY(!now.contains("share/latest.txt"));
        // Nothing is left beside the program; the download stays in the test's own folder.
        QCOMPARE(entries(place->filePath("programs")), QStringList{"Ombry Voice"});
        QCOMPARE(relaunched, QStringList{installed});
        QCOMPARE(QDir(place->filePath("tmp")).entryList(QDir::Files),
                 QStringList{"OmbryVoice-9.9.tar.gz"});

        // Without an exchange of names, the entry point becomes a link to the new program inside
        // the installed folder in one rename, and knows that folder; the former version goes.
        const UpdatePackage::ExchangeFn noExchange = [](const char*, const char*) {
            errno = EINVAL;
            return -1;
        };
        const QString entry = installed + "/bin/ombry-voice";
        for (const QByteArray version : {"trois", "quatre"}) {
            writeFile(installed + ".nouveau/bin/ombry-voice", "#!/bin/sh\necho " + version + "\n",
                      QFileDevice::ReadOwner | QFileDevice::ExeOwner);
            writeFile(installed + ".nouveau/identifier", "com.quennard.ombryvoice\n");
            UpdatePackage::swapIn(installed + ".nouveau", installed, noExchange);
            QFile started(entry);
            QVERIFY(QFileInfo(entry).isSymLink() && started.open(QIODevice::ReadOnly));
            QCOMPARE(started.readAll(), "#!/bin/sh\necho " + version + "\n");
            QCOMPARE(UpdatePackage::programFolderOf(QFileInfo(entry).canonicalFilePath()),
                     installed);
        }
        const QStringList left = entries(installed);
        QCOMPARE(left.size(), 3);
        QVERIFY(left.contains("bin") && left.contains("identifier"));
        QCOMPARE(QDir(installed + "/bin").entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList{"ombry-voice"});
        QVERIFY(!QFileInfo::exists(installed + ".nouveau"));
    }

    void refusedUpdatesLeaveTheProgramUntouched_data() {
        QTest::addColumn<QByteArray>("archive");
        QTest::addColumn<QByteArray>("signature");
        QTest::addColumn<QString>("expected"); // empty: an unreadable archive
        const auto good = release(marker());
        const QByteArray archive = tarGz(good);
        auto otherProgram = good;
        otherProgram[2].data = "org.example.other\n";
        const auto row = [](const char* name, const QByteArray& bytes, const QByteArray& signature,
                            const QString& expected) {
            QTest::newRow(name) << bytes << signature << expected;
        };
        const auto signedRow = [&](const char* name, const QList<Member>& members,
                                   const QString& expected) {
            const QByteArray bytes = tarGz(members);
            row(name, bytes, sign(key.get(), bytes), expected);
        };
        // The good release with more members, refused as `why`.
        const auto extra = [&](const char* name, const QList<Member>& more, const QString& why) {
            signedRow(name, good + more, "archive : " + why);
        };
        row("signed by another key", archive, sign(freshKey().get(), archive), kBadSignature);
        row("signature of other bytes", archive, sign(key.get(), archive + "x"), kBadSignature);
        row("signature cut short", archive, sign(key.get(), archive).left(40), kBadSignature);
        row("not an archive", "bonjour", sign(key.get(), "bonjour"), QString());
        signedRow("another processor", release(marker(), foreignElfHeader()), kNoProgram);
        signedRow("no program inside",
                  {{"Ombry Voice/", 'd', {}}, {"Ombry Voice/identifier", 'f', "x"}}, kNoProgram);
        signedRow("another program", otherProgram, kBadSignature);
        extra("name climbing out", {{"../../evil", 'f', "x"}},
              "chemin hors du dossier refusé (../../evil)");
        // However long the name, the message says at most 120 characters of it.
        extra("long name climbing out", {{"../" + QByteArray(300, 'a'), 'f', "x"}},
              "chemin hors du dossier refusé (../" + QString(117, 'a') + ")");
        extra("absolute name", {{"/tmp/ombry-evil", 'f', "x"}},
              "chemin absolu refusé (/tmp/ombry-evil)");
        extra("link pointing out", {{"Ombry Voice/lib/out", 'l', "../../.."}},
              "lien vers l'extérieur refusé (Ombry Voice/lib/out -> ../../..)");
        extra("link to an absolute path", {{"Ombry Voice/etc", 'l', "/etc"}},
              "lien vers l'extérieur refusé (Ombry Voice/etc -> /etc)");
        // Each link stays inside by its name alone, but ".." after the first one climbs from
        // that link's target: out of the folder.
        extra("links chained out",
              {{"Ombry Voice/up", 'l', ".."}, {"Ombry Voice/out", 'l', "up/.."}},
              "lien qui passe par un lien refusé (Ombry Voice/out -> up/..)");
        extra("file written through a link",
              {{"Ombry Voice/tmp", 'l', "share"}, {"Ombry Voice/tmp/x", 'f', "x"}},
              "chemin qui passe par un lien refusé (Ombry Voice/tmp/x)");
        extra("file under a file", {{"Ombry Voice/identifier/x", 'f', "x"}},
              "chemin qui passe par un fichier refusé (Ombry Voice/identifier/x)");
        extra("hard link", {{"Ombry Voice/h", 'h', "/etc/passwd"}},
              "lien physique refusé (Ombry Voice/h)");
        extra("device", {{"Ombry Voice/null", 'c', {}}},
              "type de fichier refusé (Ombry Voice/null)");
        extra("same name twice", {{"Ombry Voice/identifier", 'f', {}}},
              "nom en double (Ombry Voice/identifier)");
    }

    void refusedUpdatesLeaveTheProgramUntouched() {
        QFETCH(QByteArray, archive);
        QFETCH(QByteArray, signature);
        QFETCH(QString, expected);
        const QMap<QString, QByteArray> before = snapshot(installed);
        serveFeed(1);
        serveArchive(archive, signature);
        const QString error = checkAndInstall();
        if (expected.isEmpty())
            QVERIFY2(error.startsWith("archive : illisible"), qPrintable(error));
        else
            QCOMPARE(error, expected);
        QCOMPARE(snapshot(installed), before);
        QCOMPARE(entries(place->filePath("programs")), QStringList{"Ombry Voice"});
        QVERIFY(!QFile::exists("/tmp/ombry-evil"));
        QVERIFY(relaunched.isEmpty());
    }

    void refusedDownloadsLeaveTheProgramUntouched() {
        const QMap<QString, QByteArray> before = snapshot(installed);
        const QByteArray archive = tarGz(release(marker()));

        // A download cut in the middle.
        serveFeed(1);
        site.on(kArchivePath, Reply::garbage("HTTP/1.1 200 OK\r\nContent-Length: " +
                                             QByteArray::number(archive.size()) + "\r\n\r\n" +
                                             archive.left(archive.size() / 2)));
        site.on(kArchivePath + ".sig", Reply::text(sign(key.get(), archive)));
        QCOMPARE(checkAndInstall(), QStringLiteral("réseau : téléchargement incomplet"));

        // The site has no such file, or no signature for it.
        site.on(kArchivePath, Reply::text("absent", 404));
        QCOMPARE(checkAndInstall(), kRefused);
        serveArchive(archive, sign(key.get(), archive));
        site.on(kArchivePath + ".sig", Reply::text("absent", 404));
        QCOMPARE(checkAndInstall(), kRefused);

        // Redirected to another host only over https and without a credential (a CDN).
        const QUrl site1("https://ombry.example/f"), cdn("https://cdn.example.org/f");
        QVERIFY(Updater::downloadMayFollow(site1, cdn, false));
        QVERIFY(!Updater::downloadMayFollow(site1, cdn, true));
        QVERIFY(!Updater::downloadMayFollow(site1, QUrl("http://cdn.example.org/f"), false));
        QVERIFY(!Updater::downloadMayFollow(site1, QUrl("http://ombry.example/f"), false));
        QVERIFY(Updater::downloadMayFollow(QUrl("http://h:8/f"), QUrl("http://h:8/g"), true));
        TestHttpServer elsewhere;
        Reply away = Reply::text("", 302);
        away.headers.append({"Location", elsewhere.url().toEncoded() + kArchivePath.toUtf8()});
        site.on(kArchivePath, away);
        QCOMPARE(checkAndInstall(), kRefused);
        QCOMPARE(elsewhere.count(), 0);

        // Addresses refused before anything is fetched.
        site.clearRequests();
        serveFeed(1, "http://ombry.example" + kArchivePath);
        QCOMPARE(checkAndInstall(), kRefused);
        serveFeed(1, "https://ombry.example" + kArchivePath, "sparc");
        QCOMPARE(checkAndInstall(), QStringLiteral("Lien de téléchargement absent."));
        // A program not installed from an archive (as this test's) is never replaced.
        serveFeed(1);
        updater.setInstalledFolder(QString());
        QCOMPARE(checkAndInstall(), *updater.manualUpdate());
        QVERIFY(updater.manualUpdate()->contains(QStringLiteral("à la main")));
        QVERIFY(Updater::manualUpdateText("/usr/bin/ombry-voice")
                    .contains(QStringLiteral("gestionnaire de paquets")));
        updater.setInstalledFolder(installed);
        QCOMPARE(site.requests(kArchivePath).size(), 0);

        QCOMPARE(snapshot(installed), before);
        QVERIFY(relaunched.isEmpty());
    }

    void startChecksOnceAndOffersOnce() {
        serveFeed(2);
        const qsizetype notified = platform.notifier().posted().size();
        QVERIFY(!updater.started());
        updater.start();
        updater.start();
        QTRY_COMPARE(platform.notifier().posted().size(), notified + 1);
        QCOMPARE(site.requests(kFeed).size(), 1);
        QCOMPARE(platform.notifier().posted().last().body,
                 QStringLiteral("Ombry Voice 9.9 est disponible"));
    }

    // `--update` as a process: the program copied into a program folder of the test's own,
    // finding its installed folder from where it runs.
    void updateModeAsAProcess() {
        const QString binary = QStringLiteral(OMBRY_TESTKEY_BINARY);
        QFile::remove(installed + "/bin/ombry-voice");
        QVERIFY(QFile::copy(binary, installed + "/bin/ombry-voice"));
        const auto run = [&] {
            QProcess p;
            QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
            env.insert("OMBRY_SITE_URL", site.url().toString());
            p.setProcessEnvironment(env);
            p.start(installed + "/bin/ombry-voice", {"--update"});
            [&] { QVERIFY(TestHttpServer::runProcess(p, 60000)); }();
            return QString::fromUtf8(p.readAllStandardOutput());
        };

        serveFeed(0);
        QCOMPARE(run(), QStringLiteral("déjà à jour\n"));

        // Signed by another key: refused, the program as it was.
        serveFeed(1);
        const QMap<QString, QByteArray> before = snapshot(installed);
        const QByteArray archive = tarGz(release(marker()));
        serveArchive(archive, sign(freshKey().get(), archive));
        QCOMPARE(run(), "mise à jour 9.9 trouvée, installation…\n" + kBadSignature + "\n");
        QCOMPARE(snapshot(installed), before);

        serveArchive(archive, sign(key.get(), archive));
        QCOMPARE(run(), QStringLiteral("mise à jour 9.9 trouvée, installation…\n\n"));
        QCOMPARE(snapshot(installed).value("share/notes.txt"), "file 644 version deux\n");
        // The new program is started by the shell the old one left behind.
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(marker()), 10000);
        QFile started(marker());
        QVERIFY(started.open(QIODevice::ReadOnly));
        QCOMPARE(started.readAll().trimmed(), (installed + "/bin/ombry-voice").toUtf8());
    }
};

QTEST_GUILESS_MAIN(TstUpdater)
#include "tst_updater.moc"
