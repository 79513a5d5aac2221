#include "JournalSink.h"

#include "LineFormat.h"

#include <unistd.h>

#ifdef ZON_HAVE_SYSTEMD
#include <systemd/sd-journal.h>
#endif

namespace zon::logger {

bool JournalSink::isAvailable() noexcept
{
#ifdef ZON_HAVE_SYSTEMD
    return ::access("/run/systemd/journal/socket", F_OK) == 0;
#else
    return false;
#endif
}

std::shared_ptr<JournalSink> JournalSink::create(int threshold)
{
    if (!isAvailable())
        return nullptr;
    return std::shared_ptr<JournalSink>(new JournalSink(threshold));
}

int JournalSink::priorityForLevel(int level) noexcept
{
    if (level <= kLevelError)
        return 3;
    if (level == kLevelWarning)
        return 4;
    if (level < kLevelDetail)
        return 6;
    return 7;
}

JournalSink::~JournalSink() { flush(); }

void JournalSink::writeLocked(const Record& record)
{
#ifdef ZON_HAVE_SYSTEMD
    auto length = [](std::string_view text) { return int(text.size()); };
    std::string_view file = shortenedSourcePath(record.file);
    sd_journal_send("MESSAGE=%.*s", length(record.message), record.message.data(),
        "PRIORITY=%d", priorityForLevel(record.level),
        "CODE_FILE=%.*s", length(file), file.data(),
        "CODE_LINE=%d", record.line,
        "ZON_CATEGORY=%.*s", length(record.category), record.category.data(),
        "ZON_LEVEL=%d", record.level,
        "ZON_IDENTIFIER=%.*s", length(record.identifier), record.identifier.data(),
        "TID=%d", record.thread,
        nullptr);
#endif
}

} // namespace zon::logger
