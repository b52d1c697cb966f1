#pragma once

// The remote services of a dictation played by the loopback test server: the speech model
// (an OpenRouter chat whose user message carries the WAV), the text models (rewrite,
// correction) and LanguageTool. Each request is sorted by what it asks for and kept.
#include "DesktopProgram.h"
#include "DesktopSession.h"
#include "SoundServer.h"
#include "TestHttpServer.h"
#include "data/Records.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>
#include <QtEndian>
#include <functional>

namespace ombry::test {

struct Services {
    TestHttpServer server;
    // What the speech model hears in any audio, and the status it answers with.
    QString transcript;
    int speechStatus = 200;
    int speechDelayMs = 0; // how long the speech model takes to answer
    // The answer of a text model to its system prompt and user text.
    std::function<QString(const QString& system, const QString& user)> textModel;
    QJsonArray grammarMatches; // LanguageTool's findings

    QStringList calls;      // "parole", "texte", "grammaire", in the order received
    QList<QByteArray> wavs; // the audio of each speech request
    QStringList texts;      // the user text of each text request
    QStringList checked;    // the text of each LanguageTool request

    Services() {
        server.setHandler([this](const RecordedRequest& r) { return answer(r); });
        reset();
    }

    QString url() const { return server.url().toString(); }

    void reset() {
        transcript.clear();
        speechStatus = 200;
        speechDelayMs = 0;
        textModel = [](const QString&, const QString& user) { return user; };
        grammarMatches = {};
        calls.clear();
        wavs.clear();
        texts.clear();
        checked.clear();
    }

    // The length in seconds of the PCM of a 16 kHz mono 16-bit WAV.
    static double seconds(const QByteArray& wav) {
        return wav.size() <= 44 ? 0.0 : double(wav.size() - 44) / 32000.0;
    }

    Reply answer(const RecordedRequest& r) {
        if (r.method != "POST") return Reply::text("", 200); // the connection warm-ups
        if (r.path == QLatin1String("/v2/check")) {
            calls << "grammaire";
            checked << r.formValue("text");
            return Reply::json(QJsonObject{{"matches", grammarMatches}});
        }
        if (r.path != QLatin1String("/api/v1/chat/completions")) return Reply::text("", 404);
        const QJsonArray messages = r.json().value("messages").toArray();
        const QJsonValue user =
            messages.size() > 1 ? messages[1].toObject().value("content") : QJsonValue();
        if (user.isArray()) {
            calls << "parole";
            for (const QJsonValue& part : user.toArray()) {
                const QJsonObject audio = part.toObject().value("input_audio").toObject();
                if (!audio.isEmpty())
                    wavs << QByteArray::fromBase64(audio.value("data").toString().toLatin1());
            }
            if (speechStatus != 200)
                return Reply::json(QJsonObject{{"error", QJsonObject{{"message", "panne"}}}},
                                   speechStatus);
            return chatCompletion(transcript).after(speechDelayMs);
        }
        calls << "texte";
        texts << user.toString();
        const QString system =
            messages.isEmpty() ? QString() : messages[0].toObject().value("content").toString();
        return chatCompletion(textModel(system, user.toString()));
    }
};

// The user's choices of the dictation tests, before the program starts: the test microphone,
// French, their own OpenRouter key with the paid rewrite, no sounds; the remote services at
// the loopback server.
inline void prepareDictation(DesktopProgram& program, const Services& services) {
    program.writeSettings(QJsonObject{{"microphoneUID", "testmic"},
                                      {"language", "fr"},
                                      {"ownKeyMode", true},
                                      {"transcriptionEngine", "gemini"},
                                      {"rewriteEngine", "openRouter"},
                                      {"sounds", false}});
    program.setEnv("OPENROUTER_API_KEY", "sk-or-test");
    program.setEnv("OMBRY_OPENROUTER_URL", services.url());
    program.setEnv("OMBRY_LANGUAGETOOL_URL", services.url());
}

// Starts the program in this process's desktop session (the variables named, taken from its
// environment) and checks the roads that its journal names at start.
inline void startOnDesktop(DesktopProgram& program, const QList<const char*>& session,
                           const QStringList& roads) {
    for (const char* name : session)
        program.setEnv(name, qEnvironmentVariable(name));
    QVERIFY2(program.start(), qPrintable(program.error()));
    const auto line = program.waitForLine("bureau: ", 0);
    QVERIFY(line);
    for (const QString& road : roads)
        QVERIFY2(line->contains(road), qPrintable(*line));
}

// Plays a WAV into the microphone and waits until it has been played, the event loop turning.
inline bool speak(const SoundServer& sound, const QString& wav) {
    QProcess player;
    player.setProcessEnvironment(sound.environment());
    player.start("paplay", {"-d", "mic", wav});
    return player.waitForStarted(5000) &&
           DesktopSession::waitUntil([&] { return player.state() == QProcess::NotRunning; },
                                     20000) &&
           player.exitCode() == 0;
}

// The dictations of the program's history.json, newest first.
inline QList<Dictation> history(const DesktopProgram& program) {
    QList<Dictation> out;
    for (const QJsonValue& v : QJsonDocument::fromJson(program.readData("history.json")).array())
        if (const auto d = Dictation::fromJson(v)) out << *d;
    return out;
}

} // namespace ombry::test
