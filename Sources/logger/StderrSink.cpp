#include "StderrSink.h"

#include "LineFormat.h"
#include "WriteFully.h"

namespace zon::logger {

StderrSink::~StderrSink() { flush(); }

void StderrSink::writeLocked(const Record& record)
{
    line_.clear();
    appendLine(line_, record);
    writeFully(fd_, line_);
}

} // namespace zon::logger
