#include "app/Snapshot.h"

#include "data/Settings.h"
#include "dictation/DictationController.h"
#include "views/shell/MainView.h"
#include "views/shell/Navigation.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPainter>

namespace ombry::Snapshot {

bool render(const QString& folder, QString* error) {
    setSnapshotMode(true);
    if (!QDir().mkpath(folder)) {
        if (error) *error = QStringLiteral("impossible de créer le dossier %1").arg(folder);
        return false;
    }
    Navigation& nav = Navigation::shared();
    for (Page page : allPages()) {
        nav.setPage(page);
        MainView view(nav, AppSettings::shared(), DictationController::shared());
        view.setAttribute(Qt::WA_DontShowOnScreen);
        view.resize(kWidth, kHeight);
        view.show();
        // Layouts and style sheets settle over a few turns of the loop.
        for (int i = 0; i < 3; ++i)
            QApplication::processEvents();
        QImage image(kWidth, kHeight, QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(1.0);
        image.fill(Qt::transparent);
        view.render(&image);
        view.hide();
        const QString path = QDir(folder).filePath(rawValue(page) + QStringLiteral(".png"));
        if (!image.save(path, "PNG")) {
            if (error) *error = QStringLiteral("impossible d'écrire %1").arg(path);
            return false;
        }
    }
    return true;
}

} // namespace ombry::Snapshot
