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
        const auto row = [](const char* name, const QStringList& args, int mode,
                            const QStringList& switchArgs) {
            QTest::newRow(name) << (QStringList{"ombry-voice"} + args) << mode << switchArgs;
        };
        row("none", {}, -1, {});
        row("missing argument", {"--test"}, -1, {});
        row("update beats test", {"--test", "x.wav", "--update"}, int(Mode::Update), {});
        row("command needs two", {"--command", "onlyone"}, -1, {});
        row("command short falls through to translate",
            {"--translate", "bonjour", "--command", "x"}, int(Mode::Translate), {"bonjour"});
        row("command", {"--command", "en anglais", "salut"}, int(Mode::Command),
            {"en anglais", "salut"});
        row("first occurrence counts", {"--fasttest", "a.wav", "--fasttest", "b.wav"},
            int(Mode::FastTest), {"a.wav"});
        row("argument may look like a switch", {"--correct", "--icon"}, int(Mode::Correct),
            {"--icon"});
        row("chunktest before fasttest", {"--fasttest", "a", "--chunktest", "b"},
            int(Mode::ChunkTest), {"b"});
        QTest::newRow("program path is searched too")
            << QStringList{"--icon", "out"} << int(Mode::Icon) << QStringList{"out"};
    }
    void precedenceAndArguments() {
        QFETCH(QStringList, args);
        QFETCH(int, mode);
        QFETCH(QStringList, switchArgs);
        const auto sw = findSwitch(args);
        QCOMPARE(sw ? int(sw->mode) : -1, mode);
        if (sw) QCOMPARE(sw->args, switchArgs);
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
