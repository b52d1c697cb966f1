#include "platform/SerialQueue.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <pthread.h>

namespace ombry {

SerialQueue::SerialQueue(QString label, Clock* clock) : label_(std::move(label)), clock_(clock) {
    thread_ = std::thread([this] { run(); });
    // Thread names are limited to 15 characters on Linux.
    pthread_setname_np(thread_.native_handle(), label_.left(15).toUtf8().constData());
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    cv_.notify_all();
    thread_.join();
}

Clock& SerialQueue::clock() const {
    return clock_ ? *clock_ : Platform::current().clock();
}

void SerialQueue::async(std::function<void()> fn) {
    enqueue(clock().elapsedMs(), std::make_shared<WorkItem>(std::move(fn)));
}

void SerialQueue::asyncAfter(int64_t delayMs, const WorkItemPtr& item) {
    enqueue(clock().elapsedMs() + delayMs, item);
}

void SerialQueue::enqueue(int64_t dueMs, WorkItemPtr item) {
    {
        std::lock_guard lock(mutex_);
        entries_.emplace(dueMs, Entry{std::move(item)});
    }
    cv_.notify_all();
}

void SerialQueue::sync(const std::function<void()>& fn) {
    std::mutex doneMutex;
    std::condition_variable doneCv;
    bool done = false;
    async([&] {
        fn();
        std::lock_guard lock(doneMutex);
        done = true;
        doneCv.notify_all();
    });
    std::unique_lock lock(doneMutex);
    doneCv.wait(lock, [&] { return done; });
}

void SerialQueue::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (entries_.empty()) {
            if (stopping_) return;
            cv_.wait(lock);
            continue;
        }
        auto first = entries_.begin();
        const int64_t now = clock().elapsedMs();
        if (first->first > now) {
            if (stopping_) return; // delayed work is dropped at teardown
            cv_.wait_for(lock, std::chrono::milliseconds(clock().maxSleepMs(first->first - now)));
            continue;
        }
        WorkItemPtr item = std::move(first->second.item);
        entries_.erase(first);
        if (item->isCancelled()) continue;
        lock.unlock();
        item->perform();
        lock.lock();
    }
}

} // namespace ombry
