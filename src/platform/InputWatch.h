#pragma once

#include <functional>

namespace ombry {

// Clicks of the main button and the Escape key anywhere in the session, seen without taking
// them: a floating card closes when the user goes on with something else. Events come on the
// main thread. Runs only between start() and stop(), so an idle program watches nothing.
class InputWatch {
public:
    virtual ~InputWatch() = default;
    // escape: the Escape key went down; otherwise the main button was pressed (anywhere,
    // including on the program's own windows: the caller tells them apart by the pointer).
    using Handler = std::function<void(bool escape)>;
    // False when the session offers no way to watch (no display).
    virtual bool start(Handler handler) = 0;
    virtual void stop() = 0;
    virtual bool running() const = 0;
};

} // namespace ombry
