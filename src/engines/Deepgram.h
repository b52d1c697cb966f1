#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QString>
#include <QStringList>
#include <QUrl>

// The alternative remote speech engine: the WAV file goes as it is to Deepgram's listen
// endpoint, always with the user's own key, never through the hosted service.
namespace ombry::Deepgram {

// The transcript of the first alternative of the first channel, untouched; empty when the
// reply has none. `model` is a Deepgram model id ("nova-3"), `language` a deepgramCode,
// `keyterms` the dictionary words. Fails with missingKey("Deepgram") when no key is stored,
// http("Deepgram", status, body) for any status but 200, DecodeError for a reply of another
// shape, TransportError when no answer comes within 60 s.
QCoro::Task<QString> transcribe(QByteArray wav, QString model, QString language,
                                QStringList keyterms);

// The listen address: model, language, punctuate and smart_format, then one item a dictionary
// word (trimmed, blanks dropped): `keyterm` for the nova-3 family, `keywords` with a boost of
// ":2" for older models.
QUrl listenURL(const QString& model, const QString& language, const QStringList& keyterms);

// The transcript of a listen reply; throws DecodeError.
QString decodeTranscript(const QByteArray& reply);

} // namespace ombry::Deepgram
