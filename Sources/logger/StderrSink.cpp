#include "StderrSink.h"

#include "LineFormat.h"
#include "WriteFully.h"

namespace zon::logger {

StderrSink::~StderrSink() { flush(); }

void StderrSink::writeLocked(const Record& record)
{
    thread_local std::string line;
    line.clear();
    appendLine(line, record);
    writeFully(fd_, line);
}

} // namespace zon::logger
