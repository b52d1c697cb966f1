#pragma once

#include <QCheckBox>
#include <QComboBox>

namespace ombry {

// An on/off switch: a check box drawn as a pill with a knob, in the accent colour when on.
class Switch : public QCheckBox {
    Q_OBJECT
public:
    explicit Switch(QWidget* parent = nullptr);
    QSize sizeHint() const override { return {38, 22}; }
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;
    bool hitButton(const QPoint& pos) const override { return rect().contains(pos); }
};

// A drop-down list with the chevron of the window's look.
class Picker : public QComboBox {
    Q_OBJECT
public:
    explicit Picker(QWidget* parent = nullptr) : QComboBox(parent) {}

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace ombry
