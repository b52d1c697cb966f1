#include "platform/Paths.h"

#include <QDir>
#include <QSaveFile>

namespace ombry::Paths {
namespace {

QString xdg(const char* var, const char* fallbackUnderHome) {
    const QString v = qEnvironmentVariable(var);
    if (!v.isEmpty() && QDir::isAbsolutePath(v)) return QDir::cleanPath(v);
    return QDir::cleanPath(QDir::homePath() + QLatin1Char('/') + QLatin1String(fallbackUnderHome));
}

} // namespace

QString dataHome() {
    return xdg("XDG_DATA_HOME", ".local/share");
}
QString configHome() {
    return xdg("XDG_CONFIG_HOME", ".config");
}
QString cacheHome() {
    return xdg("XDG_CACHE_HOME", ".cache");
}

QString dataFolder() {
    return dataHome() + QLatin1Char('/') + QLatin1String(kDataFolderName);
}

QString defaultsFile() {
    return configHome() + QLatin1Char('/') + QLatin1String(kDomain) + QStringLiteral(".json");
}

QString formerDefaultsFile() {
    return configHome() + QLatin1Char('/') + QLatin1String(kFormerDomain) + QStringLiteral(".json");
}

bool writeFileAtomically(const QString& path, const QByteArray& data) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) return false;
    if (file.write(data) != data.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

} // namespace ombry::Paths
