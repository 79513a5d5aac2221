#include "LogCapture.h"

#include "logger/LineFormat.h"

namespace zon::logger {

void PrintTo(const CapturedRecord& record, std::ostream* out)
{
    *out << '<' << record.level << "> " << record.category << '/' << record.identifier << ' '
         << shortenedSourcePath(record.file) << ':' << record.line << ": \"" << record.message << '"';
}

} // namespace zon::logger

namespace zon {

LogCapture::LogCapture()
    : sink_(std::make_shared<logger::CaptureSink>(logger::kLevelDetail))
{
    logger::addSink(sink_);
}

LogCapture::~LogCapture()
{
    logger::removeSink(sink_);
}

} // namespace zon
