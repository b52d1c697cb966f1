#pragma once

#include <QString>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace ombry {

class Clock;

// A unit of work that can be cancelled before it runs and can be run again by hand
// (the store's flush does that with its pending saves).
class WorkItem {
public:
    explicit WorkItem(std::function<void()> fn) : fn_(std::move(fn)) {}
    void cancel() { cancelled_ = true; }
    bool isCancelled() const { return cancelled_; }
    void perform() const { fn_(); }

private:
    std::function<void()> fn_;
    std::atomic<bool> cancelled_{false};
};
using WorkItemPtr = std::shared_ptr<WorkItem>;

// One worker thread that runs its work items one at a time in order of due time (and of
// arrival for equal times). Named after its label, e.g. "verlo.store.io".
class SerialQueue {
public:
    // clock: the time source for delayed items; nullptr means the platform's clock at each use.
    explicit SerialQueue(QString label, Clock* clock = nullptr);
    ~SerialQueue(); // stop()
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    // Runs what is already due, drops what is delayed and joins the thread. Work handed over
    // afterwards runs at once on the caller's thread (delayed work is dropped), so that late
    // writes are not lost and waiting callers do not hang.
    void stop();
    bool stopped() const;
    // Stops every queue of the process. The end of the program calls it before static objects
    // are destroyed: no worker thread may then still be reading the clock or the platform.
    static void stopAll();
    const QString& label() const { return label_; }
    void async(std::function<void()> fn);
    void asyncAfter(int64_t delayMs, const WorkItemPtr& item);
    // Runs fn on the queue and waits for it. Must not be called from the queue itself.
    void sync(const std::function<void()>& fn);
    bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }

private:
    struct Entry {
        WorkItemPtr item;
    };
    // False when the queue is stopping: the item was not taken.
    bool enqueue(std::optional<int64_t> delayMs, WorkItemPtr item);
    void run();
    Clock& clock() const;

    QString label_;
    Clock* clock_;
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    std::multimap<int64_t, Entry> entries_;
    bool stopping_ = false;
    bool stopped_ = false; // the thread has been joined
    std::thread thread_;
    std::mutex stopMutex_;
};

} // namespace ombry
