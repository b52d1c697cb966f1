#include "ProcessSample.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QStringList>
#include <unistd.h>

namespace ombry::bench {

std::optional<ProcessSample> sampleProcess(qint64 pid) {
    const QString base = QStringLiteral("/proc/%1").arg(pid);
    QFile stat(base + QStringLiteral("/stat"));
    if (!stat.open(QIODevice::ReadOnly)) return std::nullopt;
    const QByteArray line = stat.readAll();
    // The command name stands in parentheses and may hold blanks: fields count after it.
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13) return std::nullopt;
    ProcessSample s;
    const double tick = 1000.0 / double(sysconf(_SC_CLK_TCK));
    s.cpuMs = double(fields[11].toLongLong() + fields[12].toLongLong()) * tick;
    QFile status(base + QStringLiteral("/status"));
    if (status.open(QIODevice::ReadOnly)) {
        for (const QByteArray& l : status.readAll().split('\n'))
            if (l.startsWith("VmRSS:"))
                s.residentMb = l.mid(6).trimmed().split(' ')[0].toDouble() / 1024.0;
    }
    const QStringList tasks =
        QDir(base + QStringLiteral("/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    s.threads = int(tasks.size());
    for (const QString& task : tasks) {
        QFile f(base + QStringLiteral("/task/") + task + QStringLiteral("/status"));
        if (!f.open(QIODevice::ReadOnly)) continue;
        for (const QByteArray& l : f.readAll().split('\n'))
            if (l.startsWith("voluntary_ctxt_switches:") ||
                l.startsWith("nonvoluntary_ctxt_switches:"))
                s.switches += l.mid(l.indexOf(':') + 1).trimmed().toLongLong();
    }
    return s;
}

} // namespace ombry::bench
