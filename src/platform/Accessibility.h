#pragma once

#include <QCoroTask>
#include <QString>
#include <cstdint>
#include <optional>

namespace ombry {

// A handle of one element of another application's accessibility tree, to ask it again later.
struct AccessibleElement {
    QString bus;  // the application's name on the accessibility bus
    QString path; // the element's object path
    bool operator==(const AccessibleElement&) const = default;
};

// The element that has the keyboard focus in the window in front, as its application reports
// it. Offsets and counts are in characters (Unicode code points), as the accessibility
// interface counts them.
struct FocusedElement {
    AccessibleElement element;
    int64_t pid = 0;                  // the application's process
    QString applicationName;          // as the application names itself; may be empty
    bool editable = false;            // it takes typed text
    bool hasText = false;             // it exposes its text
    std::optional<QString> selection; // the selected text; none when nothing is selected
    int characterCount = -1;          // -1 when it exposes no text
    int caretOffset = -1;             // -1 when unknown
};

// An application whose window its toolkit announced as the active one.
struct ActiveApplication {
    QString bus; // its name on the accessibility bus
    int64_t pid = 0;
    QString name; // as the application names itself; may be empty
};

// The desktop's accessibility bus: what the application in front says of its focused element.
// Every question has a short deadline, so an application that hangs is an application that says
// nothing, and the caller's event loop never waits on it. Main thread only.
class Accessibility {
public:
    virtual ~Accessibility() = default;
    // The focused element of the active window. With a process id, only that process's
    // windows are asked (the window in front is known); with 0, every application's. None when
    // no such application answers in time, exposes nothing, or the bus is not there.
    virtual QCoro::Task<std::optional<FocusedElement>> focused(int64_t pid) = 0;
    // The same element asked again (its text, caret and state now); none when it is gone.
    virtual QCoro::Task<std::optional<FocusedElement>> reread(AccessibleElement element) = 0;
    // The element's text between two offsets; none when it does not answer.
    virtual QCoro::Task<std::optional<QString>> text(AccessibleElement element, int start,
                                                     int end) = 0;
    // Starts following the windows that applications announce as activated, for sessions where
    // the display server does not say which window is in front (Wayland).
    virtual void followActiveWindow() {}
    // The application of the window last announced active, read at once; none before the first
    // announcement, and none once the window in front belongs to an application that announces
    // nothing (its predecessor's window was deactivated).
    virtual std::optional<ActiveApplication> activeApplication() const { return std::nullopt; }
};

} // namespace ombry
