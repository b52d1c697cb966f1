#include "views/shell/MainWindow.h"

#include "data/Settings.h"
#include "views/shell/MainView.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QMenuBar>
#include <QMoveEvent>
#include <QResizeEvent>
#include <QScreen>
#include <QTimer>

namespace ombry {

MainWindow::MainWindow(Navigation& nav, AppSettings& settings, DictationController& controller,
                       QWidget* parent)
    : QMainWindow(parent), nav_(nav), settings_(settings), controller_(controller) {
    setObjectName(QStringLiteral("mainWindow"));
    setWindowTitle(QStringLiteral("Ombry Voice"));
    setMinimumSize(MainView::kMinWidth, MainView::kMinHeight);
    const std::optional<QString> frame = settings_.defaults().stringValue(QLatin1String(kFrameKey));
    if (!frame || !restoreGeometry(QByteArray::fromBase64(frame->toLatin1()))) {
        resize(1100, 760);
        if (QScreen* screen = QGuiApplication::primaryScreen()) {
            // A small or highly scaled screen: the window fits inside it.
            const QRect free = screen->availableGeometry();
            resize(size().boundedTo(free.size() * 0.95).expandedTo(minimumSize()));
            move(free.center() - rect().center());
        }
    }
    buildMenus();
}

MainWindow::~MainWindow() {
    // A move or resize not yet saved: the program quits with the window open.
    if (frameSave_.pending()) saveFrame();
}

MainView* MainWindow::view() const {
    return qobject_cast<MainView*>(centralWidget());
}

void MainWindow::buildMenus() {
    auto add = [this](QMenu* menu, const QString& title, const QKeySequence& keys, auto&& slot) {
        QAction* a = menu->addAction(title);
        if (!keys.isEmpty()) a->setShortcut(keys);
        connect(a, &QAction::triggered, this, slot);
        return a;
    };
    QMenu* app = menuBar()->addMenu(QStringLiteral("Ombry Voice"));
    add(app, QStringLiteral("À propos de Ombry Voice"), {}, [this] { Q_EMIT aboutRequested(); });
    app->addSeparator();
    add(app, QStringLiteral("Réglages…"), QKeySequence(Qt::CTRL | Qt::Key_Comma),
        [this] { Q_EMIT settingsRequested(); });
    app->addSeparator();
    add(app, QStringLiteral("Masquer Ombry Voice"), QKeySequence(Qt::CTRL | Qt::Key_H),
        [this] { hideWindow(); });
    app->addSeparator();
    add(app, QStringLiteral("Quitter Ombry Voice"), QKeySequence(Qt::CTRL | Qt::Key_Q),
        [this] { Q_EMIT quitRequested(); });

    // The edit items act on the field that has the focus, as its own keys do.
    QMenu* edit = menuBar()->addMenu(QStringLiteral("Édition"));
    auto onFocus = [](const char* method) {
        return [method] {
            if (QWidget* w = QApplication::focusWidget()) QMetaObject::invokeMethod(w, method);
        };
    };
    add(edit, QStringLiteral("Annuler"), QKeySequence(Qt::CTRL | Qt::Key_Z), onFocus("undo"));
    add(edit, QStringLiteral("Rétablir"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z),
        onFocus("redo"));
    edit->addSeparator();
    add(edit, QStringLiteral("Couper"), QKeySequence(Qt::CTRL | Qt::Key_X), onFocus("cut"));
    add(edit, QStringLiteral("Copier"), QKeySequence(Qt::CTRL | Qt::Key_C), onFocus("copy"));
    add(edit, QStringLiteral("Coller"), QKeySequence(Qt::CTRL | Qt::Key_V), onFocus("paste"));
    add(edit, QStringLiteral("Tout sélectionner"), QKeySequence(Qt::CTRL | Qt::Key_A),
        onFocus("selectAll"));
    // A field handles these keys itself; the menu's shortcuts would only take them away.
    for (QAction* a : edit->actions())
        a->setShortcutContext(Qt::WidgetShortcut);

    QMenu* window = menuBar()->addMenu(QStringLiteral("Fenêtre"));
    add(window, QStringLiteral("Réduire"), QKeySequence(Qt::CTRL | Qt::Key_M),
        [this] { showMinimized(); });
    add(window, QStringLiteral("Fermer"), QKeySequence(Qt::CTRL | Qt::Key_W), [this] { close(); });
}

void MainWindow::showWindow() {
    if (!view()) setCentralWidget(new MainView(nav_, settings_, controller_));
    if (isMinimized()) showNormal();
    show();
    raise();
    activateWindow();
}

void MainWindow::hideWindow() {
    saveFrame();
    hide();
    Q_EMIT closed();
}

void MainWindow::moveEvent(QMoveEvent* event) {
    QMainWindow::moveEvent(event);
    frameChanged();
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    frameChanged();
}

void MainWindow::frameChanged() {
    // The frame is kept while the user moves or sizes the window, once the moves pause.
    if (isVisible()) frameSave_.schedule(kFrameSaveDelayMs, [this] { saveFrame(); });
}

void MainWindow::saveFrame() {
    frameSave_.cancel();
    settings_.defaults().setValue(QLatin1String(kFrameKey),
                                  QString::fromLatin1(saveGeometry().toBase64()));
}

void MainWindow::closeEvent(QCloseEvent* event) {
    saveFrame();
    event->accept();
    Q_EMIT closed();
    // The content goes on the next turn, not inside the close itself; the window object stays
    // for the next showWindow().
    QTimer::singleShot(0, this, [this] {
        if (isVisible()) return; // shown again meanwhile
        if (QWidget* content = takeCentralWidget()) content->deleteLater();
    });
}

} // namespace ombry
