#pragma once

// What the offline speech tests share: the speech tools, a grammar for stable words, a French
// model folder made of the English pieces, and the real program run with the test's folders.
#include "TestHttpServer.h"
#include "engines/OfflineSpeech.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

namespace ombry::test {

inline bool offlineToolsInstalled() {
    return !QStandardPaths::findExecutable(QStringLiteral("espeak-ng")).isEmpty() &&
           !QStandardPaths::findExecutable(QStringLiteral("sox")).isEmpty() &&
           OfflineSpeech::modelFor("en", QString()).has_value();
}

// Writes a file, making its folder.
inline bool writeFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

inline bool writeGrammar(const QString& path) {
    return writeFile(path, "#JSGF V1.0;\ngrammar commands;\npublic <command> = ( open the "
                           "window | close the door | hello world );\n");
}

// models/fr under the program's data folder, linked to the system's English model.
inline bool linkFrenchModel(const QString& dataFolder) {
    const QString system = QString::fromLatin1(OfflineSpeech::kSystemEnglishFolder);
    const QDir models(dataFolder + QStringLiteral("/Ombry Voice/models/fr"));
    return QDir().mkpath(models.path()) &&
           QFile::link(system + "/en-us", models.filePath("acoustic")) &&
           QFile::link(system + "/cmudict-en-us.dict", models.filePath("words.dict")) &&
           QFile::link(system + "/en-us.lm.bin", models.filePath("words.lm.bin"));
}

// The printed lines of `ombry-voice args` that ended with status 0, durations shown as
// "(t s)"; "(failed)" otherwise.
inline QStringList runProgram(const QStringList& args, const QProcessEnvironment& env) {
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(qEnvironmentVariable("OMBRY_BINARY"), args);
    if (!TestHttpServer::runProcess(p, 60000) || p.exitCode() != 0) return {"(failed)"};
    return QString::fromUtf8(p.readAllStandardOutput())
        .replace(QRegularExpression(R"(\(\d+\.\d s\))"), "(t s)")
        .split('\n', Qt::SkipEmptyParts);
}

} // namespace ombry::test
