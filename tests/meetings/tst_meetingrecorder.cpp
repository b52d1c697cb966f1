// The meeting recorder over minutes of generated speech against a server playing the models:
// pieces sent while recording, meetings filed whatever fails, what is pending finished later.
#include "../calls/SentAudio.h"
#include "Await.h"
#include "FakePlatform.h"
#include "SoundServer.h"
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "data/KeyStore.h"
#include "data/Settings.h"
#include "data/Store.h"
#include "desktop/Log.h"
#include "meetings/MeetingRecorder.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScopeGuard>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace ombry;
using namespace ombry::test;
using Kind = MeetingRecorder::State::Kind;

namespace {

constexpr int64_t kSecond = 32000;

unsigned modeOf(const QString& path) {
    struct stat st {};
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_mode & 0777 : 0;
}

} // namespace

class TstMeetingRecorder : public QObject {
    Q_OBJECT
    FakePlatform platform;
    TestHttpServer server;
    QTemporaryDir dir;
    QByteArray speech; // about 20 s of English sentences with pauses between them

    // What the server heard, and how it answers.
    QList<double> pieces;
    int summaries = 0;
    QSet<int> failingPieces; // 1-based
    bool summaryFails = false;
    int msPerSecond = 2;

    // `seconds` of the meeting: the speech again and again.
    QByteArray meeting(double seconds) const {
        QByteArray pcm;
        const int64_t bytes = int64_t(seconds * kSecond);
        while (pcm.size() < bytes)
            pcm += speech;
        pcm.truncate(bytes);
        return pcm;
    }
    // Feeds the recorder in capture-sized buffers, with a checkpoint every 10 s of audio.
    void feed(MeetingRecorder& r, const QByteArray& pcm) {
        for (qsizetype at = 0; at < pcm.size(); at += 2048) {
            platform.audio().feed(pcm.mid(at, 2048));
            if ((at / 2048) % 156 == 155) r.checkpoint();
        }
        r.checkpoint();
    }
    void record(MeetingRecorder& r, const QByteArray& pcm) {
        r.start();
        QTRY_VERIFY(r.state().kind == Kind::Recording);
        feed(r, pcm);
        r.stop();
        QTRY_VERIFY(r.state().kind != Kind::Recording);
    }
    static QString pendingFolder() {
        return QDir(Store::shared().folder()).filePath(MeetingRecorder::kPendingFolder);
    }
    static QStringList pendingFiles() {
        return QDir(pendingFolder()).entryList(QDir::Files | QDir::System);
    }
    // A start that resumes what is pending: the meeting it files, once the pending files go.
    Meeting resume(int timeoutMs = 20000) {
        MeetingRecorder r;
        QSignalSpy stored(&r, &MeetingRecorder::meetingStored);
        r.resumePending();
        if (!QTest::qWaitFor([&] { return stored.size() == 1; }, timeoutMs)) return {};
        if (!QTest::qWaitFor([] { return pendingFiles().isEmpty(); }, 5000))
            qWarning("the meeting is filed, but pending files are left");
        return stored[0][0].value<Meeting>();
    }
    QString journal() const {
        QFile file(dir.filePath(QStringLiteral("journal.log")));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    }
    // Pending files as a crash leaves them: the state (none when empty) and the audio.
    void leavePending(const QString& stem, const QByteArray& json, const QByteArray& pcm) {
        const QDir folder(pendingFolder());
        QVERIFY(folder.mkpath(QStringLiteral(".")));
        for (const auto& [suffix, bytes] : {std::pair{".json", json}, std::pair{".pcm", pcm}}) {
            QFile file(folder.filePath(stem + QLatin1String(suffix)));
            if (!bytes.isEmpty()) QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes));
        }
    }

private Q_SLOTS:
    void initTestCase() {
        Log::resetForTests(dir.filePath(QStringLiteral("journal.log")));
        qputenv("OMBRY_OPENROUTER_URL", server.url().toString().toUtf8());
        KeyStore::shared().save(QStringLiteral("sk-or-test"), APIService::OpenRouter);
        AppSettings::shared().setOwnKeyMode(true);
        const QStringList sentences{
            QStringLiteral("Good morning, let us start with the budget."),
            QStringLiteral("Claire will send the figures before Friday."),
            QStringLiteral("The new office opens in March, we still need chairs."),
            QStringLiteral("Any questions? Then that is all for today.")};
        for (const QString& text : sentences) {
            const QString path = dir.filePath(QStringLiteral("s.wav"));
            QVERIFY(SoundServer::makeSpeech(text, QStringLiteral("en"), path));
            speech += SoundServer::wavData(path) + QByteArray(int(1.5 * kSecond), '\0');
        }
        QVERIFY(speech.size() > 10 * kSecond);

        server.setHandler([this](const RecordedRequest& r) {
            if (const std::optional<double> seconds = audioSeconds(r)) {
                pieces << *seconds;
                const int n = int(pieces.size());
                Reply reply = failingPieces.contains(n)
                                  ? Reply::json(QByteArray(R"({"error":"busy"})"), 503)
                                  : chatCompletion(QStringLiteral("morceau %1").arg(n));
                // A model takes longer over longer audio.
                reply.delayMs = 20 + int(*seconds * msPerSecond);
                return reply;
            }
            ++summaries;
            if (summaryFails) return Reply::json(QByteArray(R"({"error":"down"})"), 500);
            const QJsonObject answer{
                {"title", "Budget et bureaux"},
                {"summary", "Le budget, les chiffres de Claire, le nouveau bureau."},
                {"tasks", QJsonArray{"Claire : envoyer les chiffres avant vendredi",
                                     "Acheter des chaises"}}};
            return chatCompletion(QStringLiteral("Voici : ") +
                                  QString::fromUtf8(QJsonDocument(answer).toJson()));
        });
    }
    void cleanupTestCase() { Log::resetForTests(); }
    void init() {
        pieces.clear();
        summaries = 0;
        failingPieces.clear();
        summaryFails = false;
        msPerSecond = 2;
        QDir(pendingFolder()).removeRecursively(); // each case starts with no meeting pending
    }

    void aMeetingIsTranscribedWhileItGoesOnAndFiledWithItsAudio() {
        MeetingRecorder r;
        QSignalSpy stored(&r, &MeetingRecorder::meetingStored);
        r.start();
        QTRY_VERIFY(r.state().kind == Kind::Recording);
        // Three and a half minutes: the first piece goes out before the stop.
        const QByteArray pcm = meeting(7 * 60 + 10);
        feed(r, pcm.left(210 * kSecond));
        QTRY_COMPARE(pieces.size(), 1);
        QCOMPARE(r.state().kind, Kind::Recording);
        // The audio so far is the user's alone, as their other files.
        QCOMPARE(modeOf(pendingFolder()), 0700u);
        QTRY_COMPARE(pendingFiles().size(), 2);
        for (const QString& name : pendingFiles())
            QCOMPARE(modeOf(QDir(pendingFolder()).filePath(name)), 0600u);

        QVERIFY(pieces[0] > 170 && pieces[0] <= 180.0);
        feed(r, pcm.mid(210 * kSecond));
        r.stop();
        QTRY_COMPARE_WITH_TIMEOUT(stored.size(), 1, 20000);
        QCOMPARE(r.state(), MeetingRecorder::State{});

        // Three pieces, one after the other, the last one the 70 s left.
        QCOMPARE(pieces.size(), 3);
        QVERIFY2(pieces[2] > 55 && pieces[2] <= 70.0, qPrintable(QString::number(pieces[2])));
        const Meeting m = Store::shared().meetings().first();
        QCOMPARE(m, stored[0][0].value<Meeting>());
        QCOMPARE(m.title, QStringLiteral("Budget et bureaux"));
        QCOMPARE(m.summary,
                 QStringLiteral("Le budget, les chiffres de Claire, le nouveau bureau."));
        QCOMPARE(m.tasks.size(), 2);
        QCOMPARE(m.transcript, QStringLiteral("morceau 1\n\nmorceau 2\n\nmorceau 3"));
        QCOMPARE(m.duration, 430.0);
        QCOMPARE(m.date, r.startedAt());
        // The whole recording, untouched, beside it; nothing left pending.
        QFile audio(MeetingRecorder::audioPath(m));
        QVERIFY(audio.open(QIODevice::ReadOnly));
        QCOMPARE(audio.readAll(), AudioRecorder::wav(pcm));
        QTRY_VERIFY(pendingFiles().isEmpty());
        // Filed on disk, not only in memory.
        QFile list(QDir(Store::shared().folder()).filePath(QStringLiteral("meetings.json")));
        QVERIFY(list.open(QIODevice::ReadOnly));
        QVERIFY(list.readAll().contains("Budget et bureaux"));
    }

    void failuresKeepTheTranscriptAndTheAudio() {
        // The summary fails: the meeting keeps the default title, its transcript and audio.
        {
            summaryFails = true;
            failingPieces = {2};
            MeetingRecorder r;
            QSignalSpy stored(&r, &MeetingRecorder::meetingStored);
            const QByteArray pcm = meeting(6 * 60 + 30);
            record(r, pcm);
            QTRY_COMPARE_WITH_TIMEOUT(stored.size(), 1, 20000);
            const Meeting m = stored[0][0].value<Meeting>();
            QCOMPARE(m.title, QStringLiteral("Réunion"));
            QCOMPARE(m.transcript, QStringLiteral("morceau 1\n\nmorceau 3"));
            QVERIFY(m.summary.isEmpty() && m.tasks.isEmpty());
            QCOMPARE(QFileInfo(MeetingRecorder::audioPath(m)).size(), pcm.size() + 44);
            QCOMPARE(summaries, 1);
        }
        // No piece at all could be transcribed: still filed, with its audio.
        {
            init();
            failingPieces = {1, 2};
            MeetingRecorder r;
            QSignalSpy stored(&r, &MeetingRecorder::meetingStored);
            record(r, meeting(200));
            QTRY_COMPARE_WITH_TIMEOUT(stored.size(), 1, 20000);
            const Meeting m = stored[0][0].value<Meeting>();
            QVERIFY(m.transcript.isEmpty());
            QVERIFY(QFileInfo::exists(MeetingRecorder::audioPath(m)));
            QCOMPARE(summaries, 0);
            QTRY_VERIFY(pendingFiles().isEmpty());
        }
        // Three seconds exactly is no meeting, and leaves nothing behind.
        {
            MeetingRecorder r;
            const int before = int(Store::shared().meetings().size());
            record(r, meeting(3.0));
            QTRY_COMPARE(r.state().kind, Kind::Idle);
            QTest::qWait(100);
            QCOMPARE(Store::shared().meetings().size(), before);
            QTRY_VERIFY(pendingFiles().isEmpty());
        }
    }

    void aQuitDuringTheProcessingIsFinishedAtTheNextStart() {
        msPerSecond = 20; // a piece of 3 minutes takes 3.6 s
        const QByteArray pcm = meeting(5 * 60);
        const qsizetype before = Store::shared().meetings().size();
        {
            MeetingRecorder r;
            record(r, pcm);
            QTRY_VERIFY(r.state().kind == Kind::Processing);
            QTRY_COMPARE(pieces.size(), 1); // the first piece is under way
            // The program quits here.
        }
        QCOMPARE(Store::shared().meetings().size(), before);
        QCOMPARE(pendingFiles().size(), 2);
        msPerSecond = 2;
        const Meeting m = resume();
        QCOMPARE(Store::shared().meetings().size(), before + 1);
        QCOMPARE(m.duration, 300.0);
        QCOMPARE(m.title, QStringLiteral("Budget et bureaux"));
        // The piece that was under way at the quit is asked again: the transcript is whole.
        QCOMPARE(m.transcript.count(QStringLiteral("morceau")), 2);
        QFile audio(MeetingRecorder::audioPath(m));
        QVERIFY(audio.open(QIODevice::ReadOnly));
        QCOMPARE(audio.readAll(), AudioRecorder::wav(pcm));
        QVERIFY(pendingFiles().isEmpty());
    }

    void aQuitWhileRecordingKeepsWhatWasHeard() {
        const QByteArray pcm = meeting(40);
        {
            MeetingRecorder r;
            r.start();
            QTRY_VERIFY(r.state().kind == Kind::Recording);
            feed(r, pcm);
        }
        QCOMPARE(resume().duration, 40.0);
    }

    // What can be read of pending files is filed, the audio alone being enough; audio that cannot
    // be opened stays, said in the journal, for the next start.
    void pendingFilesAreResumedFromWhatIsThere_data() {
        QTest::addColumn<QString>("state"); // whole, cut short, none
        QTest::addColumn<bool>("openable");
        QTest::addColumn<bool>("lowerCase");
        QTest::newRow("state cut short") << "cut" << true << false;
        QTest::newRow("audio alone") << "none" << true << false;
        QTest::newRow("names in lower case") << "whole" << true << true;
        QTest::newRow("audio that cannot be opened") << "whole" << false << false;
    }
    void pendingFilesAreResumedFromWhatIsThere() {
        QFETCH(QString, state);
        QFETCH(bool, openable);
        QFETCH(bool, lowerCase);
        PendingMeeting p;
        p.id = QUuid::createUuid();
        p.startedAt = QDateTime::currentDateTimeUtc().addSecs(-3600);
        p.cuts = {PendingMeeting::kChunkBytes};
        p.parts = {{QStringLiteral("déjà entendu"), false}};
        const QByteArray json = p.toJson();
        const QString stem = lowerCase ? uuidText(p.id).toLower() : uuidText(p.id);
        leavePending(stem,
                     state == "none"  ? QByteArray()
                     : state == "cut" ? json.left(30)
                                      : json,
                     openable ? meeting(200) : QByteArray());
        const QString audio = QDir(pendingFolder()).filePath(stem + ".pcm");
        if (!openable) QVERIFY(QFile::link(audio, audio)); // a loop: even root cannot open it

        if (!openable) {
            MeetingRecorder r;
            QSignalSpy stored(&r, &MeetingRecorder::meetingStored);
            r.resumePending();
            QTRY_VERIFY(journal().contains(QStringLiteral("réunion: audio en attente illisible")));
            QTRY_COMPARE(r.state().kind, Kind::Idle);
            QTest::qWait(200);
            QCOMPARE(stored.size(), 0);
            QCOMPARE(pendingFiles().size(), 2); // both kept
            return;
        }
        const Meeting m = resume();
        QCOMPARE(m.id, p.id);
        QCOMPARE(m.duration, 200.0);
        QCOMPARE(m.transcript.startsWith(QStringLiteral("déjà entendu")), state == "whole");
        QCOMPARE(pieces.size(), state == "whole" ? 1 : 2);
        QVERIFY(pendingFiles().isEmpty());
    }

    // On a full disk the pending files, the only copy, stay until the meeting is on disk.
    void aFullDiskKeepsTheMeetingPending() {
        if (::geteuid() != 0) QSKIP("a small file system needs root to be mounted");
        const QString folder = Store::shared().folder();
        if (QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=2m", "tmpfs", folder}) != 0)
            QSKIP("no tmpfs here");
        const auto unmount = qScopeGuard([&] { QProcess::execute("umount", {"-l", folder}); });
        const QString filler = QDir(folder).filePath(QStringLiteral("filler"));
        // Room for the list but not for the audio; then no room at all.
        for (const int64_t room : {300000, 0}) {
            init();
            const QUuid id = QUuid::createUuid();
            PendingMeeting p;
            p.id = id;
            p.startedAt = QDateTime::currentDateTimeUtc();
            leavePending(uuidText(id), p.toJson(), meeting(20));
            struct statvfs fs {};
            QVERIFY(::statvfs(QFile::encodeName(folder).constData(), &fs) == 0);
            QFile fill(filler);
            QVERIFY(fill.open(QIODevice::WriteOnly));
            for (int64_t left = int64_t(fs.f_bavail * fs.f_frsize) - room; left > 0; left -= 4096)
                if (fill.write(QByteArray(4096, 'x')) < 0) break;
            fill.close();
            const qsizetype before = Store::shared().meetings().size();
            {
                MeetingRecorder r;
                r.resumePending();
                QTRY_VERIFY_WITH_TIMEOUT(
                    journal().contains(QStringLiteral("réunion: audio non enregistré")), 20000);
                QTRY_COMPARE(r.state().kind, Kind::Idle);
            }
            QCOMPARE(pendingFiles().size(), 2);
            QVERIFY(QFile::remove(filler));
            Log::resetForTests(dir.filePath(QStringLiteral("journal.log")));
            QFile::remove(dir.filePath(QStringLiteral("journal.log")));

            const QString audio = MeetingRecorder::audioPath(resume());
            QCOMPARE(Store::shared().meetings().size(), before + 1);
            QCOMPARE(QFileInfo(audio).size(), 20 * kSecond + 44);
            QVERIFY(pendingFiles().isEmpty());
            QFile::remove(audio);
        }
    }

    // Beyond a WAV header's reach (a sparse file of 37 hours): read piece by piece, kept as RF64.
    void aMeetingBeyondFourGigabytesIsKeptWhole() {
        const int64_t bytes = (int64_t(1) << 32) + 6 * PendingMeeting::kChunkBytes;
        const QUuid id = QUuid::createUuid();
        leavePending(uuidText(id), {}, speech);
        QVERIFY(QFile::resize(QDir(pendingFolder()).filePath(uuidText(id) + ".pcm"), bytes));
        QFile audio(MeetingRecorder::audioPath(resume(240000)));
        QCOMPARE(pieces.size(), 1); // the silent pieces are not sent
        const auto remove = qScopeGuard([&] { audio.remove(); });
        QCOMPARE(audio.size(), bytes + 80);
        QVERIFY(audio.open(QIODevice::ReadOnly));
        const QByteArray head = audio.read(80 + speech.size());
        QCOMPARE(head.left(4), QByteArray("RF64"));
        QCOMPARE(qFromLittleEndian<quint64>(head.constData() + 28), quint64(bytes));
        QCOMPARE(head.mid(72, 4), QByteArray("data"));
        QCOMPARE(head.mid(80), speech);
    }

    void summaryAnswersAreReadLeniently() {
        auto s = MeetingRecorder::readSummary(QStringLiteral("```json\n{\"summary\": \"x\"}\n```"));
        QVERIFY(s);
        QCOMPARE(s->title, QStringLiteral("Réunion"));
        QVERIFY(s->tasks.isEmpty());
        QVERIFY(!MeetingRecorder::readSummary(QStringLiteral("pas de JSON")));
        QVERIFY(!MeetingRecorder::readSummary(QStringLiteral("{\"tasks\": \"une\"}")));
    }

    void piecesAreCutEveryThreeMinutes() {
        PendingMeeting p;
        p.id = QUuid::createUuid();
        p.startedAt = QDateTime::currentDateTimeUtc();
        QVERIFY(!p.cutUpTo(PendingMeeting::kChunkBytes - 2, false));
        QVERIFY(p.cutUpTo(PendingMeeting::kChunkBytes, false));
        QCOMPARE(p.cuts, QList<int64_t>{PendingMeeting::kChunkBytes});
        QVERIFY(!p.cutUpTo(PendingMeeting::kChunkBytes, true)); // nothing left for a last one
        QCOMPARE(PendingMeeting::pieceCount(PendingMeeting::kChunkBytes), 1);
        QCOMPARE(PendingMeeting::pieceCount(PendingMeeting::kChunkBytes + 2), 2);
        QVERIFY(p.cutUpTo(PendingMeeting::kChunkBytes + 2, true));
        QCOMPARE(p.cuts.size(), 2);
        QCOMPARE(PendingMeeting::fromJson(p.toJson()), p);
    }
};

QTEST_GUILESS_MAIN(TstMeetingRecorder)
#include "tst_meetingrecorder.moc"
