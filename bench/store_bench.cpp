// Loads a store of 100,000 dictations, adds to it and merges what another run wrote meanwhile,
// printing the times and the peak memory.
//   store_bench [count]
#include "data/ListMerge.h"
#include "data/Records.h"
#include "data/Store.h"
#include "platform/Paths.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTextStream>
#include <ctime>
#include <sys/resource.h>

using namespace ombry;

namespace {

const QStringList kWords =
    QStringLiteral(
        "je voudrais que tu envoies le rapport à l'équipe avant midi parce que le client attend "
        "une réponse rapide sur le budget et les délais du projet nous avons aussi besoin "
        "d'une réunion jeudi pour parler de la nouvelle version de l'application qui doit sortir "
        "en avril n'oublie pas de relire la présentation et de corriger les fautes dans le "
        "deuxième paragraphe merci beaucoup à demain bonne journée")
        .split(u' ');

const QStringList kApps = {QStringLiteral("Firefox"),  QStringLiteral("Thunderbird"),
                           QStringLiteral("Slack"),    QStringLiteral("Visual Studio Code"),
                           QStringLiteral("Terminal"), QStringLiteral("LibreOffice Writer"),
                           QStringLiteral("Discord"),  QStringLiteral("Inconnue")};

QString sentence(QRandomGenerator& rng) {
    const int n = 5 + int(rng.bounded(80));
    QString text;
    for (int i = 0; i < n; ++i) {
        if (i) text += (rng.bounded(12) == 0) ? QStringLiteral(", ") : QStringLiteral(" ");
        text += kWords.at(int(rng.bounded(kWords.size())));
    }
    text[0] = text[0].toUpper();
    return text + u'.';
}

QList<Dictation> makeHistory(int count) {
    QRandomGenerator rng(42);
    QList<Dictation> list;
    list.reserve(count);
    // Newest first, a few minutes apart, over the last years.
    QDateTime date = QDateTime::currentDateTimeUtc();
    for (int i = 0; i < count; ++i) {
        Dictation d;
        d.date = date;
        date = date.addSecs(-60 - qint64(rng.bounded(1200)));
        const int app = int(rng.bounded(kApps.size()));
        d.appName = kApps.at(app);
        if (d.appName != u"Inconnue") d.bundleID = QStringLiteral("org.example.app%1").arg(app);
        d.finalText = sentence(rng);
        d.rawText = QStringLiteral("euh ") + d.finalText;
        d.duration = 2 + rng.bounded(40.0);
        if (i < 3000) d.audioFile = uuidText(d.id) + QStringLiteral(".wav");
        list.append(std::move(d));
    }
    return list;
}

long peakRssKb() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 100000;
    QTextStream out(stdout);

    QTemporaryDir dir;
    {
        const QByteArray json = encodeList(makeHistory(count));
        Paths::writeFileAtomically(dir.path() + QStringLiteral("/history.json"), json);
        out << "history.json: " << count << " dictations, " << json.size() / 1024 << " KiB\n";
    }

    QElapsedTimer timer;
    {
        QFile file(dir.path() + QStringLiteral("/history.json"));
        file.open(QIODevice::ReadOnly);
        timer.start();
        const QByteArray bytes = file.readAll();
        const auto list = decodeList<Dictation>(bytes);
        out << "decode alone: " << QString::number(timer.nsecsElapsed() / 1e6, 'f', 1) << " ms\n";
        timer.restart();
        qint64 words = 0;
        for (const Dictation& d : *list)
            words += wordCount(d.finalText);
        out << "word count alone: " << QString::number(timer.nsecsElapsed() / 1e6, 'f', 1)
            << " ms\n";
    }

    timer.restart();
    Store store(dir.path());
    const double loadMs = timer.nsecsElapsed() / 1e6;
    out << "load + statistics: " << QString::number(loadMs, 'f', 1) << " ms ("
        << store.dictations().size() << " dictations, " << store.totalWords() << " words)\n";

    QRandomGenerator rng(7);
    constexpr int kAdds = 200;
    timer.restart();
    for (int i = 0; i < kAdds; ++i) {
        Dictation d;
        d.appName = kApps.at(int(rng.bounded(kApps.size())));
        d.finalText = sentence(rng);
        d.rawText = d.finalText;
        d.duration = 5;
        store.add(d);
    }
    const double addMs = timer.nsecsElapsed() / 1e6 / kAdds;
    out << "add (mean of " << kAdds << "): " << QString::number(addMs, 'f', 3) << " ms\n";

    timer.restart();
    for (int i = 0; i < 50; ++i)
        store.rebuildStats();
    out << "statistics rebuild alone (mean of 50): "
        << QString::number(timer.nsecsElapsed() / 1e6 / 50, 'f', 3) << " ms\n";

    timer.restart();
    store.flush();
    out << "flush: " << QString::number(timer.nsecsElapsed() / 1e6, 'f', 1) << " ms\n";

    // Another run (a command-line mode beside the desktop program) added a dictation and
    // deleted one meanwhile; this run did the same on its side.
    {
        const QList<Dictation> base = store.dictations();
        QList<Dictation> disk = base, ours = base;
        disk.prepend(Dictation{.finalText = QStringLiteral("de l'autre")});
        disk.removeAt(count / 2);
        ours.prepend(Dictation{.finalText = QStringLiteral("d'ici")});
        ours.removeAt(count / 3);
        // The time of this thread on a processor too: on a shared machine the wall clock also
        // counts the turns of others.
        const auto cpuMs = [] {
            timespec t{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
            return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
        };
        double best = 1e9, bestCpu = 1e9;
        qsizetype size = 0;
        for (int run = 0; run < 5; ++run) {
            timer.restart();
            const double cpuStart = cpuMs();
            size = mergedLists(ours, base, disk, true).size();
            best = std::min(best, timer.nsecsElapsed() / 1e6);
            bestCpu = std::min(bestCpu, cpuMs() - cpuStart);
        }
        out << "merge alone (" << size
            << " dictations, best of 5): " << QString::number(best, 'f', 1)
            << " ms (on a processor " << QString::number(bestCpu, 'f', 1) << " ms)\n";
        Paths::writeFileAtomically(dir.path() + QStringLiteral("/history.json"), encodeList(disk));
        store.add(Dictation{.finalText = QStringLiteral("encore d'ici")});
        timer.restart();
        store.flush();
        out << "flush merging the other run's file: "
            << QString::number(timer.nsecsElapsed() / 1e6, 'f', 1) << " ms\n";
    }
    out << "peak RSS: " << peakRssKb() / 1024 << " MiB\n";
    return 0;
}
