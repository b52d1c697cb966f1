#include "data/Records.h"

#include "FakePlatform.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

using namespace ombry;

namespace {

const QUuid kId = QUuid::fromString(QLatin1String("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"));
const QDateTime kDate = QDateTime::fromString(QStringLiteral("2026-03-14T09:26:53Z"), Qt::ISODate);

Dictation sampleDictation() {
    return Dictation{.id = kId,
                     .date = kDate,
                     .appName = QStringLiteral("Firefox"),
                     .finalText = QStringLiteral("Bonjour à tous."),
                     .rawText = QStringLiteral("euh bonjour à tous"),
                     .duration = 2.5};
}

QByteArray withDictation(const QString& member) {
    return QStringLiteral("[{\"id\":\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\","
                          "\"date\":\"2026-03-14T09:26:53Z\",\"appName\":\"Firefox\","
                          "\"finalText\":\"a b\",\"rawText\":\"a b\",\"duration\":1%1}]")
        .arg(member)
        .toUtf8();
}

} // namespace

class TstRecords : public QObject {
    Q_OBJECT
    test::FakePlatform platform;

private Q_SLOTS:
    void dictationJsonForm() {
        Dictation d = sampleDictation();
        d.date = kDate.addMSecs(640); // sub-second parts are not kept
        const QJsonObject o = d.toJson();
        QCOMPARE(o.value(QLatin1String("id")).toString(),
                 QStringLiteral("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
        QCOMPARE(o.value(QLatin1String("date")).toString(), QStringLiteral("2026-03-14T09:26:53Z"));
        QVERIFY(o.value(QLatin1String("duration")).isDouble());
        QVERIFY(!o.contains(QLatin1String("bundleID")));
        QVERIFY(!o.contains(QLatin1String("audioFile")));

        const QByteArray file = encodeList(QList<Dictation>{d});
        QVERIFY(!file.contains("bundleID") && !file.contains("audioFile"));
        QVERIFY(!file.contains('\n')); // compact
        const auto back = decodeList<Dictation>(file);
        QVERIFY(back);
        QCOMPARE(back->size(), 1);
        QCOMPARE(back->first(), sampleDictation());
        QCOMPARE(Dictation::fromJson(o), std::optional(sampleDictation()));
    }

    void everyRecordRoundTrips() {
        const Fix fix{.id = kId,
                      .original = QStringLiteral("a"),
                      .correction = QStringLiteral("à"),
                      .kind = QStringLiteral("accord")};
        const CorrectionRecord record{.date = kDate,
                                      .appName = QStringLiteral("Ombry Voice"),
                                      .bundleID = QStringLiteral("org.gnome.TextEditor"),
                                      .action = QStringLiteral("Traduire · anglais"),
                                      .original = QStringLiteral("il a"),
                                      .result = QStringLiteral("il à"),
                                      .fixes = {fix, fix}};
        const CorrectionRecord noFixes{.date = kDate, .appName = QStringLiteral("x")};
        const Meeting meeting{.date = kDate,
                              .duration = 3600,
                              .title = QStringLiteral("Point"),
                              .tasks = {QStringLiteral("Relire"), QString()}};
        const CostEntry cost{.date = kDate, .amount = 0.000123};

        QCOMPARE(decodeList<CorrectionRecord>(encodeList(QList{record, noFixes})),
                 std::optional(QList{record, noFixes}));
        QVERIFY(encodeList(QList{noFixes}).contains("\"fixes\":[]"));
        QCOMPARE(decodeList<Meeting>(encodeList(QList{meeting})), std::optional(QList{meeting}));
        QCOMPARE(decodeList<CostEntry>(encodeList(QList{cost})), std::optional(QList{cost}));
        QVERIFY(!encodeList(QList{cost}).contains("\"id\""));
        const Snippet snippet{.trigger = QStringLiteral("sig"), .text = QStringLiteral("A+")};
        QCOMPARE(decodeList<Snippet>(encodeList(QList{snippet})), std::optional(QList{snippet}));
        const Correction rule{.heard = QStringLiteral("ia"), .written = QStringLiteral("IA")};
        QCOMPARE(decodeList<Correction>(encodeList(QList{rule})), std::optional(QList{rule}));
        QCOMPARE(decodeWords(encodeWords({QStringLiteral("Ombry"), QStringLiteral("é\"\\")})),
                 std::optional(QStringList{QStringLiteral("Ombry"), QStringLiteral("é\"\\")}));
        // The QJsonObject form reads the same records.
        QCOMPARE(CorrectionRecord::fromJson(record.toJson()), std::optional(record));
        QCOMPARE(Meeting::fromJson(meeting.toJson()), std::optional(meeting));
    }

    void awkwardTextsSurviveBothWays_data() {
        QTest::addColumn<QString>("text");
        QTest::newRow("quotes and backslashes") << QStringLiteral("\"C:\\dossier\\\" $1 \\n");
        QTest::newRow("controls") << QString::fromUtf16(u"a\u0001b\tc\nd\re\u001Ff\u007F");
        QTest::newRow("emoji") << QString::fromUtf16(u"👨‍👩‍👧 ok 🇫🇷");
        QTest::newRow("line separators") << QString::fromUtf16(u"a\u2028b\u2029c\u0085");
        QTest::newRow("empty") << QString();
    }
    void awkwardTextsSurviveBothWays() {
        QFETCH(QString, text);
        Dictation d = sampleDictation();
        d.finalText = text;
        d.bundleID = text;
        // Written here, read by Qt's parser; written by Qt, read here.
        const QByteArray ours = encodeList(QList{d});
        const QJsonDocument parsed = QJsonDocument::fromJson(ours);
        QVERIFY(parsed.isArray());
        QCOMPARE(Dictation::fromJson(parsed.array().at(0)), std::optional(d));
        const QByteArray theirs = QJsonDocument(QJsonArray{d.toJson()}).toJson();
        QCOMPARE(decodeList<Dictation>(theirs), std::optional(QList{d}));
    }

    void unicodeEscapesDecode() {
        const auto list = decodeWords(QByteArray(R"(["\u00e9\ud83d\ude00\/\b\f"])"));
        QVERIFY(list);
        QCOMPARE(list->first(), QString::fromUtf16(u"é😀/\b\f"));
    }

    void fieldRules_data() {
        QTest::addColumn<QString>("member");
        QTest::addColumn<bool>("decodes");
        QTest::newRow("nothing more") << QString() << true;
        QTest::newRow("null optional") << QStringLiteral(",\"bundleID\":null") << true;
        QTest::newRow("unknown key of any shape")
            << QStringLiteral(",\"extra\":{\"a\":[1,true,null,\"x\"]}") << true;
        QTest::newRow("mistyped optional") << QStringLiteral(",\"audioFile\":3") << false;
        QTest::newRow("null required") << QStringLiteral(",\"appName\":null") << false;
        QTest::newRow("mistyped required") << QStringLiteral(",\"rawText\":[]") << false;
        QTest::newRow("duration as text") << QStringLiteral(",\"duration\":\"1\"") << false;
        QTest::newRow("lower-case id")
            << QStringLiteral(",\"id\":\"e621e1f8-c36c-495a-93fc-0c247a3e6e5f\"") << true;
        QTest::newRow("id not a UUID") << QStringLiteral(",\"id\":\"E621E1F8\"") << false;
        QTest::newRow("date with offset")
            << QStringLiteral(",\"date\":\"2026-03-14T10:26:53+01:00\"") << true;
        QTest::newRow("date without zone")
            << QStringLiteral(",\"date\":\"2026-03-14T09:26:53\"") << false;
        QTest::newRow("date not a date")
            << QStringLiteral(",\"date\":\"2026-02-30T09:26:53Z\"") << false;
        QTest::newRow("date as number") << QStringLiteral(",\"date\":1773480413") << false;
    }
    void fieldRules() {
        QFETCH(QString, member);
        QFETCH(bool, decodes);
        const auto list = decodeList<Dictation>(withDictation(member));
        QCOMPARE(list.has_value(), decodes);
        if (decodes) {
            QCOMPARE(list->first().id, kId);
            QCOMPARE(list->first().date, kDate);
            QVERIFY(!list->first().bundleID);
        }
    }

    void oneBadObjectFailsTheWholeList() {
        Dictation good = sampleDictation();
        QJsonObject bad = good.toJson();
        bad.remove(QLatin1String("finalText"));
        const QByteArray file =
            QJsonDocument(QJsonArray{good.toJson(), bad, good.toJson()}).toJson();
        QVERIFY(!decodeList<Dictation>(file));

        // A fix inside a correction record is held to the same rules.
        QJsonObject record = CorrectionRecord{.appName = QStringLiteral("x")}.toJson();
        record.insert(QLatin1String("fixes"), QJsonArray{QJsonObject{{"id", uuidText(kId)}}});
        QVERIFY(!decodeList<CorrectionRecord>(QJsonDocument(QJsonArray{record}).toJson()));
        record.remove(QLatin1String("fixes"));
        QVERIFY(!decodeList<CorrectionRecord>(QJsonDocument(QJsonArray{record}).toJson()));
        QVERIFY(!decodeWords("[\"a\",2]"));
        QVERIFY(!decodeList<Meeting>(R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
                                     R"("date":"2026-03-14T09:26:53Z","duration":1,"title":"",)"
                                     R"("transcript":"","summary":"","tasks":[1]}])"));
    }

    void brokenJsonFails_data() {
        QTest::addColumn<QByteArray>("data");
        const QByteArray good = withDictation(QString());
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("truncated") << good.left(good.size() - 5);
        QTest::newRow("object, not array") << QByteArray("{\"a\":1}");
        QTest::newRow("trailing garbage") << good + "x";
        QTest::newRow("trailing comma") << QByteArray("[\"a\",]");
        QTest::newRow("leading zero") << withDictation(QStringLiteral(",\"duration\":01"));
        QTest::newRow("bare NaN") << withDictation(QStringLiteral(",\"duration\":NaN"));
        QTest::newRow("single quotes") << QByteArray("['a']");
        QTest::newRow("raw line feed in text") << QByteArray("[\"a\nb\"]");
        QTest::newRow("bad escape") << QByteArray("[\"\\x41\"]");
        QTest::newRow("not UTF-8") << QByteArray("[\"caf\xe9\"]");
    }
    void brokenJsonFails() {
        QFETCH(QByteArray, data);
        QVERIFY(!decodeList<Dictation>(data));
        QVERIFY(!decodeWords(data));
    }

    void emptyListsDecode() {
        QCOMPARE(decodeList<Dictation>(" [ ] \n"), std::optional(QList<Dictation>()));
        QCOMPARE(decodeWords("[]"), std::optional(QStringList()));
        QCOMPARE(encodeList(QList<Meeting>()), QByteArray("[]"));
    }

    void wordCount_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("words");
        QTest::newRow("empty") << QString() << 0;
        QTest::newRow("blanks only") << QStringLiteral(" \t\n ") << 0;
        QTest::newRow("leading, runs, line feed, tab")
            << QStringLiteral("  un   deux\ntrois\t") << 3;
        QTest::newRow("CR LF") << QStringLiteral("un\r\ndeux") << 2;
        QTest::newRow("NEL, LS, PS") << QString::fromUtf16(u"a\u0085b\u2028c\u2029d") << 4;
        QTest::newRow("no-break space") << QString::fromUtf16(u"10\u00A0km") << 2;
        QTest::newRow("punctuation is a word") << QStringLiteral("Bonjour , toi !") << 4;
        QTest::newRow("apostrophe joins") << QString::fromUtf16(u"l’IA c'est") << 2;
        QTest::newRow("emoji sequence") << QString::fromUtf16(u"👨‍👩‍👧 🇫🇷") << 2;
        // A combining mark on a blank belongs to the blank: it starts no word.
        QTest::newRow("mark on a blank") << QString::fromUtf16(u"a \u0301b") << 2;
        QTest::newRow("decomposed accent") << QString::fromUtf16(u"e\u0301te\u0301 chaud") << 2;
        QTest::newRow("ideographic space") << QString::fromUtf16(u"東京\u3000大阪") << 2;
    }
    void wordCount() {
        QFETCH(QString, text);
        QFETCH(int, words);
        QCOMPARE(ombry::wordCount(text), words);
    }

    void wordsPerMinute_data() {
        QTest::addColumn<int>("words");
        QTest::addColumn<double>("duration");
        QTest::addColumn<int>("wpm");
        QTest::newRow("no duration") << 10 << 0.0 << 0;
        QTest::newRow("negative duration") << 10 << -3.0 << 0;
        QTest::newRow("100 words in 30 s") << 100 << 30.0 << 200;
        QTest::newRow("half rounds up") << 1 << 24.0 << 3; // 2.5
        QTest::newRow("below half") << 1 << 25.0 << 2;     // 2.4
    }
    void wordsPerMinute() {
        QFETCH(int, words);
        QFETCH(double, duration);
        QFETCH(int, wpm);
        Dictation d;
        d.finalText = QStringLiteral("mot ").repeated(words);
        d.duration = duration;
        QCOMPARE(d.wordsPerMinute(), wpm);
    }

    void newRecordsGetIdsAndTheClocksDate() {
        const Dictation a, b;
        QVERIFY(!a.id.isNull());
        QVERIFY(a.id != b.id);
        QCOMPARE(a.id.version(), QUuid::Random);
        QCOMPARE(a.date, platform.clock().now());
    }

    void equalityAndHashingCoverEveryField() {
        const CostEntry c1{.date = kDate, .amount = 0.5}, c2{.date = kDate, .amount = 0.5};
        QCOMPARE(c1, c2); // no identity of its own
        QCOMPARE(qHash(c1), qHash(c2));
        Dictation a = sampleDictation(), b = sampleDictation();
        QCOMPARE(qHash(a), qHash(b));
        b.audioFile = QString();
        QVERIFY(a != b); // an empty value is not no value
        b = a;
        b.date = b.date.addSecs(1);
        QVERIFY(a != b);
        Meeting m1{.id = kId, .date = kDate}, m2 = m1;
        m2.tasks = {QStringLiteral("x")};
        QVERIFY(m1 != m2);
    }
};

QTEST_GUILESS_MAIN(TstRecords)
#include "tst_records.moc"
