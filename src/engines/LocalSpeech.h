#pragma once

// Transcription on the user's own machine. The first choice is a local speech server that
// speaks the OpenAI-compatible transcription interface (whisper.cpp's server, faster-whisper
// servers, LocalAI...); without one, or when it does not answer, pocketsphinx decodes the
// recording in this process. The journal says which of the two transcribed.

#include "net/Errors.h"

#include <QByteArray>
#include <QCoroTask>
#include <QString>
#include <QStringList>

namespace ombry {

// The addresses of the local servers, without a trailing slash. Each is a setting that an
// environment variable overrides when set.
namespace LocalServers {

// OMBRY_LOCAL_STT_URL when set (an empty value means none), else the setting
// `localSpeechServer`. Empty: no speech server.
QString speech();

// OMBRY_LOCAL_LLM_URL when set and not empty, else the setting `localModelServer` when not
// empty, else http://127.0.0.1:8080.
QString model();

// Whether a server answers at `address` within a few seconds: any HTTP answer counts, since
// these servers differ in what they serve at their root. For the settings' "Tester" button.
QCoro::Task<bool> answers(QString address);

// The failure of a local server whose answer was larger than any answer of its kind, in the
// words of `service`: "{service} : erreur 0 réponse du serveur trop grande (plus de 8 Mo)".
EngineError tooLargeAnswer(const char* service);

} // namespace LocalServers

namespace LocalSpeech {

// The service word of its errors, as the user reads it: "Local : erreur 0 langue non disponible".
inline constexpr const char* kService = "Local";

// Transcribes a WAV file. `language` is a locale code ("fr", "en"); `contextualWords`, the
// user's dictionary, go to the speech server as its prompt so that names come out as the user
// writes them (pocketsphinx has no way to favour them). With a speech server set, the
// recording goes there first; when none is set or it does not answer, pocketsphinx decodes it
// (see transcribeOffline). A server that answers with an error is not retried elsewhere: its
// words are the failure. A server that does not answer, with no pocketsphinx model for the
// language either, fails with "serveur de transcription injoignable ({server})".
QCoro::Task<QString> transcribe(QByteArray wav, QString language, QStringList contextualWords,
                                QString grammar = QString());

// One request to the speech server at `server`: POST {server}/v1/audio/transcriptions as
// multipart/form-data with the parts file (the WAV), model (the `localSpeechModel` setting),
// language (two letters), response_format "json" and, when the list has non-blank entries,
// prompt (the words joined by ", "). Returns the answer's `text`, trimmed.
// Throws TransportError when nothing answers, EngineError::http("Local", status, words) when
// the server refuses (its own message when its body carries one), DecodeError when the answer
// has no text.
QCoro::Task<QString> transcribeWithServer(QString server, QByteArray wav, QString language,
                                          QStringList contextualWords);

// The longest the whole exchange with the speech server may take for a WAV of `wavBytes`: a
// minute, and five times the recording's length (a large model on a modest processor is about
// as fast as speech); a server that never falls silent is given up then.
double serverDeadline(qint64 wavBytes);

// pocketsphinx on a worker thread; the result comes back on the awaiting thread. The model of
// `language` comes from models/<code>/ in the data folder, or from the system for English.
// `grammar`, a JSGF file, pins the words the recognition may give (tests); empty means the
// OMBRY_POCKETSPHINX_JSGF environment variable, or none. Any PCM WAV is converted first.
// Throws EngineError::http("Local", 0, "langue non disponible") when no model serves the
// language, and the same error kind with the decoder's words when the model can't be used.
QCoro::Task<QString> transcribeOffline(QByteArray wav, QString language,
                                       QString grammar = QString());

} // namespace LocalSpeech

} // namespace ombry
