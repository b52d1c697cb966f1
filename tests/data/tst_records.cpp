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
    return {.id = kId, .date = kDate, .appName = "Firefox", .finalText = "à tous", .duration = 2.5};
}

QByteArray withDictation(const char* member) {
    return QByteArray(R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"
                      R"("date":"2026-03-14T09:26:53Z","appName":"Firefox",)"
                      R"("finalText":"a b","rawText":"a b","duration":1)") +
           member + "}]";
}

} // namespace

class TstRecords : public QObject {
    Q_OBJECT
    test::FakePlatform platform;

private Q_SLOTS:
    void recordsRoundTrip() {
        Dictation d = sampleDictation();
        d.date = kDate.addMSecs(640); // sub-second parts are not kept
        const QByteArray file = encodeList(QList{d});
        QVERIFY(file.startsWith(R"([{"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F",)"));
        QVERIFY(file.contains(R"("date":"2026-03-14T09:26:53Z")"));
        QVERIFY(!file.contains("bundleID") && !file.contains("audioFile") && !file.contains('\n'));
        QCOMPARE(decodeList<Dictation>(file), std::optional(QList{sampleDictation()}));

        const Fix fix{.id = kId, .original = "a", .correction = "à", .kind = "accord"};
        const CorrectionRecord record{.date = kDate, .appName = "x", .fixes = {fix, fix}};
        QCOMPARE(decodeList<CorrectionRecord>(encodeList(QList{record})),
                 std::optional(QList{record}));
    }

    // Written here and read by Qt's parser; written by Qt and read here.
    void awkwardTextsSurviveBothWays_data() {
        QTest::addColumn<QString>("text");
        QTest::newRow("quotes, backslashes") << QStringLiteral("\"C:\\dossier\\\" $1 \\n");
        QTest::newRow("controls") << QString::fromUtf16(u"a\u0001b\tc\nd\re\u001Ff\u007F");
        QTest::newRow("emoji") << QString::fromUtf16(u"👨‍👩‍👧 ok 🇫🇷");
        QTest::newRow("line separators") << QString::fromUtf16(u"a\u2028b\u2029c\u0085");
    }
    void awkwardTextsSurviveBothWays() {
        QFETCH(QString, text);
        Dictation d = sampleDictation();
        d.finalText = text;
        d.bundleID = text;
        const QJsonDocument parsed = QJsonDocument::fromJson(encodeList(QList{d}));
        QVERIFY(parsed.isArray());
        QCOMPARE(Dictation::fromJson(parsed.array().at(0)), std::optional(d));
        const QByteArray theirs = QJsonDocument(QJsonArray{d.toJson()}).toJson();
        QCOMPARE(decodeList<Dictation>(theirs), std::optional(QList{d}));
        QCOMPARE(decodeWords(encodeWords({text})), std::optional(QStringList{text}));
    }

    void decoding_data() {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<bool>("decodes");
        QTest::newRow("valid") << withDictation("") << true;
        QTest::newRow("null optional is absent") << withDictation(R"(,"bundleID":null)") << true;
        QTest::newRow("unknown key") << withDictation(R"(,"x":{"a":[1,true,null]})") << true;
        QTest::newRow("date with offset")
            << withDictation(R"(,"date":"2026-03-14T10:26:53+01:00")") << true;
        QTest::newRow("mistyped optional") << withDictation(R"(,"audioFile":3)") << false;
        QTest::newRow("null required") << withDictation(R"(,"appName":null)") << false;
        QTest::newRow("id not a UUID") << withDictation(R"(,"id":"E621E1F8")") << false;
        QTest::newRow("date without zone")
            << withDictation(R"(,"date":"2026-03-14T09:26:53")") << false;
        QTest::newRow("truncated") << withDictation("").chopped(4) << false;
        QTest::newRow("object, not array") << QByteArray(R"({"a":1})") << false;
        QTest::newRow("not UTF-8") << QByteArray("[\"caf\xe9\"]") << false;
    }
    void decoding() {
        QFETCH(QByteArray, data);
        QFETCH(bool, decodes);
        const auto list = decodeList<Dictation>(data);
        QCOMPARE(list.has_value(), decodes);
        if (!decodes) return;
        QCOMPARE(list->first().id, kId);
        QCOMPARE(list->first().date, kDate);
        QVERIFY(!list->first().bundleID);
    }

    void oneBadObjectFailsTheWholeList() {
        QJsonObject bad = sampleDictation().toJson();
        bad.remove(QLatin1String("finalText"));
        const QJsonArray list{sampleDictation().toJson(), bad, sampleDictation().toJson()};
        QVERIFY(!decodeList<Dictation>(QJsonDocument(list).toJson()));
        // A fix inside a correction record is held to the same rules.
        QJsonObject record = CorrectionRecord{.appName = QStringLiteral("x")}.toJson();
        record.insert(QLatin1String("fixes"), QJsonArray{QJsonObject{{"id", uuidText(kId)}}});
        QVERIFY(!decodeList<CorrectionRecord>(QJsonDocument(QJsonArray{record}).toJson()));
        QVERIFY(!decodeWords(R"(["a",2])"));
    }

    void wordCount_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("words");
        QTest::newRow("blanks only") << QStringLiteral(" \t\n ") << 0;
        QTest::newRow("runs, line feed, tab") << QStringLiteral("  un   deux\ntrois\t") << 3;
        QTest::newRow("CR LF, lone CR") << QStringLiteral("un\r\ndeux\rtrois") << 3;
        QTest::newRow("NEL, LS, PS") << QString::fromUtf16(u"a\u0085b\u2028c\u2029d") << 4;
        QTest::newRow("emoji sequence") << QString::fromUtf16(u"👨‍👩‍👧 🇫🇷") << 2;
        QTest::newRow("mark on a blank") << QString::fromUtf16(u"a \u0301b") << 2;
        QTest::newRow("decomposed accent") << QString::fromUtf16(u"e\u0301te\u0301 chaud") << 2;
    }
    void wordCount() {
        QFETCH(QString, text);
        QFETCH(int, words);
        QCOMPARE(ombry::wordCount(text), words);
    }

    void wordsPerMinuteRoundsHalfUp() {
        const auto wpm = [](double duration) {
            return Dictation{.finalText = QStringLiteral("mot"), .duration = duration}
                .wordsPerMinute();
        };
        QCOMPARE((QList<int>{wpm(0), wpm(-3), wpm(24), wpm(25)}), (QList<int>{0, 0, 3, 2}));
    }
};

QTEST_GUILESS_MAIN(TstRecords)
#include "tst_records.moc"
