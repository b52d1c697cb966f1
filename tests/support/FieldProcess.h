#pragma once

#include <QProcess>
#include <QString>
#include <optional>

namespace ombry::test {

// The text field of another application (field/TestField.cpp) on the Wayland session of this
// process's environment, and what it reports: its text, the clipboard it sees, and the
// wall-clock times (ms) at which its text changed. Its lines are read while the loop turns.
class FieldProcess {
public:
    ~FieldProcess() { close(); }
    // Starts it (with a text it copies at its first key, when given) and waits until it has
    // the focus.
    bool open(const QString& clipboard = {}, int timeoutMs = 15000);
    void close();
    qint64 pid() const { return process_.processId(); }
    // The field's program, for a desktop file that names it.
    static QString program();
    QString text() const { return text_; }
    QString clipboard() const { return clipboard_; }
    std::optional<qint64> firstChange() const { return firstChange_; }
    // Waits until the text is `text`; the time of that change.
    std::optional<qint64> waitForText(const QString& text, int timeoutMs = 10000);

private:
    void read();

    QProcess process_;
    QString text_, clipboard_;
    bool focused_ = false;
    std::optional<qint64> firstChange_;
    qint64 changedAt_ = 0;
};

} // namespace ombry::test
