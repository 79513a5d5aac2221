// zon menu demo: a menu built with NSMenuItem(ZonSubMenuCreationExtensions), printed as a tree.

#include "Commands.h"

#include "platform/menus/Menu.h"
#include "platform/menus/MenuItem.h"
#include "platform/runtime/Class.h"
#include "platform/values/String.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <string>

namespace zon::tool {
namespace {

// The target of the demo's actions; the items do not keep it alive, so the demo holds it.
class DemoController final : public Object {
    ZON_OBJECT(DemoController, Object)
public:
    static Ref<DemoController> controller() { return makeObject<DemoController>(); }
};
ZON_DEFINE_CLASS(DemoController, "DemoController")

// One line per item, indented by depth: the title in quotes, then the action, target, tag and
// submenu size; a separator is a line of its own.
void printItems(const Menu* menu, int depth)
{
    const std::string indent(size_t(depth) * 2, ' ');
    for (const Ref<MenuItem>& item : menu->items()) {
        if (item->isSeparatorItem()) {
            std::cout << indent << "----------\n";
            continue;
        }
        std::cout << indent << '"' << item->title()->UTF8String() << '"';
        if (item->action())
            std::cout << "  action " << item->action()->name();
        if (Ref<Object> target = item->target())
            std::cout << "  target " << target->objectClass()->name();
        std::cout << "  tag " << item->tag();
        if (Menu* submenu = item->submenu()) {
            std::cout << "  submenu (" << submenu->numberOfItems() << " items)\n";
            printItems(submenu, depth + 1);
        } else {
            std::cout << '\n';
        }
    }
}

void runDemo()
{
    Ref<DemoController> controller = DemoController::controller();
    Ref<MenuItem> root = MenuItem::submenuItemWithTitle(ZSTR("Device"));

    Ref<MenuItem> library = MenuItem::addSubmenuToMenu_withTitle(root, ZSTR("Library"));
    MenuItem::addMenuItemToMenu_withTitle_target_action_tag(
        library, ZSTR("Import Music..."), controller, selector("importMusic:"), 1);
    MenuItem::addMenuItemToMenu_withTitle_target_action_tag(
        library, ZSTR("Export Playlist..."), controller, selector("exportPlaylist:"), 2);
    MenuItem::addDashToMenu(library);
    MenuItem::addMenuItemToMenu_withTitle_target_action(library, ZSTR("Show in Folder"), controller, selector("showInFolder:"));
    MenuItem::addDashToMenu(root);

    // Two submenus with one title: distinct items, both tagged -1.
    Ref<MenuItem> recent = MenuItem::addSubmenuToMenu_withTitle(root, ZSTR("Recent"));
    MenuItem::addMenuItemToMenu_withTitle_target_action_tag(
        recent, ZSTR("Backup of 20 November"), controller, selector("restoreBackup:"), 20);
    MenuItem::addSubmenuToMenu_withTitle(root, ZSTR("Recent"));
    MenuItem::addDashToMenu(root);
    Ref<MenuItem> eject = MenuItem::addMenuItemToMenu_withTitle_target_action_tag(
        root, ZSTR("Eject"), controller, selector("eject:"), 99);

    // A parent without a submenu: nothing is added, the item still comes back.
    Ref<MenuItem> orphan = MenuItem::addMenuItemToMenu_withTitle_target_action(
        eject, ZSTR("Eject All"), controller, selector("ejectAll:"));

    std::cout << "menu \"" << root->submenu()->title()->UTF8String() << "\" (" << root->submenu()->numberOfItems()
              << " items)\n";
    printItems(root->submenu(), 1);
    std::cout << "added under \"Eject\", which has no submenu: \"" << orphan->title()->UTF8String() << "\" answered, "
              << (orphan->menu() ? "in a menu" : "in no menu") << '\n';
}

} // namespace

void addMenuCommands(CLI::App& app)
{
    auto* group = app.add_subcommand("menu", "Menus built from submenu items, separators and action items");
    group->require_subcommand(1);
    group->add_subcommand("demo", "Build a menu with the five menu operations and print the tree")->callback(runDemo);
}

} // namespace zon::tool
