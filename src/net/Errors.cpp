#include "net/Errors.h"

#include <QTextBoundaryFinder>

namespace ombry {

namespace {

// The first n characters of a text, a character being what the reader sees as one (an accented
// letter or an emoji is never cut in half).
QString firstCharacters(const QString& text, int n) {
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (count < n && finder.toNextBoundary() != -1)
        ++count;
    if (count < n) return text;
    return text.left(finder.position());
}

} // namespace

Error::Error(QString description)
    : description_(std::move(description)), utf8_(description_.toUtf8()) {}

QString describe(const std::exception& e) {
    if (const auto* error = dynamic_cast<const Error*>(&e)) return error->description();
    return QString::fromUtf8(e.what());
}

EngineError::EngineError(Kind kind, QString service, int code, QString body, QString description)
    : Error(std::move(description)), kind_(kind), service_(std::move(service)), code_(code),
      body_(std::move(body)) {}

EngineError EngineError::missingKey(const QString& service) {
    return EngineError(Kind::MissingKey, service, 0, {},
                       QStringLiteral("Clé %1 absente").arg(service));
}

EngineError EngineError::http(const QString& service, int code, const QString& body) {
    return EngineError(Kind::Http, service, code, body,
                       service + QStringLiteral(" : erreur ") + QString::number(code) +
                           QLatin1Char(' ') + firstCharacters(body, 200));
}

EngineError EngineError::noCredits() {
    return EngineError(Kind::NoCredits, {}, 0, {}, QStringLiteral("Plus de crédits Ombry"));
}

TransportError::TransportError(QString qtErrorText, bool timedOut, bool tooLarge)
    : Error(QStringLiteral("réseau : ") +
            (timedOut ? QStringLiteral("délai d'attente dépassé") : std::move(qtErrorText))),
      timedOut_(timedOut), tooLarge_(tooLarge) {}

} // namespace ombry
