#include "app/Output.h"

#include "engines/AudioFile.h"
#include "platform/Paths.h"

#include <QRegularExpression>
#include <cstdio>
#include <sys/stat.h>

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

std::optional<QByteArray> readSpeechFile(const QString& path) {
    struct stat info {};
    if (::stat(Paths::toNative(path).constData(), &info) != 0) {
        printError(QStringLiteral("impossible de lire le fichier ") + path);
        return std::nullopt;
    }
    if (!S_ISREG(info.st_mode)) {
        printError(QStringLiteral("%1 n'est pas un fichier ordinaire").arg(path));
        return std::nullopt;
    }
    QString error;
    std::optional<QByteArray> pcm = AudioFile::speechPcm(path, &error);
    if (!pcm) printError(QStringLiteral("%1 : %2").arg(path, error));
    return pcm;
}

QString secondsSince(const QElapsedTimer& timer) {
    return QString::asprintf("%.1f", double(timer.nsecsElapsed()) / 1e9);
}

} // namespace ombry
