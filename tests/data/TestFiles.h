#pragma once

#include <QDir>
#include <QFile>
#include <QTest>

// Reading and writing whole files in the data tests.
namespace ombry::test {

inline QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Makes the folder as needed. Use from a test function: a failure fails the test.
inline void writeAll(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    QCOMPARE(f.write(bytes), bytes.size());
}

} // namespace ombry::test
