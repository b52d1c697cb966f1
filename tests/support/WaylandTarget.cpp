// A Qt text field on the Wayland desktop of a test: prints "TEXT MS TEXT" at each change of its
// text, MS being the wall-clock time in milliseconds and TEXT percent-encoded UTF-8.
#include <QApplication>
#include <QDateTime>
#include <QLineEdit>
#include <cstdio>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QLineEdit field;
    field.setWindowTitle(QStringLiteral("Cible"));
    field.resize(400, 40);
    QObject::connect(&field, &QLineEdit::textChanged, [](const QString& text) {
        std::printf("TEXT %lld %s\n", QDateTime::currentMSecsSinceEpoch(),
                    text.toUtf8().toPercentEncoding().constData());
        std::fflush(stdout);
    });
    QObject::connect(&app, &QApplication::focusChanged, [&](QWidget*, QWidget* now) {
        if (now == &field) {
            std::printf("FOCUS\n");
            std::fflush(stdout);
        }
    });
    field.show();
    field.activateWindow();
    field.setFocus();
    return app.exec();
}
