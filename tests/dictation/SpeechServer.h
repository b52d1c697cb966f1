#pragma once

// A local server playing OpenRouter for the chunked dictation: answers take longer for longer
// audio or text, as the models do; what each answers is set by the test.
#include "TestHttpServer.h"

#include <QJsonArray>
#include <functional>

namespace ombry::test {

struct SpeechServer {
    static constexpr int kWavHeader = 44;
    // Answer time: base plus so much per second of audio (transcription) or per word.
    int transcribeBaseMs = 40;
    int transcribeMsPerSecond = 40;
    int rewriteBaseMs = 20;
    int rewriteMsPerWord = 2;
    // The transcript of a piece of this many seconds (after trimming); a Reply with a status
    // other than 200 makes it fail.
    std::function<Reply(double seconds)> transcript = [](double) {
        return chatCompletion(QStringLiteral("un deux trois quatre"));
    };
    // The rewrite of a text.
    std::function<QString(const QString&)> rewrite = [](const QString& t) {
        return t + QStringLiteral(" (réécrit)");
    };
    QList<double> heard;   // the seconds of every piece of audio received, in order of arrival
    QStringList rewritten; // the texts sent to be rewritten

    static QString userText(const RecordedRequest& r) {
        return r.json().value("messages").toArray()[1].toObject().value("content").toString();
    }
    // Seconds of audio in a request, or nothing for a text request.
    static std::optional<double> audioSeconds(const RecordedRequest& r) {
        const QJsonValue content =
            r.json().value("messages").toArray()[1].toObject().value("content");
        if (!content.isArray()) return std::nullopt;
        const QJsonObject audio = content.toArray()[0].toObject().value("input_audio").toObject();
        const QByteArray wav = QByteArray::fromBase64(audio.value("data").toString().toLatin1());
        return double(wav.size() - kWavHeader) / 32000.0;
    }

    void install(TestHttpServer& server) {
        server.setHandler([this](const RecordedRequest& r) {
            if (const auto seconds = audioSeconds(r)) {
                heard << *seconds;
                Reply reply = transcript(*seconds);
                reply.delayMs = transcribeBaseMs + int(*seconds * transcribeMsPerSecond);
                return reply;
            }
            const QString text = userText(r);
            rewritten << text;
            Reply reply = chatCompletion(rewrite(text));
            reply.delayMs = rewriteBaseMs + rewriteMsPerWord * int(text.split(' ').size());
            return reply;
        });
    }
};

// PCM pieces: a square wave has its amplitude as peak and as RMS, so the silence and speech
// thresholds can be met exactly.
inline QByteArray squareWave(double seconds, qint16 amplitude) {
    const int samples = int(seconds * 16000);
    QByteArray pcm(samples * 2, Qt::Uninitialized);
    for (int i = 0; i < samples; ++i) {
        const qint16 v = (i / 20) % 2 ? amplitude : qint16(-amplitude);
        pcm[2 * i] = char(v & 0xFF);
        pcm[2 * i + 1] = char((v >> 8) & 0xFF);
    }
    return pcm;
}

inline QByteArray silence(double seconds) {
    return QByteArray(int(seconds * 16000) * 2, '\0');
}

} // namespace ombry::test
