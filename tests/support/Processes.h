#pragma once

#include <QByteArray>
#include <QList>
#include <QStringList>
#include <sys/types.h>

namespace ombry::test {

// Starts a program with its input from /dev/null and its output to `output` (appended;
// /dev/null when empty). Descriptors without close-on-exec stay open in it. It is killed if
// this process dies first, so that a crashed test leaves no server behind. It runs with
// `environment` ("NAME=value" each) when that is given, else with this process's. 0 on failure.
pid_t spawn(const QList<QByteArray>& argv, const QByteArray& output = {},
            const QStringList& environment = {});

// Ends a child: SIGTERM, then SIGKILL if it is still there after a second.
void end(pid_t& pid);

} // namespace ombry::test
