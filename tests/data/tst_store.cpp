#include "data/Store.h"
#include "platform/SerialQueue.h"

#include "FakePlatform.h"
#include "TestFiles.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using test::readAll;
using test::writeAll;

namespace {

QDateTime utc(const char* iso) {
    return QDateTime::fromString(QLatin1String(iso), Qt::ISODate);
}

Dictation dictation(const QString& text, const QDateTime& date, double duration = 6) {
    return {.date = date, .appName = "Firefox", .finalText = text, .duration = duration};
}

const QStringList kFiles{"history.json",  "words.json", "corrections.json", "fixes.json",
                         "snippets.json", "costs.json", "meetings.json"};

} // namespace

class TstStore : public QObject {
    Q_OBJECT
    test::FakePlatform platform;
    std::unique_ptr<QTemporaryDir> dir;
    QString folder;

    void settle(Store& store, int ms = Store::kSaveDelayMs) {
        platform.clock().advance(ms);
        store.ioQueue().sync([] {});
    }
    QString path(const QString& name) const { return folder + QLatin1Char('/') + name; }

private Q_SLOTS:
    void initTestCase() { qputenv("TZ", "Europe/Paris"); } // days are local days, with DST

    void init() {
        dir = std::make_unique<QTemporaryDir>();
        folder = dir->filePath(QStringLiteral("Ombry Voice"));
        platform.clock().setNow(utc("2026-03-14T09:26:53Z"));
    }

    void addsWithinTheDebounceWriteOnce() {
        Store store(folder);
        QVERIFY(QFileInfo(store.audioFolder()).isDir());
        settle(store); // the start rewrites every file
        QCOMPARE(readAll(path("meetings.json")), QByteArray("[]"));
        for (const char* text : {"un", "deux", "trois"}) { // dates of whole seconds, as stored
            settle(store, 150);
            store.add(dictation(QString::fromUtf8(text), utc("2026-03-14T09:26:53Z")));
        }
        settle(store, Store::kSaveDelayMs - 1);
        QCOMPARE(readAll(path("history.json")), QByteArray("[]"));
        settle(store, 1);
        const auto saved = decodeList<Dictation>(readAll(path("history.json")));
        QCOMPARE(saved, std::optional(store.dictations()));
        QCOMPARE(saved->first().finalText, QStringLiteral("trois")); // newest first
    }

    void destroyingTheStoreWritesWhatIsPending() {
        Store(folder).setWords({QStringLiteral("Ombry")});
        QCOMPARE(decodeWords(readAll(path("words.json"))), std::optional(QStringList{"Ombry"}));
    }

    void damagedFilesLoadEmptyAndAreKept_data() {
        QTest::addColumn<QString>("name");
        for (const QString& name : kFiles)
            QTest::newRow(qPrintable(name)) << name;
    }
    void damagedFilesLoadEmptyAndAreKept() {
        QFETCH(QString, name);
        const QList<std::pair<const char*, QByteArray>> variants{{"truncated", "[{\"id\":"},
                                                                 {"empty", ""},
                                                                 {"wrongly typed", "[5]"},
                                                                 {"not UTF-8", "[\"\xff\"]"}};
        for (const auto& [variant, bytes] : variants) {
            folder = dir->filePath(QString::fromLatin1(variant));
            writeAll(path(name), bytes);
            writeAll(path(name + ".damaged"), "an older copy");
            Store store(folder);
            settle(store);
            QVERIFY2(readAll(path(name)) == "[]", variant);
            // An earlier copy stays; the new one takes the next free name. An empty file holds
            // nothing worth keeping.
            QVERIFY2(readAll(path(name + ".damaged")) == "an older copy", variant);
            QVERIFY2(readAll(path(name + ".damaged.2")) == bytes, variant);
        }
    }

    void applyCorrections() {
        Store store(folder);
        const auto apply = [&](const QStringList& rules, const QString& text) {
            QList<Correction> list; // heard, written, heard, written...
            for (qsizetype i = 0; i + 1 < rules.size(); i += 2)
                list.append({.heard = rules[i], .written = rules[i + 1]});
            store.setCorrections(list);
            return store.applyCorrections(text);
        };
        QCOMPARE(apply({"ia", "IA"}, "l'ia et la via, IA ou Ia"), "l'IA et la via, IA ou IA");
        QCOMPARE(apply({"v", "V"}, "v2 2v v"), "v2 2v V");
        QCOMPARE(apply({"a", "$0\\1$1 $"}, "a b"), "$0\\1$1 $ b");
        QCOMPARE(apply({"c++", "C++"}, "du c++ ou c+"), "du C++ ou c+");
        QCOMPARE(apply({" ", "X"}, "a , , b"), "a , , b"); // blank heard skipped
        QCOMPARE(apply({"gpt", "GPT", "GPT quatre", "GPT-4"}, "gpt quatre"), "GPT-4"); // in order
    }

    void snippetsMatchOnceNormalised() {
        Store store(folder);
        QList<Snippet> list;
        for (const char* trigger : {"", "Ma signature", "ma signature.", "…", "Café"})
            list.append({.trigger = QString::fromUtf8(trigger)});
        store.setSnippets(list);
        const auto found = [&](const QString& said) {
            const auto s = store.snippet(said);
            return s ? s->trigger : QStringLiteral("none");
        };
        QCOMPARE(found("  MA SIGNATURÉ !"), "Ma signature"); // the first of two that match
        QCOMPARE(found(QString::fromUtf16(u"cafe\u0301")), "Café");
        QCOMPARE(found("ma  signature"), "none");
        QCOMPARE(found("ma signature longue"), "none");
        QCOMPARE(found("?!"), "…"); // an empty trigger never matches
    }

    void wordsByLocalDay() {
        Store store(folder);
        // Paris: 23:30 UTC is already the next day; daylight saving begins 2026-03-29 01:00 UTC.
        store.setDictations({dictation(QStringLiteral("a b"), utc("2026-03-29T22:30:00Z")),
                             dictation(QStringLiteral("c"), utc("2026-03-29T21:30:00Z")),
                             dictation(QStringLiteral("d"), utc("2026-03-28T23:30:00Z")),
                             dictation(QStringLiteral("e"), utc("2026-03-28T22:30:00Z"))});
        QCOMPARE(store.wordsByDay(),
                 (QMap<QDate, int>{
                     {QDate(2026, 3, 28), 1}, {QDate(2026, 3, 29), 2}, {QDate(2026, 3, 30), 2}}));
        // A record whose text changes is counted again, whatever the new order.
        QList<Dictation> edited = store.dictations();
        edited[0].finalText = QStringLiteral("a b c d");
        std::reverse(edited.begin(), edited.end());
        store.setDictations(edited);
        QCOMPARE(store.words(QDate(2026, 3, 30)), 4);
        QCOMPARE(store.totalWords(), 7);
    }

    void lastDays() {
        Store store(folder);
        const QDateTime now = platform.clock().now();
        store.setDictations({dictation(QStringLiteral("a b c"), now.addDays(-2)),
                             dictation(QStringLiteral("old"), now.addDays(-30))});
        const QList<DayWords> week = store.lastDays(7);
        QCOMPARE(week.size(), 7);
        QCOMPARE(week.first().day, QDate(2026, 3, 8).startOfDay());
        QCOMPARE(week.last(), (DayWords{QDate(2026, 3, 14).startOfDay(), 0}));
        QCOMPARE(week.at(4).words, 3);
        QVERIFY(store.lastDays(0).isEmpty());
    }

    void minutesSaved() {
        Store store(folder);
        store.add(dictation(QStringLiteral("mot ").repeated(120), platform.clock().now(), 45));
        QCOMPARE(store.minutesSaved(0), 0.0);
        QCOMPARE(store.minutesSaved(80), 0.75); // 1.5 min to type, 0.75 to say
        QCOMPARE(store.minutesSaved(200), 0.0); // saying took longer
    }

    // A dictation left in progress in the file of a run that ended becomes failed with the
    // reason given; a failed dictation counts in none of the statistics.
    void failedDictations() {
        const QDateTime now = platform.clock().now();
        Dictation pending = dictation(QString(), now, 30);
        pending.appName = QStringLiteral("Terminal");
        pending.failure = QString();
        Store(folder).setDictations({pending, dictation(QStringLiteral("a b c"), now)});
        Store store(folder);
        QVERIFY(store.dictations().first().inProgress());
        QCOMPARE(store.failInterrupted(QStringLiteral("arrêt")), 1);
        QCOMPARE(store.dictations().first().failure, std::optional<QString>("arrêt"));
        QCOMPARE(store.dictationCount(), 1);
        QCOMPARE(store.totalDuration(), 6.0);
        QCOMPARE(store.appShares().size(), 1);
        settle(store);
        QCOMPARE(decodeList<Dictation>(readAll(path("history.json")))->first(),
                 store.dictations().first());
    }

    void pruneAudioDropsOldRecordingsOnly() {
        Store store(folder);
        QList<Dictation> list;
        for (const qint64 age : {Store::kAudioKeptSeconds, Store::kAudioKeptSeconds + 1}) {
            list.append(dictation(QStringLiteral("mot"), platform.clock().now().addSecs(-age)));
            list.last().audioFile = QString::number(age) + QStringLiteral(".wav");
            writeAll(store.audioFolder() + "/" + *list.last().audioFile, "RIFF");
        }
        store.setDictations(list);
        // A meeting's audio (115 MB an hour) goes at the same age, the meeting stays.
        QList<Meeting> meetings;
        for (const Dictation& d : list) {
            meetings.append(Meeting{QUuid::createUuid(), d.date, 60, "Point", "", "", {}});
            writeAll(store.audioFolder() + "/" + uuidText(meetings.last().id) + ".wav", "RIFF");
        }
        store.setMeetings(meetings);
        store.pruneAudio();
        store.ioQueue().sync([] {});
        const auto audioOf = [&](int i) {
            return QFileInfo::exists(store.audioFolder() + "/" + uuidText(meetings[i].id) + ".wav");
        };
        QVERIFY(audioOf(0) && !audioOf(1));
        QCOMPARE(store.meetings(), meetings);
        QCOMPARE(store.dictations().at(0), list.at(0)); // exactly 30 days is kept
        QVERIFY(store.audioURL(list.at(0)));
        QVERIFY(!store.dictations().at(1).audioFile);
        QVERIFY(!store.audioURL(list.at(1))); // the file is gone
        QVERIFY(store.pendingFiles().contains("history.json"));
    }

    void clearHistoryKeepsTheDictionary() {
        Store store(folder);
        Dictation d = dictation(QStringLiteral("a"), platform.clock().now());
        d.audioFile = QStringLiteral("a.wav");
        writeAll(store.audioFolder() + "/a.wav", "RIFF");
        store.add(d);
        store.addFix(CorrectionRecord{});
        store.setWords({QStringLiteral("Ombry")});
        store.clearHistory();
        QVERIFY(store.dictations().isEmpty() && store.fixes().isEmpty() && !store.totalWords());
        QVERIFY(!QFile::exists(store.audioFolder() + "/a.wav"));
        QCOMPARE(store.words().size(), 1);
    }

    void eraseEverything() {
        const QStringList others{"keys.json", "journal.log", "history.json.damaged",
                                 "history.json.damaged.2"};
        for (const QString& f : others)
            writeAll(path(f), "x");
        Store store(folder);
        store.setWords({QStringLiteral("Ombry")});
        store.eraseEverything();
        QVERIFY(store.words().isEmpty());
        settle(store);
        for (const QString& f : others)
            QVERIFY2(!QFile::exists(path(f)), qPrintable(f));
        QVERIFY(!QFile::exists(store.audioFolder()));
        QCOMPARE(readAll(path("words.json")), QByteArray("[]"));
    }
};

QTEST_GUILESS_MAIN(TstStore)
#include "tst_store.moc"
