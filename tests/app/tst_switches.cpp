#include "app/Switches.h"
#include "app/Usage.h"

#include <QTest>

using namespace ombry;

class TstSwitches : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void precedenceAndArguments_data() {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("mode"); // -1: normal start
        QTest::addColumn<QStringList>("switchArgs");
        const auto S = [](std::initializer_list<const char*> l) {
            QStringList r;
            for (auto s : l)
                r << QString::fromUtf8(s);
            return r;
        };
        QTest::newRow("none") << S({"ombry-voice"}) << -1 << QStringList();
        QTest::newRow("missing argument") << S({"ombry-voice", "--test"}) << -1 << QStringList();
        QTest::newRow("update beats test") << S({"ombry-voice", "--test", "x.wav", "--update"})
                                           << int(Mode::Update) << QStringList();
        QTest::newRow("update last still applies")
            << S({"ombry-voice", "--update"}) << int(Mode::Update) << QStringList();
        QTest::newRow("command needs two")
            << S({"ombry-voice", "--command", "onlyone"}) << -1 << QStringList();
        QTest::newRow("command short falls through to translate")
            << S({"ombry-voice", "--translate", "bonjour", "--command", "x"})
            << int(Mode::Translate) << S({"bonjour"});
        QTest::newRow("command") << S({"ombry-voice", "--command", "en anglais", "salut"})
                                 << int(Mode::Command) << S({"en anglais", "salut"});
        QTest::newRow("first occurrence counts")
            << S({"ombry-voice", "--fasttest", "a.wav", "--fasttest", "b.wav"})
            << int(Mode::FastTest) << S({"a.wav"});
        QTest::newRow("argument may look like a switch")
            << S({"ombry-voice", "--correct", "--icon"}) << int(Mode::Correct) << S({"--icon"});
        QTest::newRow("chunktest before fasttest")
            << S({"ombry-voice", "--fasttest", "a", "--chunktest", "b"}) << int(Mode::ChunkTest)
            << S({"b"});
        QTest::newRow("program path is searched too")
            << S({"--icon", "out"}) << int(Mode::Icon) << S({"out"});
    }
    void precedenceAndArguments() {
        QFETCH(QStringList, args);
        QFETCH(int, mode);
        QFETCH(QStringList, switchArgs);
        const auto sw = findSwitch(args);
        if (mode < 0) {
            QVERIFY(!sw.has_value());
            return;
        }
        QVERIFY(sw.has_value());
        QCOMPARE(int(sw->mode), mode);
        QCOMPARE(sw->args, switchArgs);
    }

    // --help and the manual are written from the usage table: a switch missing from it, or
    // documented with another count of arguments, would be told wrong to the user.
    void everySwitchIsDocumented() {
        for (int m = int(Mode::ChunkTest); m <= int(Mode::Help); ++m) {
            const QString name = QLatin1String(switchName(Mode(m)));
            const auto& table = usage::switches();
            const auto entry = std::find_if(table.begin(), table.end(), [&](const auto& e) {
                return QLatin1String(e.name.data(), qsizetype(e.name.size())) == name;
            });
            QVERIFY2(entry != table.end(), qPrintable(name));
            const QString args =
                QString::fromUtf8(entry->args.data(), qsizetype(entry->args.size()));
            QStringList line{QStringLiteral("ombry-voice"), name};
            if (!args.isEmpty()) line += args.split(QLatin1Char(' '));
            const auto sw = findSwitch(line);
            QVERIFY2(sw && int(sw->mode) == m && sw->args.size() == line.size() - 2,
                     qPrintable(name));
        }
    }
};

QTEST_GUILESS_MAIN(TstSwitches)
#include "tst_switches.moc"
