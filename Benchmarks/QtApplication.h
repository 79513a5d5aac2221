#pragma once

// The one QCoreApplication a benchmark program's Qt rows need (socket notifiers, event delivery);
// made on first use, never run, and kept as long as the process.

#include <QCoreApplication>

namespace zon::bench {

inline void ensureQtApplication()
{
    static int argc = 1;
    static char name[] = "benchmark";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance())
        new QCoreApplication(argc, argv);
}

} // namespace zon::bench
