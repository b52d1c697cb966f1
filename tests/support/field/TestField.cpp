// A text field of another application, for the desktop tests: a Qt window with one line of
// text, focused at start. It prints "TEXT <text>" at each change of its text and "CLIP <text>"
// at each change of the clipboard it sees (JSON strings, one line each), and with an argument
// puts that text on the clipboard at the first key it gets, as a user's copy would (a Wayland
// compositor lets a client set the clipboard only in answer to the user's input).
#include <QApplication>
#include <QClipboard>
#include <QEvent>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLineEdit>
#include <QTimer>
#include <cstdio>

namespace {

void say(const char* what, const QString& text) {
    const QByteArray json = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    std::printf("%s %s\n", what, json.mid(1, json.size() - 2).constData());
    std::fflush(stdout);
}

// Copies its text to the clipboard at the first key event.
class FirstKey : public QObject {
public:
    explicit FirstKey(QString text) : text_(std::move(text)) {}
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (!text_.isEmpty() &&
            (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease)) {
            QApplication::clipboard()->setText(text_);
            text_.clear();
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QString text_;
};

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    const QString copied = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    QLineEdit field;
    field.setWindowTitle(QStringLiteral("champ de test"));
    field.resize(500, 40);
    QObject::connect(&field, &QLineEdit::textChanged, [](const QString& t) { say("TEXT", t); });
    QObject::connect(QApplication::clipboard(), &QClipboard::dataChanged,
                     [] { say("CLIP", QApplication::clipboard()->text()); });
    field.show();
    field.activateWindow();
    field.setFocus();
    FirstKey firstKey(copied);
    field.installEventFilter(&firstKey);
    auto* poll = new QTimer(&field);
    QObject::connect(poll, &QTimer::timeout, [&field, poll] {
        if (!field.hasFocus() && !field.isActiveWindow()) return;
        poll->stop();
        say("READY", QApplication::platformName());
    });
    poll->start(50);
    return app.exec();
}
