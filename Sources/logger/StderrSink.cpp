#include "StderrSink.h"

#include "LineFormat.h"
#include "WriteFully.h"

namespace zon::logger {

void StderrSink::write(const Record& record) noexcept
{
    try {
        thread_local std::string line;
        line.clear();
        appendLine(line, record);
        std::lock_guard guard(lock_);
        writeFully(fd_, line);
    } catch (...) {
        // Out of memory while formatting: the record is dropped.
    }
}

} // namespace zon::logger
