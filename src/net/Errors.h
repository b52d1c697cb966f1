#pragma once

#include <QByteArray>
#include <QString>
#include <exception>

namespace ombry {

// The base of every error that an engine or a remote call throws. `description()` is what the
// user reads (a headless mode prints "erreur: " + description()); `what()` is the same text in
// UTF-8.
class Error : public std::exception {
public:
    explicit Error(QString description);
    virtual QString description() const { return description_; }
    const char* what() const noexcept override { return utf8_.constData(); }

private:
    QString description_;
    QByteArray utf8_;
};

// What the user reads of any exception: an Error's description, else what() as UTF-8.
QString describe(const std::exception& e);

// The error of every remote engine: a missing key, a refused call, or a used-up balance.
class EngineError : public Error {
public:
    enum class Kind { MissingKey, Http, NoCredits };

    // "Clé {service} absente"
    static EngineError missingKey(const QString& service);
    // "{service} : erreur {code} {body}", the body cut to its first 200 characters.
    static EngineError http(const QString& service, int code, const QString& body);
    // "Plus de crédits Ombry"
    static EngineError noCredits();

    Kind kind() const { return kind_; }
    const QString& service() const { return service_; } // empty for NoCredits
    int code() const { return code_; }                  // Http only
    const QString& body() const { return body_; }       // Http only, whole
    QString errorDescription() const { return description(); }

private:
    EngineError(Kind kind, QString service, int code, QString body, QString description);
    Kind kind_;
    QString service_;
    int code_ = 0;
    QString body_;
};

// The request did not get an answer: the network failed ("réseau : {Qt's error text}"), or
// the time-out ran out ("réseau : délai d'attente dépassé").
class TransportError : public Error {
public:
    TransportError(QString qtErrorText, bool timedOut, bool tooLarge = false);
    bool timedOut() const { return timedOut_; }
    // The answer came but was larger than the request allowed: the server is there.
    bool tooLarge() const { return tooLarge_; }

private:
    bool timedOut_;
    bool tooLarge_;
};

// An answer came but does not decode into what the caller expects.
class DecodeError : public Error {
public:
    using Error::Error;
};

} // namespace ombry
