#include "platform/io/ProcessTableInternal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <unistd.h>

using namespace zon;

namespace {

// A stat line of the given name and state, every other field its own number; field 22 is 22.
std::string statLine(const std::string& name, char state = 'S')
{
    std::string line = "42 (" + name + ") " + state;
    for (int field = 4; field <= 52; ++field)
        line += ' ' + std::to_string(field);
    return line + '\n';
}

} // namespace

TEST(ProcessTable, StatLineNameRunsToTheLastParenthesis)
{
    for (const std::string name : {"bash", "a) (b", "(x)", "two words", ")", ""}) {
        const std::string line = statLine(name, 'Z');
        const auto parsed = parseProcessStatLine(line);
        ASSERT_TRUE(parsed) << name;
        EXPECT_EQ(parsed->name, name);
        EXPECT_EQ(parsed->state, 'Z');
        EXPECT_EQ(parsed->startTime, 22u);
    }
}

TEST(ProcessTable, RefusesWhatIsNotAStatLine)
{
    for (const std::string line : {"", "42 bash S 1", "42 (bash", "42 )bash( S", "42 (bash) S 4 5 6", "42 (bash)S",
             "42 (bash) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 x 23"})
        EXPECT_FALSE(parseProcessStatLine(line)) << line;
}

TEST(ProcessTable, ReadsThisProcessThroughItsFolder)
{
    auto self = ProcessTable::readProcess(::getpid(), ProcessDetail::withArgumentArea);
    ASSERT_TRUE(self);
    EXPECT_EQ(self.value().state, 'R');
    EXPECT_GT(self.value().startTime, 0u);
    ASSERT_TRUE(self.value().hasArgumentArea);
    // The area starts with the argument count, then the executable path.
    const std::string_view area = self.value().argumentAreaBytes();
    char executable[4096] = {};
    ASSERT_GT(::readlink("/proc/self/exe", executable, sizeof executable - 1), 0);
    EXPECT_EQ(area.substr(4, area.find('\0', 4) - 4), executable);

    auto ids = ProcessTable::processIDs();
    ASSERT_TRUE(ids);
    EXPECT_TRUE(std::is_sorted(ids.value().begin(), ids.value().end()));
    EXPECT_TRUE(std::binary_search(ids.value().begin(), ids.value().end(), ::getpid()));
}

TEST(ProcessTable, ArgumentAreaKeepsAnUnterminatedLastArgumentApart)
{
    const std::string area = buildArgumentArea("/bin/x", std::string("/bin/x\0-v\0rewritten", 19), std::string("A=1\0", 4));
    int32_t count = 0;
    std::memcpy(&count, area.data(), sizeof count);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(area.substr(4), std::string("/bin/x\0/bin/x\0-v\0rewritten\0A=1\0", 31));
}
