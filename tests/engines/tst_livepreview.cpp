// The live preview decodes real speech (espeak-ng, resampled by sox) fed in the recorder's small
// buffers from another thread, with a grammar so that the words are the same every run.
#include "engines/LivePreview.h"

#include "FakePlatform.h"
#include "OfflineTools.h"
#include "SoundServer.h"

#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <chrono>
#include <thread>

using namespace ombry;
using namespace ombry::test;

class TstLivePreview : public QObject {
    Q_OBJECT
    FakePlatform platform_;
    QTemporaryDir dir_;
    QString grammar_;

    QByteArray speech(const QString& words) {
        const QString wav = dir_.filePath("speech.wav");
        return SoundServer::makeSpeech(words, "en", wav) ? SoundServer::wavData(wav) : QByteArray();
    }

    // Feeds from a thread of its own, 1,024 frames at a time, as the recorder's audio thread.
    static void feedFromAudioThread(LivePreview& preview, const QByteArray& pcm, int paceMs = 0) {
        std::thread([&preview, pcm, paceMs] {
            for (qsizetype at = 0; at < pcm.size(); at += 2048) {
                preview.feed(pcm.mid(at, 2048));
                std::this_thread::sleep_for(std::chrono::milliseconds(paceMs));
            }
        }).join();
    }

    // Records every text with the thread it came on.
    struct Seen {
        QStringList texts;
        bool offMainThread = false;
        void attach(LivePreview& preview) {
            preview.onText = [this](const QString& text) {
                texts << text;
                if (QThread::currentThread() != QCoreApplication::instance()->thread())
                    offMainThread = true;
            };
        }
        QString last() const { return texts.isEmpty() ? QString() : texts.last(); }
    };

private Q_SLOTS:
    void initTestCase() {
        if (!offlineToolsInstalled())
            QSKIP("espeak-ng, sox and the English pocketsphinx model are needed");
        grammar_ = dir_.filePath("commands.gram");
        QVERIFY(writeGrammar(grammar_));
    }

    void runningTextOfSpeech() {
        // The environment's grammar serves when none is set. Audio fed at once after start
        // waits for the model instead of being lost.
        qputenv("OMBRY_POCKETSPHINX_JSGF", grammar_.toUtf8());
        LivePreview preview;
        Seen seen;
        seen.attach(preview);
        preview.start("en-US", false, false);
        feedFromAudioThread(preview, speech("hello world"));
        QTRY_COMPARE_WITH_TIMEOUT(seen.last(), QStringLiteral("hello world"), 20000);
        QVERIFY(!seen.offMainThread);
        QCOMPARE(seen.texts.count(seen.last()), 1); // an unchanged hypothesis is not repeated

        // Fed at the pace of speech (a little faster), the words of a second dictation show up
        // before its end.
        seen.texts.clear();
        preview.start("en", false, false);
        qunsetenv("OMBRY_POCKETSPHINX_JSGF");
        feedFromAudioThread(preview, speech("close the door"), 20);
        QTRY_COMPARE_WITH_TIMEOUT(seen.last(), QStringLiteral("close the door"), 20000);
        QVERIFY2(seen.texts.size() > 1 && seen.texts.first().size() < seen.last().size(),
                 qPrintable(seen.texts.join(" | ")));

        // In long form a pause closes a phrase: its words stay while the next one is decoded.
        const QByteArray silence(32000, '\0');
        preview.setGrammar(grammar_);
        preview.start("en", true, false);
        feedFromAudioThread(preview, speech("open the window") + silence +
                                         speech("close the door") + silence);
        QTRY_COMPARE_WITH_TIMEOUT(seen.last(), QStringLiteral("open the window close the door"),
                                  20000);

        // After stop, and without a model for the language, nothing arrives whatever is fed.
        preview.stop();
        seen.texts.clear();
        feedFromAudioThread(preview, speech("hello world"));
        preview.start("xx", false, false);
        feedFromAudioThread(preview, speech("hello world"));
        QTest::qWait(500);
        QVERIFY(seen.texts.isEmpty());
    }

    void destroyedWhileDecoding() {
        // Texts still queued for a preview that is gone are dropped; the worker is joined.
        bool called = false;
        {
            LivePreview preview;
            preview.setGrammar(grammar_);
            preview.onText = [&](const QString&) { called = true; };
            preview.start("en", false, false);
            feedFromAudioThread(preview, speech("hello world"));
            QThread::msleep(1500);
        }
        QCoreApplication::processEvents();
        QVERIFY(!called);
    }

    void partialResultsReplaceEachOther() {
        PreviewText text;
        QCOMPARE(text.add("Bonjour", true), "Bonjour");
        QCOMPARE(text.add("tout", false), "Bonjour tout");
        QCOMPARE(text.add("tout le monde", false), "Bonjour tout le monde");
        QCOMPARE(text.add(" ça va", true), "Bonjour ça va"); // a piece's own blank is kept
        text.reset();
        QCOMPARE(text.add("", false), "");
    }
};

QTEST_GUILESS_MAIN(TstLivePreview)
#include "tst_livepreview.moc"
