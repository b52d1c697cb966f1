#include "dictation/DictationSupport.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <QCoroTimer>
#include <QTimer>
#include <algorithm>
#include <chrono>

namespace ombry::dictation {

Clock& clock() {
    return Platform::current().clock();
}

QCoro::Task<void> sleepMs(int ms) {
    co_await QCoro::sleepFor(std::chrono::milliseconds(ms));
}

QCoro::Task<void> afterOnClock(QPointer<QObject> owner, int64_t ms, std::function<void()> fn) {
    const int64_t deadline = clock().elapsedMs() + ms;
    for (int64_t left = ms; left > 0; left = deadline - clock().elapsedMs()) {
        if (!owner) co_return;
        QTimer timer;
        timer.setSingleShot(true);
        timer.setTimerType(Qt::PreciseTimer);
        timer.start(int(std::max<int64_t>(1, clock().maxSleepMs(left))));
        co_await timer;
    }
    if (owner) fn();
}

QString trimmed(const std::optional<QString>& text) {
    return text ? text->trimmed() : QString();
}

bool isOwnWindow(const std::optional<AppWindow>& window) {
    return window && window->pid == QCoreApplication::applicationPid();
}

std::optional<QString> appIdOf(const std::optional<AppWindow>& app) {
    if (!app || app->appId.isEmpty()) return std::nullopt;
    return app->appId;
}

} // namespace ombry::dictation
