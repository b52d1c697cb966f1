#include "platform/SerialQueue.h"

#include "platform/Clock.h"
#include "platform/Platform.h"

#include <pthread.h>
#include <set>

namespace ombry {

namespace {

// The live queues of the process. Never destroyed: queues may be made and stopped while
// static objects are being torn down.
struct Registry {
    std::mutex mutex;
    std::set<SerialQueue*> queues;
};

Registry& registry() {
    static auto* r = new Registry;
    return *r;
}

} // namespace

SerialQueue::SerialQueue(QString label, Clock* clock) : label_(std::move(label)), clock_(clock) {
    thread_ = std::thread([this] { run(); });
    // Thread names are limited to 15 characters on Linux.
    pthread_setname_np(thread_.native_handle(), label_.left(15).toUtf8().constData());
    std::lock_guard lock(registry().mutex);
    registry().queues.insert(this);
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(registry().mutex);
        registry().queues.erase(this);
    }
    stop();
}

void SerialQueue::stop() {
    std::lock_guard stopLock(stopMutex_);
    if (stopped_) return;
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    cv_.notify_all();
    if (thread_.get_id() == std::this_thread::get_id())
        thread_.detach(); // stopped from its own work: it returns after this item
    else if (thread_.joinable())
        thread_.join();
    std::lock_guard lock(mutex_);
    entries_.clear();
    stopped_ = true;
}

bool SerialQueue::stopped() const {
    std::lock_guard lock(mutex_);
    return stopping_;
}

void SerialQueue::stopAll() {
    std::set<SerialQueue*> queues;
    {
        std::lock_guard lock(registry().mutex);
        queues = registry().queues;
    }
    // A queue is destroyed only by its owner, which does not run during the end of the program.
    for (SerialQueue* q : queues)
        q->stop();
}

Clock& SerialQueue::clock() const {
    return clock_ ? *clock_ : Platform::current().clock();
}

void SerialQueue::async(std::function<void()> fn) {
    auto item = std::make_shared<WorkItem>(std::move(fn));
    // Once the queue is stopping, nothing reads the clock any more and the work runs here.
    if (!enqueue(std::nullopt, item)) item->perform();
}

void SerialQueue::asyncAfter(int64_t delayMs, const WorkItemPtr& item) {
    enqueue(delayMs, item); // dropped once the queue is stopping: nothing is left to wait for it
}

bool SerialQueue::enqueue(std::optional<int64_t> delayMs, WorkItemPtr item) {
    {
        std::lock_guard lock(mutex_);
        if (stopping_) return false;
        const int64_t now = clock().elapsedMs();
        entries_.emplace(now + delayMs.value_or(0), Entry{std::move(item)});
    }
    cv_.notify_all();
    return true;
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
            if (stopping_) return;
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
