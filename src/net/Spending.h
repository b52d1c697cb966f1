#pragma once

#include <QByteArray>

// What the user's own OpenRouter key has spent.
namespace ombry::Spending {

// Reads `usage.cost` (US dollars) from the bytes of a successful OpenRouter reply and, when it
// is above zero, adds it to the store's costs on the main thread. A reply without a cost, or
// that does not decode, records nothing. Callable from any thread; never fails.
void record(const QByteArray& reply);

// The cost that record() would add, if any.
double costOf(const QByteArray& reply);

} // namespace ombry::Spending
