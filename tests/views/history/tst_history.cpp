// The history: its filters, groups and search index on the model, then the page used as a
// user would (search, copy, open, play, retry, corrections, erase).
#include "../PageTesting.h"
#include "FakePlatform.h"
#include "audio/AudioRecorder.h"
#include "data/Store.h"
#include "views/history/HistoryModel.h"
#include "views/history/HistoryView.h"

#include <QApplication>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

using namespace ombry;

namespace {

QDateTime local(const char* text) {
    return QDateTime::fromString(QLatin1String(text), Qt::ISODate).toUTC();
}

Dictation dictation(const QString& text, const QDateTime& date,
                    const QString& app = QStringLiteral("Firefox"), const QString& raw = {}) {
    return {.date = date,
            .appName = app,
            .finalText = text,
            .rawText = raw.isEmpty() ? text : raw,
            .duration = 6};
}

// A dictation on a Paris date given as "2026-03-15T17:30:00+01:00".
Dictation dictation(const char* text, const char* date, const char* app = "Firefox",
                    const char* raw = "") {
    return dictation(QString::fromUtf8(text), local(date), QString::fromUtf8(app),
                     QString::fromUtf8(raw));
}

// The texts of the rows, headers as "# title".
QStringList rows(const HistoryListModel& m) {
    QStringList out;
    for (int i = 0; i < m.rowCount(); ++i) {
        const QModelIndex x = m.index(i);
        out << (x.data(HistoryListModel::KindRole).toInt() == HistoryListModel::HeaderRow
                    ? QStringLiteral("# ") + x.data(HistoryListModel::TitleRole).toString()
                    : x.data(HistoryListModel::TextRole).toString());
    }
    return out;
}

// A second of a 440 Hz tone as a 16 kHz mono WAV file.
QByteArray toneWav() {
    QByteArray pcm(32000, Qt::Uninitialized);
    for (int i = 0; i < 16000; ++i)
        qToLittleEndian<qint16>(qint16(8000 * std::sin(i * 2 * M_PI * 440 / 16000)),
                                pcm.data() + 2 * i);
    return AudioRecorder::wav(pcm);
}

} // namespace

class TstHistory : public QObject {
    Q_OBJECT
    test::FakePlatform platform_;
    std::unique_ptr<QTemporaryDir> dir_;
    std::unique_ptr<Store> store_;

private Q_SLOTS:
    void initTestCase() { qputenv("TZ", "Europe/Paris"); }

    void init() {
        // Sunday 15 March 2026, 18:00 in Paris.
        platform_.clock().setNow(local("2026-03-15T18:00:00+01:00"));
        dir_ = std::make_unique<QTemporaryDir>();
        store_ = std::make_unique<Store>(dir_->filePath(QStringLiteral("Ombry Voice")));
    }
    void cleanup() {
        store_.reset();
        dir_.reset();
    }

    void filtersAndGroups() {
        store_->setDictations({
            dictation("ce soir", "2026-03-15T17:30:00+01:00"),
            dictation("ce matin", "2026-03-15T08:00:00+01:00", "Slack"),
            // Out of order in the list: its day still stands in its place.
            dictation("vendredi", "2026-03-13T09:00:00+01:00"),
            dictation("samedi", "2026-03-14T23:30:00+01:00", "Slack"),
            dictation("dimanche dernier 18:01", "2026-03-08T18:01:00+01:00"),
            dictation("dimanche dernier 17:59", "2026-03-08T17:59:00+01:00", "Slack"),
        });
        HistoryListModel m(*store_);
        QCOMPARE(rows(m), (QStringList{"# dimanche 15 mars 2026", "ce soir", "ce matin",
                                       "# samedi 14 mars 2026", "samedi", "# vendredi 13 mars 2026",
                                       "vendredi", "# dimanche 8 mars 2026",
                                       "dimanche dernier 18:01", "dimanche dernier 17:59"}));
        QCOMPARE(m.recordCount(), 6);
        QCOMPARE(m.appNames(), (QStringList{"Firefox", "Slack"}));

        m.setRange(HistoryRange::Today);
        QCOMPARE(rows(m), (QStringList{"# dimanche 15 mars 2026", "ce soir", "ce matin"}));
        // Seven calendar days back from Sunday 18:00: the Sunday before at 18:01, not 17:59.
        m.setRange(HistoryRange::Week);
        QVERIFY(rows(m).contains(QStringLiteral("dimanche dernier 18:01")));
        QVERIFY(!rows(m).contains(QStringLiteral("dimanche dernier 17:59")));
        m.setApp(QStringLiteral("Slack"));
        QCOMPARE(rows(m), (QStringList{"# dimanche 15 mars 2026", "ce matin",
                                       "# samedi 14 mars 2026", "samedi"}));
        m.setRange(HistoryRange::All);
        QCOMPARE(m.recordCount(), 3);
        m.setApp(QStringLiteral("slack")); // exact
        QCOMPARE(m.rowCount(), 0);
        m.setApp(std::nullopt);

        // The range across the change to summer time (29 March): still calendar days.
        platform_.clock().setNow(local("2026-03-29T18:00:00+02:00"));
        store_->setDictations({dictation("avant", "2026-03-22T17:59:00+01:00"),
                               dictation("juste", "2026-03-22T18:01:00+01:00")});
        m.setRange(HistoryRange::Week);
        QCOMPARE(rows(m), (QStringList{"# dimanche 22 mars 2026", "juste"}));
    }

    void searchFindsRawTextAndIgnoresCase() {
        store_->setDictations({
            dictation("Rendez-vous à Marseille.", "2026-03-15T10:00:00+01:00", "Firefox",
                      "euh rendez-vous à marseille"),
            dictation("Bonjour l'Équipe.", "2026-03-15T09:00:00+01:00", "Slack",
                      "bonjour l'équipe"),
            dictation("Le texte propre.", "2026-03-14T09:00:00+01:00", "Slack",
                      "le texte euh brut"),
        });
        HistoryListModel m(*store_);
        QVERIFY(m.searchReady());
        // Only the raw text holds "brut": the row shows the final text.
        m.setSearch(QStringLiteral("BRUT"));
        QCOMPARE(rows(m), (QStringList{"# samedi 14 mars 2026", "Le texte propre."}));
        m.setSearch(QStringLiteral("éQUIPE"));
        QCOMPARE(rows(m), (QStringList{"# dimanche 15 mars 2026", "Bonjour l'Équipe."}));
        // Typed letter by letter, then erased: each step as a fresh search gives it.
        for (const char* typed : {"e", "eu", "euh", "euh ", "euh r", "euh", "eu", "e", ""}) {
            const QString s = QString::fromUtf8(typed);
            m.setSearch(s);
            int expected = 0;
            for (const Dictation& d : store_->dictations())
                expected += d.finalText.contains(s, Qt::CaseInsensitive) ||
                            d.rawText.contains(s, Qt::CaseInsensitive);
            QVERIFY2(m.recordCount() == expected, qPrintable(s));
        }
        // A search across the two texts of a record finds nothing.
        m.setSearch(QStringLiteral("propre. le"));
        QCOMPARE(m.recordCount(), 0);
        // Filters and search together; a new record found by a search already typed.
        m.setSearch(QStringLiteral("euh"));
        m.setApp(QStringLiteral("Slack"));
        QCOMPARE(rows(m), (QStringList{"# samedi 14 mars 2026", "Le texte propre."}));
        store_->add(dictation("Nouveau.", "2026-03-15T17:00:00+01:00", "Slack", "euh nouveau"));
        QCOMPARE(rows(m), (QStringList{"# dimanche 15 mars 2026", "Nouveau.",
                                       "# samedi 14 mars 2026", "Le texte propre."}));
    }

    void longHistorySearchesBesideThePage() {
        // Over the size searched at once: the index is built off the main thread, and a search
        // typed before it is there gives the same records as one after.
        QList<Dictation> list;
        const QDateTime start = local("2026-03-15T17:00:00+01:00");
        for (int i = 0; i < HistoryListModel::kSyncIndexLimit + 500; ++i) {
            list << dictation(QStringLiteral("dictée %1 %2").arg(i).arg(i % 7 ? "" : "Zèbre"),
                              start.addSecs(-600 * i),
                              i % 3 ? QStringLiteral("Firefox") : QStringLiteral("Slack"));
        }
        store_->setDictations(list);
        HistoryListModel m(*store_);
        m.setSearch(QStringLiteral("zÈbre"));
        const int before = m.recordCount();
        QCOMPARE(before, (HistoryListModel::kSyncIndexLimit + 500 + 6) / 7);
        QTRY_VERIFY(m.searchReady());
        m.setSearch(QStringLiteral("zÈbr"));
        m.setSearch(QStringLiteral("zÈbre"));
        QCOMPARE(m.recordCount(), before);
        m.setSearch(QStringLiteral("dictée 12"));
        QCOMPARE(m.recordCount(), 1 + 10 + 100); // 12, 120-129, 1200-1299
        // Dictations landing while the index stands are found at once, before it is built
        // again; past a few dozen it is built again, and searches stay right meanwhile.
        m.setSearch(QStringLiteral("zÈbre"));
        for (int i = 1; i <= 3; ++i)
            store_->add(dictation(QStringLiteral("nouveau zèbre %1").arg(i), start.addSecs(i)));
        QVERIFY(m.searchReady());
        QCOMPARE(m.recordCount(), before + 3);
        QCOMPARE(m.index(1).data(HistoryListModel::TextRole).toString(),
                 QStringLiteral("nouveau zèbre 3"));
        m.setSearch(QStringLiteral("zÈbre 2"));
        QCOMPARE(m.recordCount(), 1);
        // A record behind them that changes its text (a failed dictation tried again) is found
        // by its new text.
        Dictation retried = store_->dictations().at(4);
        retried.finalText = QStringLiteral("girafe");
        store_->update(retried);
        m.setSearch(QStringLiteral("girafe"));
        QCOMPARE(m.recordCount(), 1);
        QTRY_VERIFY(m.searchReady());
        for (int i = 4; i <= HistoryListModel::kUnindexedLimit + 4; ++i)
            store_->add(dictation(QStringLiteral("autre %1").arg(i), start.addSecs(i)));
        QVERIFY(!m.searchReady());
        m.setSearch(QStringLiteral("zÈbre"));
        QCOMPARE(m.recordCount(), before + 3);
        QTRY_VERIFY(m.searchReady());
        m.setSearch(QStringLiteral("zÈbr"));
        QCOMPARE(m.recordCount(), before + 3);
        store_->setDictations(list);
        m.setSearch(QStringLiteral("dictée 12"));
        QTRY_VERIFY(m.searchReady());
        m.setApp(QStringLiteral("Slack"));
        int slack = 0;
        for (int i = 0; i < list.size(); ++i)
            slack += i % 3 == 0 && list.at(i).finalText.contains(QStringLiteral("dictée 12"));
        QCOMPARE(m.recordCount(), slack);
    }

    void pageAsAUserUsesIt() {
        Dictation kept = dictation("Envoie le rapport à Claire.", "2026-03-15T11:00:00+01:00",
                                   "Thunderbird", "euh envoie le rapport à claire");
        const auto keepAudio = [this](Dictation& d, const QString& name) {
            d.audioFile = name;
            QFile f(store_->audioFolder() + u'/' + name);
            return f.open(QIODevice::WriteOnly) && f.write(toneWav()) > 0;
        };
        QVERIFY(keepAudio(kept, kept.id.toString(QUuid::WithoutBraces).toUpper() + ".wav"));
        store_->setDictations({kept, dictation("Réunion jeudi.", "2026-03-14T09:00:00+01:00")});
        store_->setFixes({CorrectionRecord{.appName = QStringLiteral("Slack"),
                                           .action = QStringLiteral("Corriger"),
                                           .original = QStringLiteral("je vous est écrit"),
                                           .result = QStringLiteral("je vous ai écrit"),
                                           .fixes = {Fix{}, Fix{}}}});
        store_->setWords({QStringLiteral("Ombry")});

        HistoryView page(*store_);
        page.resize(1000, 700);
        page.show();
        QVERIFY(QTest::qWaitForWindowExposed(&page));
        QTreeView& list = page.list();
        HistoryListModel& model = page.model();

        // Typing in the search field narrows the list at once.
        QTest::keyClicks(&page.searchField(), QStringLiteral("rapport"));
        QCOMPARE(rows(model),
                 (QStringList{"# dimanche 15 mars 2026", "Envoie le rapport à Claire."}));
        QCOMPARE(model.index(1).data(HistoryListModel::WordsRole).toString(),
                 QStringLiteral("5 mots"));
        QCOMPARE(model.index(1).data(HistoryListModel::SpeedRole).toString(),
                 QStringLiteral("50 mots/min"));

        // "Copier" puts the final text on the clipboard.
        const auto click = [&](int row, HistoryDelegate::Action action) {
            QApplication::processEvents();
            const QRect r = page.delegate().actionRect(list.visualRect(model.index(row)),
                                                       model.index(row), action, list.font());
            if (r.isEmpty()) return false;
            QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, r.center());
            return true;
        };
        QVERIFY(click(1, HistoryDelegate::Copy));
        QCOMPARE(platform_.clipboard().text().value_or(QString()),
                 QStringLiteral("Envoie le rapport à Claire."));

        // The disclosure opens the row on the raw text: it grows.
        const int closed = list.visualRect(model.index(1)).height();
        QVERIFY(click(1, HistoryDelegate::Disclose));
        QVERIFY(model.index(1).data(HistoryListModel::ExpandedRole).toBool());
        QTRY_VERIFY(list.visualRect(model.index(1)).height() > closed);

        // "Rejouer" plays the kept recording as PCM.
        QVERIFY(click(1, HistoryDelegate::Play));
        QTRY_COMPARE(platform_.audio().played.size(), 1);
        QCOMPARE(platform_.audio().played.first().second, 16000);
        QCOMPARE(platform_.audio().played.first().first.size(), 32000);
        // Played again: what plays stops first, then it starts over.
        QCOMPARE(platform_.audio().stops, 1);
        QVERIFY(click(1, HistoryDelegate::Play));
        QCOMPARE(platform_.audio().stops, 2);
        QTRY_COMPARE(platform_.audio().played.size(), 2);
        // Once the recording is pruned, the button is gone.
        QFile::remove(*store_->audioURL(kept));
        QVERIFY(!click(1, HistoryDelegate::Play));

        // Erasing the search shows everything; the application menu filters.
        page.searchField().clear();
        QCOMPARE(model.recordCount(), 2);
        auto* apps = page.findChild<QComboBox*>(QStringLiteral("historyApps"));
        const int at = apps->findText(QStringLiteral("Thunderbird"));
        apps->setCurrentIndex(at);
        Q_EMIT apps->activated(at);
        QCOMPARE(model.recordCount(), 1);
        apps->setCurrentIndex(0);
        Q_EMIT apps->activated(0);

        // A failed dictation shows its error and its length, and "Réessayer" while its
        // recording is kept, which hands its id over; it has no text to copy.
        Dictation failed = dictation(QString(), local("2026-03-15T12:00:00+01:00"));
        failed.failure = QStringLiteral("Local : erreur 0 langue non disponible");
        failed.duration = 75;
        QVERIFY(keepAudio(failed, QStringLiteral("échec.wav")));
        store_->add(failed);
        QCOMPARE(model.index(1).data(HistoryListModel::TextRole).toString(), *failed.failure);
        QCOMPARE(model.index(1).data(HistoryListModel::WordsRole).toString(),
                 QStringLiteral("1 min 15 s"));
        QVERIFY(!click(1, HistoryDelegate::Copy));
        std::optional<QUuid> retried;
        page.onRetry = [&retried](const QUuid& id) { retried = id; };
        QVERIFY(click(1, HistoryDelegate::Retry));
        QCOMPARE(retried, std::optional(failed.id));

        const auto press = [&page](const QString& text) {
            QTest::mouseClick(test::buttonWithText(&page, text), Qt::LeftButton);
        };
        // Corrections: the result is shown and copied, the original under the disclosure.
        press(QStringLiteral("Corrections"));
        QCOMPARE(rows(model), (QStringList{"# dimanche 15 mars 2026", "je vous ai écrit"}));
        QCOMPARE(model.index(1).data(HistoryListModel::FixesRole).toString(),
                 QStringLiteral("2 corrections"));
        QVERIFY(click(1, HistoryDelegate::Copy));
        QCOMPARE(platform_.clipboard().text().value_or(QString()),
                 QStringLiteral("je vous ai écrit"));
        QVERIFY(!click(1, HistoryDelegate::Play));

        // "Tout effacer" asks first; cancelling keeps everything.
        press(QStringLiteral("Tout effacer"));
        press(QStringLiteral("Annuler"));
        QCOMPARE(store_->fixes().size(), 1);
        press(QStringLiteral("Tout effacer"));
        press(QStringLiteral("Effacer"));
        QVERIFY(store_->dictations().isEmpty() && store_->fixes().isEmpty());
        QCOMPARE(store_->words(), QStringList{QStringLiteral("Ombry")});
        QVERIFY(page.findChild<QLabel*>(QStringLiteral("historyEmpty"))->isVisible());
        QVERIFY(!test::buttonWithText(&page, QStringLiteral("Tout effacer"))->isEnabled());

        // A dictation landing while the page is open appears in it.
        press(QStringLiteral("Dictées"));
        store_->add(dictation("Toute nouvelle.", "2026-03-15T17:59:00+01:00"));
        QCOMPARE(rows(model), (QStringList{"# dimanche 15 mars 2026", "Toute nouvelle."}));
        QVERIFY(list.isVisible());
    }
};

QTEST_MAIN(TstHistory)
#include "tst_history.moc"
