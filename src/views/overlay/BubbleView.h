#pragma once

#include <QAbstractButton>
#include <QWidget>
#include <functional>

class QLabel;
class QTextBrowser;

namespace ombry {

// A small round button that draws one symbol.
class GlyphButton : public QAbstractButton {
    Q_OBJECT
public:
    using Draw = std::function<void(QPainter&, const QRectF&)>;
    explicit GlyphButton(Draw draw, QWidget* parent = nullptr);
    void setDraw(Draw draw);
    void setBackground(const QColor& color);
    QSize sizeHint() const override { return {24, 24}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Draw draw_;
    QColor background_ = Qt::transparent;
};

// The card that shows the result of a translation or correction that could not be pasted: a
// header with a globe, the title and two buttons (copy, close), the text (selectable, large),
// and the original in small type. It never takes the focus but takes clicks.
class BubbleView : public QWidget {
    Q_OBJECT
public:
    BubbleView(const QString& title, const QString& original, const QString& text, bool dark,
               bool lightVisuals, QWidget* parent = nullptr);

    static Qt::WindowFlags surfaceFlags();

    // The height the card needs to show everything at its fixed width.
    int fittingHeight() const;

    bool copied() const { return copied_; }
    std::function<void()> onClose;

    // For tests and pictures.
    void clickCopy();
    void clickClose();
    QString shownText() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void copy();

    QString text_;
    bool dark_;
    bool lightVisuals_;
    bool copied_ = false;
    QLabel* title_ = nullptr;
    QTextBrowser* body_ = nullptr;
    QLabel* original_ = nullptr;
    GlyphButton* copyButton_ = nullptr;
    GlyphButton* closeButton_ = nullptr;
};

} // namespace ombry
