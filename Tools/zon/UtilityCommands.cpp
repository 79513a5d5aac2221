// zon tail, zon random and zon shuffle: the last lines of a file, bounded random numbers and the
// suite's shuffle.

#include "CommandSupport.h"
#include "Commands.h"

#include "extensions/NSFileHandle+ZonTail.h"
#include "platform/values/Array.h"
#include "utilities/math/TXZonRandom.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <iostream>

namespace zon::tool {
namespace {

// The lines as tail(1) prints them; with showNul, each terminator the reader kept shows as "\0".
void printLastLines(const std::string& path, uint32_t count, bool showNul)
{
    Ref<FileHandle> handle = FileHandle::fileHandleForReadingAtPath(String::stringWithUTF8String(path).get());
    if (!handle)
        fail("cannot open " + path + ": " + std::strerror(errno), kExitFileError);
    Ref<Array> lines = handle->readLastLines(count);
    for (Object* item : *lines) {
        std::string line = static_cast<String*>(item)->UTF8String();
        const bool terminated = !line.empty() && line.back() == '\0';
        if (terminated)
            line.pop_back();
        std::cout << printable(std::move(line)) << (terminated && showNul ? "\\0" : "") << '\n';
    }
}

void seedIfAsked(const std::shared_ptr<long>& seed, CLI::Option* option)
{
    if (option->count() > 0)
        ::srandom(static_cast<unsigned>(*seed)); // the tool is the host: only it seeds random()
}

} // namespace

void addUtilityCommands(CLI::App& app)
{
    auto* tail = app.add_subcommand("tail", "the last lines of FILE, read backwards without reading the whole file");
    auto path = std::make_shared<std::string>();
    auto count = std::make_shared<int64_t>(10);
    auto showNul = std::make_shared<bool>(false);
    tail->add_option("-n,--lines", *count, "how many lines (default 10)")->check(wholeNumberFrom(0, UINT32_MAX));
    tail->add_flag("--show-nul", *showNul, "mark the U+0000 that ends each line found by its line feed");
    tail->add_option("FILE", *path, "the file")->required();
    tail->callback([path, count, showNul] { printLastLines(*path, static_cast<uint32_t>(*count), *showNul); });

    auto* random = app.add_subcommand("random", "bounded random numbers over the C library's random()");
    random->require_subcommand(1);
    auto* below = random->add_subcommand("below", "values from 0 to N - 1 (ZonRandomNumber)");
    auto bound = std::make_shared<int64_t>();
    auto draws = std::make_shared<int64_t>(1);
    auto seed = std::make_shared<long>();
    below->add_option("N", *bound, "the exclusive bound")->required()->check(wholeNumberFrom(1, UINT32_MAX));
    below->add_option("-c,--count", *draws, "how many values (default 1)")->check(wholeNumberFrom(0, 100000000));
    auto* seedOption = below->add_option("-s,--seed", *seed, "seed random() first with srandom");
    below->callback([bound, draws, seed, seedOption] {
        seedIfAsked(seed, seedOption);
        for (int64_t i = 0; i < *draws; ++i)
            std::cout << ZonRandomNumber(static_cast<uint32_t>(*bound)) << '\n';
    });

    auto* shuffle = app.add_subcommand("shuffle", "ITEMs in shuffled order; the first one stays first");
    auto items = std::make_shared<std::vector<std::string>>();
    auto shuffleSeed = std::make_shared<long>();
    shuffle->add_option("ITEM", *items, "the items")->required()->check(validUTF8());
    auto* shuffleSeedOption = shuffle->add_option("-s,--seed", *shuffleSeed, "seed random() first with srandom");
    shuffle->callback([items, shuffleSeed, shuffleSeedOption] {
        seedIfAsked(shuffleSeed, shuffleSeedOption);
        Ref<MutableArray> array = MutableArray::array();
        for (const std::string& item : *items)
            array->addObject(String::stringWithUTF8String(item).get());
        Ref<Array> shuffled = array->shuffledArray();
        for (Object* item : *shuffled)
            std::cout << static_cast<String*>(item)->UTF8String() << '\n';
    });
}

} // namespace zon::tool
