#pragma once

#include <QString>

// User notifications through the platform's notifier. Callable from any thread; silent when
// nobody can show them.
namespace ombry::Notify {

void post(const QString& title, const QString& body);

} // namespace ombry::Notify
