#include "data/Store.h"
#include "platform/SerialQueue.h"

#include "FakePlatform.h"
#include "TestFiles.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace ombry;
using test::readAll;
using test::writeAll;

namespace {

QDateTime utc(const char* iso) {
    return QDateTime::fromString(QLatin1String(iso), Qt::ISODate);
}

Dictation dictation(const QString& text, const QDateTime& date, double duration = 6,
                    const QString& app = QStringLiteral("Firefox")) {
    return Dictation{
        .date = date, .appName = app, .finalText = text, .rawText = text, .duration = duration};
}

qsizetype listSize(const Store& s, const QString& file) {
    if (file == u"history.json") return s.dictations().size();
    if (file == u"words.json") return s.words().size();
    if (file == u"corrections.json") return s.corrections().size();
    if (file == u"fixes.json") return s.fixes().size();
    if (file == u"snippets.json") return s.snippets().size();
    if (file == u"costs.json") return s.costs().size();
    return s.meetings().size();
}

// One valid file for each list, with the quoted text that the damaged variants break.
struct ValidFile {
    QByteArray bytes;
    QByteArray marker; // a quoted JSON text inside bytes
};

ValidFile validFile(const QString& name) {
    const QString t = QStringLiteral("TEXTE");
    const QDateTime d = utc("2026-03-14T09:26:53Z");
    if (name == u"history.json") return {encodeList(QList{dictation(t, d)}), "\"TEXTE\""};
    if (name == u"words.json") return {encodeWords({t}), "\"TEXTE\""};
    if (name == u"corrections.json")
        return {encodeList(QList{Correction{.heard = t, .written = t}}), "\"TEXTE\""};
    if (name == u"fixes.json")
        return {encodeList(QList{CorrectionRecord{.date = d, .appName = t}}), "\"TEXTE\""};
    if (name == u"snippets.json")
        return {encodeList(QList{Snippet{.trigger = t, .text = t}}), "\"TEXTE\""};
    if (name == u"costs.json")
        return {encodeList(QList{CostEntry{.date = d, .amount = 0.5}}), "\"2026-03-14T09:26:53Z\""};
    return {encodeList(QList{Meeting{.date = d, .title = t}}), "\"TEXTE\""};
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
    void initTestCase() {
        // A zone with daylight saving, so that days are local days.
        qputenv("TZ", "Europe/Paris");
    }

    void init() {
        dir = std::make_unique<QTemporaryDir>();
        folder = dir->filePath(QStringLiteral("Ombry Voice"));
        platform.clock().setNow(utc("2026-03-14T09:26:53Z"));
    }

    void startMakesTheFoldersAndRewritesEveryFile() {
        const QByteArray words = encodeWords({QStringLiteral("Ombry")});
        writeAll(path("words.json"), " " + words);
        Store store(folder);
        QVERIFY(QFileInfo(store.audioFolder()).isDir());
        QCOMPARE(store.words(), QStringList{QStringLiteral("Ombry")});
        QCOMPARE(store.pendingFiles().size(), 7);
        settle(store, Store::kSaveDelayMs - 1);
        QVERIFY(!QFile::exists(path("history.json")));
        settle(store, 1);
        for (const QString& f : kFiles)
            QCOMPARE(readAll(path(f)), f == u"words.json" ? words : QByteArray("[]"));
    }

    void addsWithinTheDebounceWriteOnce() {
        Store store(folder);
        settle(store);
        const QDateTime t = utc("2026-03-14T09:26:53Z");
        store.add(dictation(QStringLiteral("un"), t));
        settle(store, 150);
        store.add(dictation(QStringLiteral("deux"), t));
        settle(store, 150);
        store.add(dictation(QStringLiteral("trois"), t));
        // 700 ms after the first add, only the last save is still due.
        settle(store, Store::kSaveDelayMs - 1);
        QCOMPARE(readAll(path("history.json")), QByteArray("[]"));
        settle(store, 1);
        const auto saved = decodeList<Dictation>(readAll(path("history.json")));
        QVERIFY(saved);
        QCOMPARE(*saved, store.dictations());
        QCOMPARE(saved->first().finalText, QStringLiteral("trois")); // newest first
    }

    void flushWritesPendingSavesNow() {
        Store store(folder);
        store.flush(); // the start's saves
        QVERIFY(store.pendingFiles().isEmpty());
        QCOMPARE(readAll(path("meetings.json")), QByteArray("[]"));
        store.flush(); // nothing pending: returns at once
        store.addFix(CorrectionRecord{.appName = QStringLiteral("Ombry Voice")});
        store.addCost(0.25);
        QCOMPARE(store.pendingFiles(), (QStringList{"costs.json", "fixes.json"}));
        store.flush();
        QCOMPARE(decodeList<CorrectionRecord>(readAll(path("fixes.json")))->size(), 1);
        QCOMPARE(decodeList<CostEntry>(readAll(path("costs.json")))->first().date,
                 platform.clock().now());
    }

    void destroyingTheStoreWritesWhatIsPending() {
        {
            Store store(folder);
            store.setWords({QStringLiteral("Ombry")});
        }
        QCOMPARE(decodeWords(readAll(path("words.json"))), std::optional(QStringList{"Ombry"}));
    }

    void damagedFilesLoadEmptyAndAreKept_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("bytes");
        for (const QString& name : kFiles) {
            const ValidFile valid = validFile(name);
            QByteArray wrongType = valid.bytes, notUtf8 = valid.bytes;
            wrongType.replace(valid.marker, "5");
            notUtf8.replace(valid.marker, valid.marker.left(2) + "\xff" + valid.marker.mid(2));
            const QByteArray n = name.toUtf8();
            QTest::newRow(n + " truncated") << name << valid.bytes.left(valid.bytes.size() - 3);
            QTest::newRow(n + " empty") << name << QByteArray();
            QTest::newRow(n + " wrongly typed") << name << wrongType;
            QTest::newRow(n + " not UTF-8") << name << notUtf8;
        }
    }
    void damagedFilesLoadEmptyAndAreKept() {
        QFETCH(QString, name);
        QFETCH(QByteArray, bytes);
        for (const QString& f : kFiles)
            writeAll(path(f), validFile(f).bytes);
        writeAll(path(name), bytes);
        writeAll(path(name + ".damaged"), "an older copy");

        Store store(folder);
        for (const QString& f : kFiles)
            QCOMPARE(listSize(store, f), f == name ? 0 : 1);
        // The newest damaged bytes win; an empty file holds nothing worth keeping.
        QCOMPARE(readAll(path(name + ".damaged")),
                 bytes.isEmpty() ? QByteArray("an older copy") : bytes);
        settle(store);
        QCOMPARE(readAll(path(name)), QByteArray("[]"));
        QVERIFY(QFile::exists(path(name + ".damaged")));
    }

    void applyCorrections_data() {
        QTest::addColumn<QStringList>("rules"); // heard, written, heard, written...
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("result");
        QTest::newRow("whole words, apostrophe bounds")
            << QStringList{"ia", "IA"} << "l'ia et la via, IA ou Ia"
            << "l'IA et la via, IA ou IA";
        QTest::newRow("digits bound words") << QStringList{"v", "V"} << "v2 v"
                                            << "v2 V";
        QTest::newRow("any script bounds") << QStringList{"né", "Né"} << "née né"
                                           << "née Né";
        QTest::newRow("unicode case") << QStringList{"élan", "Élan"} << "ÉLAN"
                                      << "Élan";
        QTest::newRow("dollar stands") << QStringList{"prix", "5 $"} << "le prix"
                                       << "le 5 $";
        QTest::newRow("group syntax stands") << QStringList{"a", "$0\\1$1"} << "a b"
                                             << "$0\\1$1 b";
        QTest::newRow("pattern characters") << QStringList{"c++", "C++"} << "du c++ ou c+"
                                            << "du C++ ou c+";
        QTest::newRow("blank rule skipped") << QStringList{" \t ", "X"} << "a b"
                                            << "a b";
        QTest::newRow("leading blank kept") << QStringList{" chat", "Chat"} << "le chat, chat"
                                            << "le chat,Chat";
        QTest::newRow("in order, on the result")
            << QStringList{"gpt", "GPT", "GPT quatre", "GPT-4"} << "gpt quatre"
            << "GPT-4";
        QTest::newRow("empty written") << QStringList{"euh", ""} << "euh bon"
                                       << " bon";
    }
    void applyCorrections() {
        QFETCH(QStringList, rules);
        QFETCH(QString, text);
        QFETCH(QString, result);
        Store store(folder);
        QList<Correction> list;
        for (qsizetype i = 0; i + 1 < rules.size(); i += 2)
            list.append(Correction{.heard = rules[i], .written = rules[i + 1]});
        store.setCorrections(list);
        QCOMPARE(store.applyCorrections(text), result);
    }

    void snippet_data() {
        QTest::addColumn<QString>("said");
        QTest::addColumn<QString>("found"); // the trigger, or empty
        QTest::newRow("same") << "ma signature"
                              << "Ma signature";
        QTest::newRow("case, accents, punctuation") << "  MA SIGNATURÉ !"
                                                    << "Ma signature";
        QTest::newRow("two spaces") << "ma  signature"
                                    << "";
        QTest::newRow("other text") << "ma signature longue"
                                    << "";
        QTest::newRow("punctuation only matches punctuation only") << "?!"
                                                                   << "…";
        QTest::newRow("decomposed accents") << QString::fromUtf16(u"cafe\u0301") << "Café";
        QTest::newRow("digits kept") << "rdv 14h"
                                     << "RDV 14h";
    }
    void snippet() {
        QFETCH(QString, said);
        QFETCH(QString, found);
        Store store(folder);
        store.setSnippets({Snippet{.trigger = QString(), .text = QStringLiteral("jamais")},
                           Snippet{.trigger = QStringLiteral("Ma signature"), .text = "A"},
                           Snippet{.trigger = QStringLiteral("ma signature."), .text = "B"},
                           Snippet{.trigger = QStringLiteral("…"), .text = "C"},
                           Snippet{.trigger = QStringLiteral("Café"), .text = "D"},
                           Snippet{.trigger = QStringLiteral("RDV 14h"), .text = "E"}});
        const auto s = store.snippet(said);
        QCOMPARE(s ? s->trigger : QString(), found);
    }

    void statisticsFollowTheHistory() {
        Store store(folder);
        QSignalSpy stats(&store, &Store::statsChanged);
        const QDateTime now = platform.clock().now();
        store.add(dictation(QStringLiteral("un deux trois"), now.addDays(-1), 30));
        store.add(dictation(QStringLiteral("quatre cinq"), now, 15));
        QCOMPARE(store.totalWords(), 5);
        QCOMPARE(store.totalDuration(), 45.0);
        QCOMPARE(store.averageWPM(), 7); // 5 / 0.75 = 6.67
        QCOMPARE(store.words(now), 2);
        QCOMPARE(store.words(QDate(2026, 3, 13)), 3);
        QCOMPARE(stats.count(), 2);

        // A record whose text changes is counted again; its order does not matter.
        QList<Dictation> edited = store.dictations();
        edited[1].finalText = QStringLiteral("un");
        std::reverse(edited.begin(), edited.end());
        store.setDictations(edited);
        QCOMPARE(store.totalWords(), 3);
        QCOMPARE(store.words(QDate(2026, 3, 13)), 1);
    }

    void daysAreLocalDays() {
        Store store(folder);
        // Paris: 23:30 UTC is already the next day; daylight saving begins 2026-03-29 01:00 UTC.
        store.setDictations({dictation(QStringLiteral("a b"), utc("2026-03-29T22:30:00Z")),
                             dictation(QStringLiteral("c"), utc("2026-03-29T21:30:00Z")),
                             dictation(QStringLiteral("d"), utc("2026-03-28T23:30:00Z")),
                             dictation(QStringLiteral("e"), utc("2026-03-28T22:30:00Z"))});
        QCOMPARE(store.wordsByDay(),
                 (QMap<QDate, int>{
                     {QDate(2026, 3, 28), 1}, {QDate(2026, 3, 29), 2}, {QDate(2026, 3, 30), 2}}));
    }

    void lastDays() {
        Store store(folder);
        const QDateTime now = platform.clock().now();
        store.setDictations({dictation(QStringLiteral("a b c"), now.addDays(-2)),
                             dictation(QStringLiteral("old"), now.addDays(-30))});
        const QList<DayWords> week = store.lastDays(7);
        QCOMPARE(week.size(), 7);
        QCOMPARE(week.last().day, QDate(2026, 3, 14).startOfDay());
        QCOMPARE(week.last().words, 0);
        QCOMPARE(week.first().day, QDate(2026, 3, 8).startOfDay());
        QCOMPARE(week.at(4).words, 3);
        QVERIFY(store.lastDays(0).isEmpty());
        QCOMPARE(store.lastDays(1).size(), 1);
    }

    void minutesSaved_data() {
        QTest::addColumn<int>("typingWPM");
        QTest::addColumn<double>("duration");
        QTest::addColumn<double>("minutes");
        QTest::newRow("typing speed 0") << 0 << 60.0 << 0.0;
        QTest::newRow("negative speed") << -5 << 60.0 << 0.0;
        QTest::newRow("120 words at 40") << 40 << 60.0 << 2.0;       // 3 - 1
        QTest::newRow("speaking took longer") << 40 << 600.0 << 0.0; // 3 - 10
        QTest::newRow("fraction kept") << 80 << 30.0 << 1.0;         // 1.5 - 0.5
    }
    void minutesSaved() {
        QFETCH(int, typingWPM);
        QFETCH(double, duration);
        QFETCH(double, minutes);
        Store store(folder);
        store.add(
            dictation(QStringLiteral("mot ").repeated(120), platform.clock().now(), duration));
        QCOMPARE(store.minutesSaved(typingWPM), minutes);
    }

    void spentThisMonthUsesTheLocalMonth() {
        Store store(folder);
        platform.clock().setNow(utc("2026-03-31T21:00:00Z")); // 23:00 in Paris, still March
        store.setCosts({CostEntry{.date = utc("2026-02-28T23:30:00Z"), .amount = 0.25}, // 1 March
                        CostEntry{.date = utc("2026-02-28T22:30:00Z"), .amount = 1},    // February
                        CostEntry{.date = utc("2025-03-10T10:00:00Z"), .amount = 2}}); // a year ago
        store.addCost(0.5);
        QCOMPARE(store.spentThisMonth(), 0.75);
        platform.clock().setNow(utc("2026-03-31T22:30:00Z")); // April in Paris
        QCOMPARE(store.spentThisMonth(), 0.0);
    }

    void appShares() {
        Store store(folder);
        QVERIFY(store.appShares().isEmpty());
        const QDateTime t = platform.clock().now();
        Dictation noBundle = dictation(QStringLiteral("a b c"), t, 5, QStringLiteral("Slack"));
        noBundle.bundleID = QString();
        Dictation withBundle = dictation(QStringLiteral("d"), t, 5, QStringLiteral("Slack"));
        withBundle.bundleID = QStringLiteral("com.slack.Slack");
        store.setDictations({noBundle, dictation(QStringLiteral("e f g h"), t), withBundle,
                             dictation(QString(), t, 5, QStringLiteral("Vide"))});
        const QList<AppShare> shares = store.appShares();
        QCOMPARE(shares.size(), 3);
        QCOMPARE(shares.at(0).name, QStringLiteral("Slack"));
        QCOMPARE(shares.at(0).bundleID, std::optional(QStringLiteral("com.slack.Slack")));
        QCOMPARE(shares.at(0).share, 0.5);
        QCOMPARE(shares.at(1).name, QStringLiteral("Firefox"));
        QCOMPARE(shares.at(2).share, 0.0);
    }

    void pruneAudioDropsOldRecordingsOnly() {
        Store store(folder);
        const QDateTime now = platform.clock().now();
        auto withAudio = [&](const QString& text, const QDateTime& date) {
            Dictation d = dictation(text, date);
            d.audioFile = uuidText(d.id) + QStringLiteral(".wav");
            writeAll(store.audioFolder() + "/" + *d.audioFile, "RIFF");
            return d;
        };
        const Dictation old = withAudio(QStringLiteral("vieux mot"), now.addDays(-31));
        const Dictation edge = withAudio(QStringLiteral("juste"), now.addSecs(-2592000));
        const Dictation recent = withAudio(QStringLiteral("récent"), now.addDays(-29));
        store.setDictations({recent, edge, old});
        QCOMPARE(store.audioURL(old), std::optional(store.audioFolder() + "/" + *old.audioFile));

        store.pruneAudio();
        store.ioQueue().sync([] {});
        QVERIFY(!store.dictations().at(2).audioFile);
        QCOMPARE(store.dictations().at(2).finalText, old.finalText);
        QVERIFY(!QFile::exists(store.audioFolder() + "/" + *old.audioFile));
        QVERIFY(!store.audioURL(store.dictations().at(2)));
        QCOMPARE(store.dictations().at(1), edge); // exactly 30 days is kept
        QCOMPARE(store.dictations().at(0), recent);
        QVERIFY(store.audioURL(recent));
        QCOMPARE(store.totalWords(), 4);
        QVERIFY(store.pendingFiles().contains("history.json"));
    }

    void audioURLNeedsTheFile() {
        Store store(folder);
        Dictation d = dictation(QStringLiteral("a"), platform.clock().now());
        QVERIFY(!store.audioURL(d));
        d.audioFile = QStringLiteral("absent.wav");
        QVERIFY(!store.audioURL(d));
    }

    void clearHistoryKeepsTheDictionary() {
        Store store(folder);
        Dictation d = dictation(QStringLiteral("a"), platform.clock().now());
        d.audioFile = QStringLiteral("a.wav");
        writeAll(store.audioFolder() + "/a.wav", "RIFF");
        store.add(d);
        store.addFix(CorrectionRecord{.appName = QStringLiteral("x")});
        store.setWords({QStringLiteral("Ombry")});
        store.setSnippets({Snippet{.trigger = "t", .text = "x"}});
        store.clearHistory();
        QVERIFY(store.dictations().isEmpty() && store.fixes().isEmpty());
        QVERIFY(!QFile::exists(store.audioFolder() + "/a.wav"));
        QCOMPARE(store.totalWords(), 0);
        QCOMPARE(store.words().size(), 1);
        QCOMPARE(store.snippets().size(), 1);
    }

    void eraseEverything() {
        writeAll(path("keys.json"), "{}");
        writeAll(path("journal.log"), "x\n");
        writeAll(path("history.json.damaged"), "[");
        Store store(folder);
        store.setWords({QStringLiteral("Ombry")});
        store.addCost(1);
        writeAll(store.audioFolder() + "/a.wav", "RIFF");
        store.eraseEverything();
        QVERIFY(store.words().isEmpty() && store.costs().isEmpty());
        store.ioQueue().sync([] {});
        for (const QString& f : {QStringLiteral("keys.json"), QStringLiteral("journal.log"),
                                 QStringLiteral("history.json.damaged")})
            QVERIFY2(!QFile::exists(path(f)), qPrintable(f));
        QVERIFY(!QFile::exists(store.audioFolder()));
        settle(store);
        for (const QString& f : kFiles)
            QCOMPARE(readAll(path(f)), QByteArray("[]"));
    }
};

QTEST_GUILESS_MAIN(TstStore)
#include "tst_store.moc"
