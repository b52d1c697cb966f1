#include "FieldProcess.h"

#include <QTest>

namespace ombry::test {

QString FieldProcess::program() {
    return QStringLiteral(OMBRY_WAYLAND_TARGET);
}

bool FieldProcess::open(const QString& clipboard, int timeoutMs) {
    close();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("QT_QPA_PLATFORM", "wayland");
    process_.setProcessEnvironment(env);
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(&process_, &QProcess::readyReadStandardOutput, [this] { read(); });
    process_.start(program(), clipboard.isEmpty() ? QStringList() : QStringList{clipboard});
    return QTest::qWaitFor([this] { return focused_; }, timeoutMs) &&
           process_.state() == QProcess::Running;
}

void FieldProcess::close() {
    QObject::disconnect(&process_, nullptr, nullptr, nullptr);
    if (process_.state() != QProcess::NotRunning) {
        process_.kill();
        process_.waitForFinished(3000);
    }
    text_.clear();
    clipboard_.clear();
    focused_ = false;
    firstChange_.reset();
}

// "WHAT MS VALUE", the value percent-encoded.
void FieldProcess::read() {
    while (process_.canReadLine()) {
        const QList<QByteArray> words = process_.readLine().trimmed().split(' ');
        const qint64 at = words.value(1).toLongLong();
        const QString value = QString::fromUtf8(QByteArray::fromPercentEncoding(words.value(2)));
        if (words[0] == "FOCUS") focused_ = true;
        if (words[0] == "CLIP") clipboard_ = value;
        if (words[0] == "TEXT") {
            text_ = value;
            changedAt_ = at;
            if (!firstChange_) firstChange_ = at;
        }
    }
}

std::optional<qint64> FieldProcess::waitForText(const QString& text, int timeoutMs) {
    if (!QTest::qWaitFor([&] { return text_ == text; }, timeoutMs)) return std::nullopt;
    return changedAt_;
}

} // namespace ombry::test
