#include "app/Output.h"

#include <QFile>
#include <cstdio>

namespace ombry {

void printLine(const QString& line) {
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

void printError(const std::exception& e) {
    printLine(QStringLiteral("erreur: ") + QString::fromUtf8(e.what()));
}

std::optional<QByteArray> readInputFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        printLine(QStringLiteral("erreur: impossible de lire le fichier ") + path);
        return std::nullopt;
    }
    return file.readAll();
}

QString secondsSince(const QElapsedTimer& timer) {
    return QString::asprintf("%.1f", double(timer.nsecsElapsed()) / 1e9);
}

} // namespace ombry
