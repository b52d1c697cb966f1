#pragma once

#include "views/subtitles/SubtitleModel.h"

#include <QPoint>
#include <QPointer>
#include <QWidget>

class QLabel;
class QPushButton;
class QGraphicsOpacityEffect;
class QPropertyAnimation;
class QTimer;

namespace ombry {

// The floating subtitle panel over a call: the French of the last sentences, the English on
// demand. It stays above the other windows, is moved by dragging its background and resized
// from its corner, and never takes the focus from the call. Controls show while the pointer
// is over it. It only reads the call translator and calls start() and stop().
class SubtitleView : public QWidget {
    Q_OBJECT
public:
    static constexpr int kWidth = 760;
    static constexpr int kHeight = 150;
    static constexpr const char* kShowEnglishKey = "captionsShowEnglish";
    static constexpr const char* kFrameKey = "VerloCaptions";

    explicit SubtitleView(CallTranslator& call, QWidget* parent = nullptr);

    // A top-level tool window above the others, frameless, that does not take the focus.
    static Qt::WindowFlags panelFlags();

    bool showEnglish() const { return showEnglish_; }
    void setShowEnglish(bool on); // kept in the user default captionsShowEnglish
    bool hover() const { return hover_; }
    void setHover(bool on);
    const SubtitleContent& content() const { return content_; }

    // Where the panel goes the first time: centred near the bottom of the screen.
    static QRect defaultFrame(const QRect& screen);
    // A frame saved earlier, moved (and shrunk if need be) onto the screen that shows most of
    // it, else onto the first one: a screen may be gone since. Screens by their usable area,
    // the primary one first.
    static QRect restoredFrame(const QRect& saved, const QList<QRect>& screens);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void moveEvent(QMoveEvent* event) override;

private:
    void refresh();
    void chooseApp();
    void saveFrame();

    CallTranslator& call_;
    bool showEnglish_ = false;
    bool hover_ = false;
    SubtitleContent content_;
    QLabel* dot_;
    QLabel* source_;
    QLabel* previous_;
    QLabel* main_;
    QLabel* english_;
    QPushButton* englishButton_;
    QPushButton* appButton_;
    QPushButton* runButton_;
    QPushButton* closeButton_;
    QGraphicsOpacityEffect* fade_;
    QPropertyAnimation* fadeIn_;
    std::optional<QPoint> drag_; // the pointer's offset in the panel while dragging
    QTimer* saving_;             // the frame is saved once a resize or a move is over
};

// The one panel of the program, made on first use and kept.
class SubtitleWindow {
public:
    static SubtitleWindow& shared();
    // Makes the panel if needed and brings it to the front without activating anything.
    void show();
    SubtitleView* panel() const { return panel_; }

private:
    QPointer<SubtitleView> panel_;
};

} // namespace ombry
