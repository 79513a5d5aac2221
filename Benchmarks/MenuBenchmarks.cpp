// Building a menu of 1,000 to 100,000 items: the platform menu through addItem, and the same through
// NSMenuItem(ZonSubMenuCreationExtensions), against a plain std::vector of structs as the floor.
// Each row builds the menu and lets it go, so teardown is counted too. Complexity rows (_BigO,
// _RMS) show whether the time grows linearly with the item count.

#include "RatioReporter.h"

#include "platform/menus/Menu.h"
#include "platform/menus/MenuItem.h"
#include "platform/runtime/AutoreleasePool.h"
#include "platform/values/String.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace zon;

// What a caller who wanted no objects at all would keep per item; the floor reserves its vector
// up front, the least work a menu of known size can cost.
struct PlainMenuItem {
    std::string title;
    std::string keyEquivalent;
    const Selector* action = nullptr;
    const void* target = nullptr;
    long tag = 0;
    std::unique_ptr<std::vector<PlainMenuItem>> submenu;
};

constexpr long kCounts[] = {1'000, 10'000, 100'000};

void withCounts(benchmark::internal::Benchmark* benchmark)
{
    for (long count : kCounts)
        benchmark->Arg(count);
    benchmark->Complexity(benchmark::oN)->Unit(benchmark::kMicrosecond);
}

// Builds a menu of state.range(0) items with build(count) once per iteration (the menu is let go
// inside build) and records the count for the complexity fit.
template <class Build>
void measureBuilding(benchmark::State& state, Build build)
{
    for (auto _ : state)
        build(state.range(0));
    state.SetComplexityN(state.range(0));
}

void BM_MenuBuild_PlainVector(benchmark::State& state)
{
    const SEL action = selector("open:");
    measureBuilding(state, [action](long count) {
        std::vector<PlainMenuItem> menu;
        menu.reserve(size_t(count));
        for (long i = 0; i < count; ++i)
            menu.push_back(PlainMenuItem {"Item", "", action, nullptr, i, nullptr});
        benchmark::DoNotOptimize(menu.data());
    });
}
BENCHMARK(BM_MenuBuild_PlainVector)->Apply(withCounts);

void BM_MenuBuild_AddItem(benchmark::State& state)
{
    const SEL action = selector("open:");
    measureBuilding(state, [action](long count) {
        Ref<Menu> menu = Menu::initWithTitle(ZSTR("Menu"));
        for (long i = 0; i < count; ++i) {
            Ref<MenuItem> item = MenuItem::initWithTitle_action_keyEquivalent(ZSTR("Item"), action, ZSTR(""));
            item->setTag(i);
            menu->addItem(item);
        }
        benchmark::DoNotOptimize(menu.get());
    });
}
BENCHMARK(BM_MenuBuild_AddItem)->Apply(withCounts);

void BM_MenuBuild_SubMenuCreationExtensions(benchmark::State& state)
{
    const SEL action = selector("open:");
    measureBuilding(state, [action](long count) {
        Ref<MenuItem> parent = MenuItem::submenuItemWithTitle(ZSTR("Menu"));
        for (long i = 0; i < count; ++i)
            MenuItem::addMenuItemToMenu_withTitle_target_action_tag(parent, ZSTR("Item"), nullptr, action, i);
        benchmark::DoNotOptimize(parent.get());
    });
}
BENCHMARK(BM_MenuBuild_SubMenuCreationExtensions)->Apply(withCounts);

void report(const bench::RatioReporter& ran)
{
    std::printf("\nNanoseconds per item (flat across counts: linear):\n");
    for (const char* row : {"BM_MenuBuild_PlainVector", "BM_MenuBuild_AddItem", "BM_MenuBuild_SubMenuCreationExtensions"}) {
        std::printf("%-40s", row);
        for (long count : kCounts)
            std::printf("  %7ld: %6.1f", count, ran.nanoseconds(std::string(row) + "/" + std::to_string(count)) / double(count));
        std::printf("\n");
    }
    std::printf("\nTime against the plain vector of structs (above 1: the menu takes that many times as long):\n");
    for (long count : kCounts) {
        const std::string floor = "BM_MenuBuild_PlainVector/" + std::to_string(count);
        ran.printRatio("BM_MenuBuild_AddItem/" + std::to_string(count), floor);
        ran.printRatio("BM_MenuBuild_SubMenuCreationExtensions/" + std::to_string(count), floor);
    }
}

} // namespace

int main(int argc, char** argv)
{
    zon::AutoreleasePool pool;
    zon::bench::RatioReporter reporter;
    return zon::bench::runAndReport(argc, argv, reporter, report);
}
