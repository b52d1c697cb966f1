// A text field of another application, for the desktop tests: a Qt window with one line of
// text, focused at start. It prints one line per event, "WHAT MS VALUE", MS being the wall-clock
// time in milliseconds and VALUE percent-encoded UTF-8:
//   FOCUS MS          the field has the keyboard focus;
//   BLUR MS           its window lost it;
//   TEXT MS text      its text changed;
//   CLIP MS text      the clipboard it sees changed.
// With an argument it puts that text on the clipboard at the first key it gets, as a user's
// copy would (a Wayland compositor lets a client set the clipboard only in answer to input).
#include <QApplication>
#include <QClipboard>
#include <QDateTime>
#include <QEvent>
#include <QLineEdit>
#include <cstdio>

namespace {

void say(const char* what, const QString& text = {}) {
    std::printf("%s %lld %s\n", what, QDateTime::currentMSecsSinceEpoch(),
                text.toUtf8().toPercentEncoding().constData());
    std::fflush(stdout);
}

// Copies its text to the clipboard at the first key event.
class FirstKey : public QObject {
public:
    explicit FirstKey(QString text) : text_(std::move(text)) {}
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::WindowDeactivate) say("BLUR");
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
    QLineEdit field;
    field.setWindowTitle(QStringLiteral("Cible"));
    field.resize(500, 40);
    QObject::connect(&field, &QLineEdit::textChanged, [](const QString& t) { say("TEXT", t); });
    QObject::connect(QApplication::clipboard(), &QClipboard::dataChanged,
                     [] { say("CLIP", QApplication::clipboard()->text()); });
    QObject::connect(&app, &QApplication::focusChanged, [&field](QWidget*, QWidget* now) {
        if (now == &field) say("FOCUS");
    });
    FirstKey firstKey(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString());
    field.installEventFilter(&firstKey);
    field.show();
    field.activateWindow();
    field.setFocus();
    return app.exec();
}
