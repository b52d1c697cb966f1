#include "engines/LocalSpeech.h"

#include "data/Settings.h"
#include "desktop/Log.h"
#include "engines/AudioFile.h"
#include "engines/OfflineSpeech.h"
#include "net/Endpoints.h"
#include "net/Errors.h"
#include "net/Http.h"
#include "platform/Paths.h"

#include <QCoroFuture>
#include <QFuture>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>
#include <QUuid>
#include <QtConcurrent/QtConcurrentRun>

#include <memory>

namespace ombry {

namespace {

QString withoutTrailingSlash(QString address) {
    address = address.trimmed();
    while (address.endsWith(QLatin1Char('/')))
        address.chop(1);
    return address;
}

} // namespace

namespace LocalServers {

QString speech() {
    if (qEnvironmentVariableIsSet("OMBRY_LOCAL_STT_URL"))
        return withoutTrailingSlash(qEnvironmentVariable("OMBRY_LOCAL_STT_URL"));
    return withoutTrailingSlash(AppSettings::shared().localSpeechServer());
}

QString model() {
    // The environment wins; without it, the setting; without both, the usual local port.
    if (!qEnvironmentVariable("OMBRY_LOCAL_LLM_URL").trimmed().isEmpty())
        return Endpoints::localLlm();
    const QString setting = withoutTrailingSlash(AppSettings::shared().localModelServer());
    return setting.isEmpty() ? Endpoints::localLlm() : setting;
}

QCoro::Task<bool> answers(QString address) {
    const QUrl url(withoutTrailingSlash(address) + QLatin1Char('/'));
    if (!url.isValid() || url.host().isEmpty()) co_return false;
    try {
        const Http::Reply reply = co_await Http::send("GET", url, {}, {}, 3.0);
        co_return reply.status > 0;
    } catch (const TransportError&) {
        co_return false;
    }
}

EngineError tooLargeAnswer(const char* service) {
    return EngineError::http(QLatin1String(service), 0,
                             QStringLiteral("réponse du serveur trop grande (plus de %1 Mo)")
                                 .arg(Http::kDefaultMaxReplyBytes >> 20));
}

} // namespace LocalServers

namespace LocalSpeech {
namespace {

// A transcription of a long recording on a modest processor takes a while; this is the
// longest silence accepted while the server works.
constexpr double kServerTimeout = 300.0;

EngineError failure(int code, const QString& words) {
    return EngineError::http(QLatin1String(kService), code, words);
}

// The form parts of a transcription request, in the order the interface lists them.
QByteArray multipartBody(const QByteArray& boundary, const QByteArray& wav,
                         const QList<QPair<QByteArray, QString>>& fields) {
    QByteArray body;
    body.reserve(wav.size() + 1024);
    body += "--" + boundary + "\r\n";
    body += "Content-Disposition: form-data; name=\"file\"; filename=\"audio.wav\"\r\n";
    body += "Content-Type: audio/wav\r\n\r\n";
    body += wav;
    body += "\r\n";
    for (const auto& [name, value] : fields) {
        body += "--" + boundary + "\r\n";
        body += "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n";
        body += value.toUtf8();
        body += "\r\n";
    }
    body += "--" + boundary + "--\r\n";
    return body;
}

// What a refusing server says: the message of its JSON error when it gives one (OpenAI's
// {"error": {"message"}}, whisper.cpp's {"error": "..."}, FastAPI's {"detail": "..."}), else
// its body as text.
QString refusalWords(const Http::Reply& reply) {
    const QJsonObject object = QJsonDocument::fromJson(reply.body).object();
    const QJsonValue error = object.value(QLatin1String("error"));
    QString words = error.isObject() ? error.toObject().value(QLatin1String("message")).toString()
                                     : error.toString();
    if (words.isEmpty()) words = object.value(QLatin1String("detail")).toString();
    if (words.isEmpty()) words = reply.bodyText();
    return words.trimmed();
}

} // namespace

QCoro::Task<QString> transcribeWithServer(QString server, QByteArray wav, QString language,
                                          QStringList contextualWords) {
    QStringList words;
    for (const QString& word : contextualWords)
        if (!word.trimmed().isEmpty()) words << word;

    QList<QPair<QByteArray, QString>> fields{
        {QByteArray("model"), AppSettings::shared().localSpeechModel()},
        {QByteArray("language"), language.left(2).toLower()},
        {QByteArray("response_format"), QStringLiteral("json")},
    };
    if (!words.isEmpty()) fields.append({QByteArray("prompt"), words.join(QStringLiteral(", "))});

    const QByteArray boundary = "ombry-" + QUuid::createUuid().toByteArray(QUuid::Id128);
    const QByteArray body = multipartBody(boundary, wav, fields);
    const QUrl url(withoutTrailingSlash(server) + QStringLiteral("/v1/audio/transcriptions"));
    const Http::Headers headers{
        {QByteArray("Content-Type"), "multipart/form-data; boundary=" + boundary},
        {QByteArray("Accept"), QByteArray("application/json")}};
    Http::Limits limits;
    limits.deadlineSeconds = serverDeadline(wav.size());
    Http::Reply reply;
    try {
        reply = co_await Http::post(url, body, headers, kServerTimeout, limits);
    } catch (const TransportError& e) {
        if (e.tooLarge()) throw LocalServers::tooLargeAnswer(kService);
        throw;
    }
    if (reply.status != 200) throw failure(reply.status, refusalWords(reply));

    const QJsonValue text =
        QJsonDocument::fromJson(reply.body).object().value(QLatin1String("text"));
    if (!text.isString()) throw DecodeError(QStringLiteral("Local : réponse illisible"));
    co_return text.toString().trimmed();
}

double serverDeadline(qint64 wavBytes) {
    return 60.0 + 5.0 * double(wavBytes) / 32000.0;
}

QCoro::Task<QString> transcribeOffline(QByteArray wav, QString language, QString grammar) {
    const auto model = OfflineSpeech::modelFor(language, Paths::dataFolder());
    if (!model) throw failure(0, QStringLiteral("langue non disponible"));
    if (grammar.isEmpty()) grammar = OfflineSpeech::grammarFromEnvironment();

    // Reading the audio and decoding it take about a tenth of its length: Qt's thread pool
    // keeps the main loop turning, and the awaiting coroutine resumes once the work is done.
    // The pool is waited for when the application ends, so no decoding outlives the objects
    // it may touch.
    QFuture<OfflineSpeech::Result> future =
        QtConcurrent::run([wav = std::move(wav), model = *model, grammar] {
            QString error;
            const std::optional<QByteArray> pcm = AudioFile::speechPcm(wav, &error);
            if (!pcm) return OfflineSpeech::Result{false, {}, error};
            return OfflineSpeech::decode(*pcm, model, grammar);
        });
    const OfflineSpeech::Result result = co_await future;
    if (!result.ok) throw failure(0, result.error);
    co_return result.text;
}

QCoro::Task<QString> transcribe(QByteArray wav, QString language, QStringList contextualWords,
                                QString grammar) {
    const QString server = LocalServers::speech();
    if (!server.isEmpty()) {
        try {
            const QString text =
                co_await transcribeWithServer(server, wav, language, std::move(contextualWords));
            Log::write(QStringLiteral("transcription locale: serveur ") + server);
            co_return text;
        } catch (const TransportError& e) {
            Log::write(QStringLiteral("transcription locale: serveur %1 injoignable (%2)")
                           .arg(server, QString::fromUtf8(e.what())));
        }
        // Without a model for the language the user's real problem is the server, not a model
        // they never meant to install.
        if (!OfflineSpeech::modelFor(language, Paths::dataFolder()))
            throw failure(0,
                          QStringLiteral("serveur de transcription injoignable (%1)").arg(server));
    }
    const QString text = co_await transcribeOffline(std::move(wav), language, std::move(grammar));
    Log::write(QStringLiteral("transcription locale: pocketsphinx"));
    co_return text;
}

} // namespace LocalSpeech

} // namespace ombry
