#pragma once

#include <QCoroTask>
#include <QEventLoop>
#include <QString>
#include <QTimer>
#include <exception>
#include <functional>
#include <optional>
#include <stdexcept>
#include <type_traits>

namespace ombry::test {

// Runs a task to its end on a nested event loop and gives its value, or throws what the task
// threw. QCoro::waitFor (0.8) never returns when the task throws, so tests of failures use
// this. A task still running after `timeoutMs` fails the test with std::runtime_error.
template <typename T> T await(QCoro::Task<T>&& task, int timeoutMs = 120000) {
    struct State {
        QEventLoop loop;
        bool done = false;
        std::exception_ptr error;
        std::conditional_t<std::is_void_v<T>, bool, std::optional<T>> value{};
    } state;
    auto run = [](QCoro::Task<T> t, State* s) -> QCoro::Task<void> {
        try {
            if constexpr (std::is_void_v<T>)
                co_await std::move(t);
            else
                s->value.emplace(co_await std::move(t));
        } catch (...) {
            s->error = std::current_exception();
        }
        s->done = true;
        s->loop.quit();
    };
    QCoro::Task<void> runner = run(std::move(task), &state);
    if (!state.done) {
        QTimer::singleShot(timeoutMs, &state.loop, &QEventLoop::quit);
        state.loop.exec();
    }
    if (!state.done) throw std::runtime_error("the task did not finish in time");
    if (state.error) std::rethrow_exception(state.error);
    if constexpr (!std::is_void_v<T>) return std::move(*state.value);
}

// The text (what()) of the exception of type E that `call` throws; empty when it throws none.
// Exceptions of other types pass through.
template <typename E> QString failureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const E& e) {
        return QString::fromUtf8(e.what());
    }
    return {};
}

} // namespace ombry::test
