#include "views/overlay/BubbleView.h"

#include "platform/Platform.h"
#include "views/common/Glyphs.h"
#include "views/common/SurfaceStyle.h"
#include "views/overlay/Placement.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QTextBrowser>
#include <QTextDocument>
#include <QVBoxLayout>

namespace ombry {

namespace {
constexpr int kPad = 14;     // inside the card
constexpr int kHeader = 24;  // the header row
constexpr int kSpacing = 10; // between the rows
constexpr int kRadius = 14;
constexpr int kInner = Placement::kBubbleWidth - 2 * kPad;
} // namespace

GlyphButton::GlyphButton(Draw draw, QWidget* parent)
    : QAbstractButton(parent), draw_(std::move(draw)) {
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    setFixedSize(sizeHint());
}

void GlyphButton::setDraw(Draw draw) {
    draw_ = std::move(draw);
    update();
}

void GlyphButton::setBackground(const QColor& color) {
    background_ = color;
    update();
}

void GlyphButton::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QColor bg = background_;
    if (underMouse()) bg.setAlpha(std::min(255, bg.alpha() * 2));
    p.setPen(Qt::NoPen);
    p.setBrush(bg);
    p.drawEllipse(QRectF(rect()));
    if (draw_) draw_(p, QRectF(rect()).adjusted(4, 4, -4, -4));
}

BubbleView::BubbleView(const QString& title, const QString& original, const QString& text,
                       bool dark, bool lightVisuals, QWidget* parent)
    : QWidget(parent, surfaceFlags()), text_(text), dark_(dark), lightVisuals_(lightVisuals) {
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_X11DoNotAcceptFocus);
    setAttribute(Qt::WA_DeleteOnClose);
    setFocusPolicy(Qt::NoFocus);
    setWindowTitle(title);

    const SurfaceStyle style = surfaceStyle(dark);
    QPalette pal = palette();
    pal.setColor(QPalette::WindowText, style.text);
    pal.setColor(QPalette::Text, style.text);
    pal.setColor(QPalette::Base, Qt::transparent);
    pal.setColor(QPalette::Window, Qt::transparent);
    pal.setColor(QPalette::Highlight, style.accent);
    pal.setColor(QPalette::HighlightedText, style.onAccent);
    setPalette(pal);

    auto* globe = new GlyphButton(
        [c = style.accent](QPainter& p, const QRectF& r) { Glyphs::globe(p, r, c); }, this);
    globe->setAttribute(Qt::WA_TransparentForMouseEvents);
    globe->setCursor(Qt::ArrowCursor);

    title_ = new QLabel(title, this);
    QFont titleFont = font();
    titleFont.setPixelSize(13);
    titleFont.setWeight(QFont::DemiBold);
    title_->setFont(titleFont);

    const QColor paper = QColor(style.background.rgb()); // opaque: hides the back sheet
    copyButton_ = new GlyphButton(
        [c = style.text, paper](QPainter& p, const QRectF& r) { Glyphs::copy(p, r, c, paper); },
        this);
    copyButton_->setBackground(style.control);
    copyButton_->setToolTip(QStringLiteral("Copier"));
    connect(copyButton_, &QAbstractButton::clicked, this, &BubbleView::copy);

    closeButton_ = new GlyphButton(
        [c = style.text](QPainter& p, const QRectF& r) { Glyphs::cross(p, r, c); }, this);
    closeButton_->setBackground(style.control);
    closeButton_->setToolTip(QStringLiteral("Fermer"));
    connect(closeButton_, &QAbstractButton::clicked, this, [this] {
        if (onClose) onClose();
    });

    body_ = new QTextBrowser(this);
    body_->setFrameShape(QFrame::NoFrame);
    body_->setFocusPolicy(Qt::NoFocus);
    body_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    body_->setOpenLinks(false);
    body_->viewport()->setAutoFillBackground(false);
    body_->setAutoFillBackground(false);
    QFont bodyFont = font();
    bodyFont.setPixelSize(16);
    body_->setFont(bodyFont);
    body_->document()->setDocumentMargin(0);
    body_->setPlainText(text);
    body_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    body_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The card's height comes from fittingHeight(), not from the scroll area's usual minimum.
    body_->setMinimumHeight(20);

    original_ = new QLabel(original, this);
    original_->setWordWrap(true);
    original_->setTextFormat(Qt::PlainText);
    original_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QFont small = font();
    small.setPixelSize(12);
    original_->setFont(small);
    QPalette secondary = original_->palette();
    secondary.setColor(QPalette::WindowText, style.secondary);
    original_->setPalette(secondary);
    original_->setVisible(!original.isEmpty());

    auto* header = new QHBoxLayout;
    header->setContentsMargins(0, 0, 0, 0);
    header->setSpacing(8);
    header->addWidget(globe);
    header->addWidget(title_, 1);
    header->addWidget(copyButton_);
    header->addWidget(closeButton_);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(kPad, kPad, kPad, kPad);
    column->setSpacing(kSpacing);
    column->addLayout(header);
    column->addWidget(body_, 1);
    column->addWidget(original_);
}

Qt::WindowFlags BubbleView::surfaceFlags() {
    return Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
           Qt::WindowDoesNotAcceptFocus | Qt::X11BypassWindowManagerHint |
           Qt::NoDropShadowWindowHint;
}

int BubbleView::fittingHeight() const {
    QTextDocument doc;
    doc.setDefaultFont(body_->font());
    doc.setDocumentMargin(0);
    doc.setPlainText(text_);
    doc.setTextWidth(kInner);
    int h = 2 * kPad + kHeader + kSpacing + int(std::ceil(doc.size().height())) + 4;
    if (original_->isVisibleTo(this) || !original_->text().isEmpty())
        h += kSpacing + original_->heightForWidth(kInner);
    return h;
}

void BubbleView::copy() {
    Platform::current().clipboard().setText(text_, false);
    copied_ = true;
    const SurfaceStyle style = surfaceStyle(dark_);
    copyButton_->setDraw(
        [c = style.accent](QPainter& p, const QRectF& r) { Glyphs::checkmark(p, r, c); });
}

void BubbleView::clickCopy() {
    copyButton_->click();
}

void BubbleView::clickClose() {
    closeButton_->click();
}

QString BubbleView::shownText() const {
    return body_->toPlainText();
}

void BubbleView::paintEvent(QPaintEvent*) {
    const SurfaceStyle style = lightVisuals_ ? opaque(surfaceStyle(dark_)) : surfaceStyle(dark_);
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(style.border, 1));
    p.setBrush(style.background);
    p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), kRadius, kRadius);
}

void BubbleView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    setMask(roundedRegion(rect(), kRadius));
}

} // namespace ombry
