#include "app/Output.h"

#include "platform/Paths.h"

#include <QRegularExpression>
#include <cstdio>

namespace ombry {

void printLine(const QString& line) {
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

QString oneLine(const QString& text) {
    // Every kind of line end (CR LF, CR, LF, the Unicode separators, vertical tab, form feed)
    // with the blanks around it becomes one space.
    static const QRegularExpression lineBreaks(
        QStringLiteral("\\s*[\\r\\n\\x{0B}\\x{0C}\\x{85}\\x{2028}\\x{2029}]+\\s*"));
    return text.trimmed().replace(lineBreaks, QStringLiteral(" "));
}

void printError(const QString& description) {
    printLine(QStringLiteral("erreur: ") + oneLine(description));
}

void printError(const std::exception& e) {
    printError(QString::fromUtf8(e.what()));
}

std::optional<QByteArray> readInputFile(const QString& path) {
    using Status = Paths::ReadResult::Status;
    const Paths::ReadResult read = Paths::readRegularFile(path, kMaxInputFileBytes);
    switch (read.status) {
    case Status::Ok:
        return read.bytes;
    case Status::NotRegular:
        printError(QStringLiteral("%1 n'est pas un fichier ordinaire").arg(path));
        break;
    case Status::TooLarge:
        printError(
            QStringLiteral("le fichier %1 dépasse %2 Mo").arg(path).arg(kMaxInputFileBytes >> 20));
        break;
    case Status::Missing:
    case Status::Unreadable:
        printError(QStringLiteral("impossible de lire le fichier ") + path);
        break;
    }
    return std::nullopt;
}

QString secondsSince(const QElapsedTimer& timer) {
    return QString::asprintf("%.1f", double(timer.nsecsElapsed()) / 1e9);
}

} // namespace ombry
