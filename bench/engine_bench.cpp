// What the program adds around one remote speech call: building the request of a 60-second
// recording (base64 in JSON), sending it through the shared session to a loopback server,
// decoding typical answers, and the clean-up rules applied to the transcript. Prints the
// median of each step in milliseconds, and the memory that the request of a 30-minute
// recording takes, written directly and, for comparison, through a JSON document.
#include "TestHttpServer.h"

#include "audio/AudioRecorder.h"
#include "engines/Cleanup.h"
#include "engines/Deepgram.h"
#include "engines/GeminiSpeech.h"
#include "net/Http.h"
#include "net/OpenRouter.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

using namespace ombry;

namespace {

double medianMs(int runs, const std::function<void()>& step) {
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer t;
        t.start();
        step();
        times.push_back(double(t.nsecsElapsed()) / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void report(const char* what, double ms) {
    std::printf("%-58s %9.3f ms\n", what, ms);
}

// A line "Name:   N kB" of /proc/self/status, in bytes.
qint64 statusBytes(const QByteArray& name) {
    QFile f("/proc/self/status");
    if (!f.open(QIODevice::ReadOnly)) return 0;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith(name + ':'))
            return line.mid(name.size() + 1).trimmed().split(' ')[0].toLongLong() * 1024;
    return 0;
}

// How much the resident memory grows at its peak while `step` runs (the kernel's high-water
// mark is reset first).
qint64 peakGrowth(const std::function<void()>& step) {
    QFile reset("/proc/self/clear_refs");
    if (reset.open(QIODevice::WriteOnly)) reset.write("5");
    reset.close();
    const qint64 before = statusBytes("VmRSS");
    step();
    return statusBytes("VmHWM") - before;
}

// The request as a JSON document holding the base64 as a string, serialised: the way the body
// was made before it was written directly. Kept here as the reference of the comparison.
QByteArray throughDocument(const Http::JsonBody& body) {
    QJsonObject object = body.object;
    QJsonArray messages = object.value("messages").toArray();
    QJsonObject user = messages[1].toObject();
    QJsonArray content = user.value("content").toArray();
    QJsonObject audio = content[0].toObject();
    QJsonObject input = audio.value("input_audio").toObject();
    input.insert("data", QString::fromLatin1(body.binary.toBase64()));
    audio.insert("input_audio", input);
    content[0] = audio;
    user.insert("content", content);
    messages[1] = user;
    object.insert("messages", messages);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray speechLikeWav(int seconds) {
    QByteArray pcm(seconds * AudioRecorder::kBytesPerSecond, '\0');
    for (qsizetype i = 0; i + 1 < pcm.size(); i += 2) {
        const double t = double(i / 2) / AudioRecorder::kSampleRate;
        const auto s = qint16(6000.0 * std::sin(2 * M_PI * 180.0 * t) * std::sin(2 * M_PI * 3 * t));
        pcm[i] = char(s & 0xff);
        pcm[i + 1] = char((s >> 8) & 0xff);
    }
    return AudioRecorder::wav(pcm);
}

const QString kTranscript = QStringLiteral(
    "Bon alors euh je voulais te dire que la réunion de demain est déplacée à quinze heures, "
    "parce que Léa ne peut pas venir le matin. Du coup du coup il faudrait prévenir l'équipe "
    "et réserver la salle du troisième étage, celle avec le grand écran. Tu peux t'en occuper "
    "ou tu préfères que je le fasse ? Et aussi, n'oublie pas d'envoyer le compte rendu de la "
    "semaine dernière, ils l'attendent toujours. Merci beaucoup, à demain.");

QByteArray geminiReply() {
    const QString content =
        QStringLiteral("{\"raw\": \"%1\", \"clean\": \"%2\"}").arg(kTranscript, kTranscript);
    return QJsonDocument(
               QJsonObject{{"id", "gen-1"},
                           {"choices", QJsonArray{QJsonObject{
                                           {"message", QJsonObject{{"role", "assistant"},
                                                                   {"content", content}}}}}},
                           {"usage", QJsonObject{{"cost", 0.00031}, {"total_tokens", 2212}}}})
        .toJson(QJsonDocument::Compact);
}

QByteArray deepgramReply() {
    QJsonArray words;
    for (const QString& w : kTranscript.split(' '))
        words.append(QJsonObject{{"word", w}, {"start", 1.0}, {"end", 1.2}, {"confidence", 0.98}});
    const QJsonObject alternative{
        {"transcript", kTranscript}, {"confidence", 0.97}, {"words", words}};
    const QJsonObject channel{{"alternatives", QJsonArray{alternative}}};
    const QJsonObject results{{"channels", QJsonArray{channel}}};
    return QJsonDocument(QJsonObject{{"results", results}}).toJson(QJsonDocument::Compact);
}

} // namespace

int main(int argc, char** argv) {
    // Settings and journal go to a throw-away folder: the benchmark reads the defaults only.
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", home.filePath("config").toUtf8());
    qputenv("XDG_DATA_HOME", home.filePath("data").toUtf8());
    QCoreApplication app(argc, argv);

    const QByteArray wav = speechLikeWav(60);
    const QString prompt = GeminiSpeech::cleanPrompt("français", {"Ombry", "Léa"}, QString(),
                                                     punctuationSentence(PunctuationLevel::Normal));
    QByteArray wire;
    std::printf("60-second WAV: %lld bytes\n", qlonglong(wav.size()));

    report("request body of a 60 s WAV, written directly (JSON around base64)",
           medianMs(20, [&] { wire = GeminiSpeech::requestBody(prompt, wav, true).serialized(); }));
    report("the same through a JSON document holding the base64 (former way)",
           medianMs(20, [&] { throughDocument(GeminiSpeech::requestBody(prompt, wav, true)); }));
    std::printf("  bytes on the wire: %lld\n", qlonglong(wire.size()));
    if (throughDocument(GeminiSpeech::requestBody(prompt, wav, true)) != wire)
        std::printf("  MISMATCH: the two ways give different bodies\n");

    {
        const QByteArray longWav = speechLikeWav(30 * 60);
        const double file = double(longWav.size());
        const qint64 direct =
            peakGrowth([&] { GeminiSpeech::requestBody(prompt, longWav, true).serialized(); });
        const qint64 document =
            peakGrowth([&] { throughDocument(GeminiSpeech::requestBody(prompt, longWav, true)); });
        std::printf("30-minute WAV: %.1f MB; memory beside it to build its request:\n", file / 1e6);
        std::printf("  written directly %8.1f MB (%.1f x the file, %.1f x with the file)\n",
                    direct / 1e6, direct / file, 1 + direct / file);
        std::printf("  former way       %8.1f MB (%.1f x the file, %.1f x with the file)\n",
                    document / 1e6, document / file, 1 + document / file);
    }

    {
        ombry::test::TestHttpServer server;
        server.on("/api/v1/chat/completions", ombry::test::Reply::json(geminiReply()));
        const QUrl url(server.url().toString() + "/api/v1/chat/completions");
        report(
            "loopback POST of that body through the shared session", medianMs(10, [&] {
                QCoro::waitFor(Http::post(url, wire, {{"Content-Type", "application/json"}}, 30));
            }));
    }

    const QByteArray gemini = geminiReply();
    report("decode a chat reply, cut and read raw/clean", medianMs(200, [&] {
               const QString cut =
                   GeminiSpeech::jsonCut(OpenRouter::firstContent(gemini, true).value_or(""));
               QJsonDocument::fromJson(cut.toUtf8()).object().value("clean").toString();
           }));
    report("read en/fr field by field from a broken answer", medianMs(200, [&] {
               const QString broken = "{\"en\": \"" + kTranscript + "\", \"fr\": \"" + kTranscript;
               GeminiSpeech::field("en", broken);
               GeminiSpeech::field("fr", broken);
           }));
    const QByteArray deepgram = deepgramReply();
    report("decode a Deepgram reply with word timings",
           medianMs(200, [&] { Deepgram::decodeTranscript(deepgram); }));

    const QString excused =
        kTranscript + QStringLiteral(" Je n'ai pas pu entendre la fin de l'audio.");
    report("Hallucination::clean of a 70-word transcript with an excuse",
           medianMs(200, [&] { Hallucination::clean(excused); }));
    report("OpenRouter::alreadyClean",
           medianMs(200, [&] { OpenRouter::alreadyClean(kTranscript); }));
    report("OpenRouter::basicCleanup",
           medianMs(200, [&] { OpenRouter::basicCleanup(kTranscript); }));
    report("OpenRouter::instructions with two dictionary words", medianMs(200, [&] {
               OpenRouter::instructions("français", {"Ombry", "Léa"});
           }));
    return 0;
}
