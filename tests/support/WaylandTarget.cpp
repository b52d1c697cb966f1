// The application in front for the tests on a Wayland compositor: a Qt 6 text field that prints
// "FOCUS" once it has the keyboard, then "TEXT <its text>" at each change.
#include <QApplication>
#include <QLineEdit>
#include <QWindow>
#include <cstdio>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QGuiApplication::setDesktopFileName(QStringLiteral("ombry-wayland-target"));
    QLineEdit field;
    field.setWindowTitle(QStringLiteral("Cible Wayland"));
    field.resize(400, 40);
    QObject::connect(&field, &QLineEdit::textChanged, [](const QString& text) {
        std::printf("TEXT %s\n", text.toUtf8().constData());
        std::fflush(stdout);
    });
    QObject::connect(&app, &QGuiApplication::focusWindowChanged, [](QWindow* window) {
        if (!window) return;
        std::printf("FOCUS\n");
        std::fflush(stdout);
    });
    field.show();
    field.setFocus();
    return app.exec();
}
