#pragma once

#include <QByteArray>
#include <QString>

namespace ombry::Paths {

// Where the program keeps its things, following the XDG base directories.
QString dataHome();   // $XDG_DATA_HOME or ~/.local/share
QString configHome(); // $XDG_CONFIG_HOME or ~/.config
QString cacheHome();  // $XDG_CACHE_HOME or ~/.cache

inline constexpr const char* kDataFolderName = "Ombry Voice";
inline constexpr const char* kFormerDataFolderName = "Talvo";
inline constexpr const char* kDomain = "com.quennard.ombryvoice";
inline constexpr const char* kFormerDomain = "com.quennard.talvo";

QString dataFolder();         // dataHome()/Ombry Voice: the user's lists, keys and journal
QString defaultsFile();       // configHome()/com.quennard.ombryvoice.json
QString formerDefaultsFile(); // configHome()/com.quennard.talvo.json

// Writes the whole file or nothing: the data goes to a temporary file in the same folder
// that then replaces the target. Returns false on any failure.
bool writeFileAtomically(const QString& path, const QByteArray& data);

} // namespace ombry::Paths
