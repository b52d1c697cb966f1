#include "app/Output.h"

#include <cstdio>

namespace ombry {

void printLine(const QString& line) {
    const QByteArray bytes = line.toUtf8() + '\n';
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}

} // namespace ombry
