#pragma once

// Helpers of the page tests: finding widgets by name and text, and a probe of the event loop.

#include <QAbstractButton>
#include <QElapsedTimer>
#include <QLabel>
#include <QTest>
#include <QTimer>
#include <QWidget>
#include <algorithm>
#include <functional>

namespace ombry::test {

// The visible button whose text is `text`, or nullptr.
inline QAbstractButton* buttonWithText(QWidget* root, const QString& text) {
    for (QAbstractButton* b : root->findChildren<QAbstractButton*>())
        if (b->text() == text && b->isVisibleTo(root)) return b;
    return nullptr;
}

// Whether a visible label shows exactly `text`.
inline bool showsLabel(QWidget* root, const QString& text) {
    for (QLabel* l : root->findChildren<QLabel*>())
        if (l->text() == text && l->isVisibleTo(root)) return true;
    return false;
}

// Types a text into a widget key by key, accented letters included.
inline void typeText(QWidget* w, const QString& text) {
    for (QChar c : text) {
        if (c.unicode() < 0x80) {
            QTest::keyClicks(w, QString(c));
        } else {
            QTest::sendKeyEvent(QTest::Press, w, Qt::Key_unknown, QString(c), Qt::NoModifier);
            QTest::sendKeyEvent(QTest::Release, w, Qt::Key_unknown, QString(c), Qt::NoModifier);
        }
    }
}

// Types `sentence` twice over, key by key at a typist's pace, calling `pause` after every
// `every` keys and letting the page see it.
inline void typeWithPauses(QWidget* w, const QString& sentence, int every,
                           const std::function<void()>& pause) {
    for (int i = 0; i < sentence.size() * 2; ++i) {
        typeText(w, QString(sentence.at(i % sentence.size())));
        if (i % every == every - 1) {
            pause();
            QTest::qWait(20);
        }
        QTest::qWait(8);
    }
}

// The first widget called `name`, by its object name or the part the page marked it as.
template <class W> W* named(QWidget* root, const char* name) {
    const QString wanted = QString::fromLatin1(name);
    for (W* w : root->template findChildren<W*>())
        if (w->objectName() == wanted || w->property("part").toString() == wanted) return w;
    return nullptr;
}

// The longest the event loop went without turning, seen by a 5 ms timer.
class LoopProbe : public QObject {
public:
    LoopProbe() {
        timer_.setTimerType(Qt::PreciseTimer);
        timer_.setInterval(5);
        QObject::connect(&timer_, &QTimer::timeout, this, [this] {
            worst_ = std::max(worst_, clock_.restart());
            ++ticks_;
        });
    }
    void start() {
        worst_ = 0;
        ticks_ = 0;
        clock_.start();
        timer_.start();
    }
    void stop() { timer_.stop(); }
    qint64 worstGapMs() const { return worst_; }
    int ticks() const { return ticks_; }

private:
    QTimer timer_;
    QElapsedTimer clock_;
    qint64 worst_ = 0;
    int ticks_ = 0;
};

} // namespace ombry::test
