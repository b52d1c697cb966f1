// The figures of the desktop program on Wayland, on a headless KDE Plasma 5.27 (kwin_wayland,
// its XWayland and its portals on a private bus), the real program (ombry-voice) dictating
// into a Qt field on Wayland, its dictation key held through the RemoteDesktop portal, with a
// private PulseAudio microphone fed with espeak-ng speech and a loopback server that answers
// at once:
//
//   1. the key press to the first captured sample: from the wall-clock time the portal key
//      press was sent to the journal's time of the first piece of sound, less the sound that
//      piece holds;
//   2. the key release to the posted paste: the program's own figure (its "collé" line), and
//      the wall-clock time from the release sent to the text in the field;
//   3. the CPU time and resident memory of the program left idle for 10 s after the
//      dictations.
//
// Usage: wayland_bench [dictations] (5 by default). Skips, with exit status 0, where
// kwin_wayland, the KDE portal or pulseaudio is not installed.
#include "DesktopProgram.h"
#include "KdeSession.h"
#include "ProcessSample.h"
#include "Services.h"
#include "SoundServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <cstdio>
#include <optional>
#include <unistd.h>
#include <vector>

using namespace ombry;
using namespace ombry::test;
using ombry::bench::ProcessSample;
using ombry::bench::sampleProcess;

namespace {

const QString kSaid = QStringLiteral("Euh, déjà, bonjour à l'équipe.");
const QString kHeard = QStringLiteral("euh déjà bonjour à l'équipe");
const QString kWritten = QStringLiteral("Déjà, bonjour à l'équipe !");
const QList<int> kShortcutDown{29, 56, 32}; // Ctrl, Alt, D
const QList<int> kShortcutUp{32, 56, 29};

// One figure over the dictations: its median and range.
struct Series {
    const char* name;
    std::vector<double> values;

    void row() const {
        std::vector<double> v = values;
        std::sort(v.begin(), v.end());
        if (v.empty()) {
            std::printf("  %s %10s\n", padded(name).constData(), "—");
            return;
        }
        std::printf("  %s %10.1f %10.1f %10.1f\n", padded(name).constData(), v[v.size() / 2],
                    v.front(), v.back());
    }
    // The label in a column of its own, counted in characters rather than bytes.
    static QByteArray padded(const char* label) {
        return QString::fromUtf8(label).leftJustified(46).toUtf8();
    }
};

void wait(int ms) {
    (void)QTest::qWaitFor([] { return false; }, ms);
}

// The program's own time from the release to the paste, in the "collé" line.
std::optional<double> ownPasteMs(const QString& line) {
    static const QRegularExpression seconds(QStringLiteral(", ([0-9.]+) s après la touche"));
    const QRegularExpressionMatch m = seconds.match(line);
    if (!m.hasMatch()) return std::nullopt;
    return m.captured(1).toDouble() * 1000.0;
}

// The sound held by the first piece of a capture, in its journal line.
std::optional<double> firstPieceMs(const DesktopProgram& program, int from) {
    static const QRegularExpression length(QStringLiteral("audio: premier morceau, ([0-9]+) ms"));
    for (const QString& line : program.journal().mid(from)) {
        const QRegularExpressionMatch m = length.match(line);
        if (m.hasMatch()) return m.captured(1).toDouble();
    }
    return std::nullopt;
}

} // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    if (!KdeSession::installed()) {
        std::printf("kwin_wayland ou xdg-desktop-portal-kde absent: mesure sautée\n");
        return 0;
    }
    if (!SoundServer::installed()) {
        std::printf("pulseaudio n'est pas installé: mesure sautée\n");
        return 0;
    }
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsEmpty("OMBRY_BINARY")) qputenv("OMBRY_BINARY", OMBRY_PROGRAM_PATH);

    KdeSession kde;
    if (!kde.start()) {
        std::fprintf(stderr, "pas de bureau KDE: %s\n", qPrintable(kde.error()));
        return 1;
    }
    // The sound server takes XDG_RUNTIME_DIR for itself: the compositor by its whole path.
    qputenv("WAYLAND_DISPLAY",
            QFile::encodeName(QDir(qEnvironmentVariable("XDG_RUNTIME_DIR"))
                                  .filePath(qEnvironmentVariable("WAYLAND_DISPLAY"))));
    SoundServer sound;
    if (!sound.start()) {
        std::fprintf(stderr, "pas de serveur de son: %s\n", qPrintable(sound.error()));
        return 1;
    }
    QTemporaryDir files;
    const QString speech = files.filePath(QStringLiteral("phrase.wav"));
    if (!SoundServer::makeSpeech(kSaid, QStringLiteral("fr"), speech)) {
        std::fprintf(stderr, "espeak-ng ou sox manque\n");
        return 1;
    }

    Services services;
    services.transcript = kHeard;
    services.textModel = [](const QString&, const QString&) { return kWritten; };
    DesktopProgram program;
    // A user past the first-launch steps, whose live microphone meter would otherwise be
    // measured as the idle program's work.
    program.writeSettings(QJsonObject{{"microphoneUID", "testmic"},
                                      {"onboarded", true},
                                      {"language", "fr"},
                                      {"ownKeyMode", true},
                                      {"transcriptionEngine", "gemini"},
                                      {"rewriteEngine", "openRouter"},
                                      {"sounds", false}});
    program.setEnv(QStringLiteral("OPENROUTER_API_KEY"), QStringLiteral("sk-or-bench"));
    program.setEnv(QStringLiteral("OMBRY_OPENROUTER_URL"), services.url());
    program.setEnv(QStringLiteral("OMBRY_LANGUAGETOOL_URL"), services.url());
    program.setEnv(QStringLiteral("OMBRY_SITE_URL"), {});
    for (const char* name :
         {"WAYLAND_DISPLAY", "DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR",
          "XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE", "KDE_SESSION_VERSION", "KDE_FULL_SESSION"})
        program.setEnv(QLatin1String(name), qEnvironmentVariable(name));
    program.setEnv(QStringLiteral("QT_QPA_PLATFORM"), {});

    auto quit = [&](const char* why) {
        std::printf("%s\n%s\n", why, qPrintable(program.journalFrom(0)));
        program.stop();
        sound.stop();
        kde.stop();
        std::fflush(stdout);
        _exit(1);
    };
    if (!program.start()) quit("le programme ne démarre pas");
    if (!program.waitForLine(QStringLiteral("hotkey: raccourci du bureau actif"), 0, 40000))
        quit("le raccourci du bureau n'est pas actif");
    if (!program.waitForLine(QStringLiteral("collage: envoi des touches prêt"), 0, 20000))
        quit("l'envoi des touches n'est pas prêt");
    const std::optional<ProcessSample> started = sampleProcess(program.pid());
    // The user's field, once the program's window is up.
    wait(1500);
    if (!kde.field.open()) quit("pas de champ de texte");

    Series pressToSample{"touche → premier échantillon (journal)", {}};
    Series pressToPiece{"touche → premier morceau reçu (journal)", {}};
    Series ownPaste{"relâchement → collage, temps du programme", {}};
    Series releaseToText{"relâchement → texte dans le champ (horloge)", {}};
    std::printf("== %d dictées sur KDE Plasma (Wayland), « %s »\n", runs, qPrintable(kSaid));
    for (int i = 0; i < runs; ++i) {
        const int mark = program.mark();
        const qsizetype before = kde.field.text().size();
        const std::optional<double> pressed = kde.keysDown(kShortcutDown);
        if (!pressed) quit("le portail n'envoie pas les touches");
        if (!program.waitForLine(QStringLiteral("audio: premier morceau"), mark, 5000))
            quit("pas de son capturé après la touche");
        const std::optional<qint64> piece =
            program.stampOf(QStringLiteral("audio: premier morceau"), mark);
        const std::optional<double> pieceMs = firstPieceMs(program, mark);
        if (!speak(sound, speech)) quit("paplay a échoué");
        const std::optional<double> released = kde.keysUp(kShortcutUp);
        if (!released) quit("le portail n'envoie pas les touches");
        const std::optional<QString> pasted =
            program.waitForLine(QStringLiteral("collé:"), mark, 20000);
        const bool arrived = QTest::qWaitFor(
            [&] { return kde.field.text().size() > before && kde.field.text().endsWith(kWritten); },
            5000);
        if (!pasted || !arrived) quit("le texte n'est pas arrivé dans le champ");
        // The time of the field's last change, now that it holds the whole text.
        const std::optional<qint64> shown = kde.field.waitForText(kde.field.text(), 0);
        if (piece && pieceMs) {
            pressToPiece.values.push_back(double(*piece) - *pressed);
            pressToSample.values.push_back(double(*piece) - *pieceMs - *pressed);
        }
        if (const std::optional<double> own = ownPasteMs(*pasted)) ownPaste.values.push_back(*own);
        if (shown) releaseToText.values.push_back(double(*shown) - *released);
        std::printf("  %d. %s\n", i + 1, qPrintable(*pasted));
        // The clipboard comes back within 2 s of the paste keys; the next press waits for it.
        wait(2500);
    }

    std::printf("\n  %s %s %10s %10s\n", Series::padded("ms").constData(),
                QStringLiteral("médiane").rightJustified(10).toUtf8().constData(), "min", "max");
    for (const Series* s : {&pressToSample, &pressToPiece, &ownPaste, &releaseToText})
        s->row();

    std::printf("\n== programme au repos après les dictées (ombry-voice)\n");
    const std::optional<ProcessSample> rest = sampleProcess(program.pid());
    const int seconds = 10;
    wait(seconds * 1000);
    const std::optional<ProcessSample> after = sampleProcess(program.pid());
    bool ok = started && rest && after;
    if (ok) {
        const double idleCpu = after->cpuMs - rest->cpuMs;
        std::printf("mémoire résidente: %.1f Mo au démarrage, %.1f Mo après les dictées, %.1f Mo "
                    "%d s plus tard (%d fils)\n",
                    started->residentMb, rest->residentMb, after->residentMb, seconds,
                    after->threads);
        std::printf("temps processeur au repos: %.0f ms en %d s (%.2f %%), %lld réveils de fils\n",
                    idleCpu, seconds, idleCpu / (seconds * 10.0), after->switches - rest->switches);
    } else {
        std::printf("le programme n'est plus là\n");
    }
    ok = program.stop() == 0 && ok;
    sound.stop();
    kde.stop();
    std::fflush(stdout);
    return ok ? 0 : 1;
}
