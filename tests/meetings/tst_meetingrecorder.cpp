// The meeting recorder over minutes of generated speech with pauses, fed through the recorder
// faster than real time, against a local server playing the speech and summary models: pieces
// go out while the meeting goes on, the meeting is filed with its title, summary, tasks and
// audio, a failed summary or piece still files it, and a quit in the middle of the processing
// is finished at the next start.
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
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using namespace ombry::test;
using Kind = MeetingRecorder::State::Kind;

namespace {

constexpr int64_t kSecond = 32000;

// Seconds of audio in a speech request, or nothing for a text request.
std::optional<double> audioSeconds(const RecordedRequest& r) {
    const QJsonValue content =
        r.json().value("messages").toArray().last().toObject().value("content");
    if (!content.isArray()) return std::nullopt;
    for (const QJsonValue& part : content.toArray()) {
        const QJsonObject audio = part.toObject().value("input_audio").toObject();
        if (audio.isEmpty()) continue;
        return double(QByteArray::fromBase64(audio.value("data").toString().toLatin1()).size() -
                      44) /
               kSecond;
    }
    return std::nullopt;
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
    QStringList pendingFiles(const MeetingRecorder& r) const {
        return QDir(r.pendingFolder()).entryList(QDir::Files);
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
        // Each case starts with no meeting pending.
        QDir(QDir(Store::shared().folder()).filePath(MeetingRecorder::kPendingFolder))
            .removeRecursively();
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
        QTRY_VERIFY(pendingFiles(r).isEmpty());
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
            QTRY_VERIFY(pendingFiles(r).isEmpty());
        }
        // Three seconds exactly is no meeting, and leaves nothing behind.
        {
            MeetingRecorder r;
            const int before = int(Store::shared().meetings().size());
            record(r, meeting(3.0));
            QTRY_COMPARE(r.state().kind, Kind::Idle);
            QTest::qWait(100);
            QCOMPARE(Store::shared().meetings().size(), before);
            QTRY_VERIFY(pendingFiles(r).isEmpty());
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
        msPerSecond = 2;
        MeetingRecorder again;
        QCOMPARE(pendingFiles(again).size(), 2);
        QSignalSpy stored(&again, &MeetingRecorder::meetingStored);
        again.resumePending();
        QTRY_COMPARE_WITH_TIMEOUT(stored.size(), 1, 20000);
        QCOMPARE(Store::shared().meetings().size(), before + 1);
        const Meeting m = stored[0][0].value<Meeting>();
        QCOMPARE(m.duration, 300.0);
        QCOMPARE(m.title, QStringLiteral("Budget et bureaux"));
        // The piece that was under way at the quit is asked again: the transcript is whole.
        QCOMPARE(m.transcript.count(QStringLiteral("morceau")), 2);
        QFile audio(MeetingRecorder::audioPath(m));
        QVERIFY(audio.open(QIODevice::ReadOnly));
        QCOMPARE(audio.readAll(), AudioRecorder::wav(pcm));
        QTRY_VERIFY(pendingFiles(again).isEmpty());
    }

    void aQuitWhileRecordingKeepsWhatWasHeard() {
        const QByteArray pcm = meeting(40);
        {
            MeetingRecorder r;
            r.start();
            QTRY_VERIFY(r.state().kind == Kind::Recording);
            feed(r, pcm);
        }
        MeetingRecorder again;
        QSignalSpy stored(&again, &MeetingRecorder::meetingStored);
        again.resumePending();
        QTRY_COMPARE_WITH_TIMEOUT(stored.size(), 1, 20000);
        QCOMPARE(stored[0][0].value<Meeting>().duration, 40.0);
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
