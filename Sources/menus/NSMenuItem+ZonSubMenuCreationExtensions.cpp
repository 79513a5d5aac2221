// NSMenuItem(ZonSubMenuCreationExtensions): building the suite's menus in single calls, always
// under the submenu of a parent item.

#include "platform/menus/Menu.h"
#include "platform/menus/MenuItem.h"
#include "platform/values/String.h"

namespace zon {

namespace {

// Appends item to parent's submenu. A nil parent, or one without a submenu, has no menu to add
// to, and nothing happens: the caller still hands the item back.
void addToSubmenuOf(MenuItem* parent, MenuItem* item)
{
    if (Menu* menu = parent ? parent->submenu() : nullptr)
        menu->addItem(item);
}

} // namespace

Ref<MenuItem> MenuItem::submenuItemWithTitle(String* title)
{
    Ref<MenuItem> item = initWithTitle_action_keyEquivalent(title, nullptr, ZSTR(""));
    item->setSubmenu(Menu::initWithTitle(title));
    return item;
}

Ref<MenuItem> MenuItem::addSubmenuToMenu_withTitle(MenuItem* parent, String* title)
{
    Ref<MenuItem> item = submenuItemWithTitle(title);
    addToSubmenuOf(parent, item);
    // The tag comes after the add: whatever watches the menu's insertions sees the item untagged.
    item->setTag(-1);
    return item;
}

void MenuItem::addDashToMenu(MenuItem* parent) { addToSubmenuOf(parent, separatorItem()); }

Ref<MenuItem> MenuItem::addMenuItemToMenu_withTitle_target_action_tag(
    MenuItem* parent, String* title, Object* target, SEL action, long tag)
{
    Ref<MenuItem> item = initWithTitle_action_keyEquivalent(title, action, ZSTR(""));
    item->setTarget(target);
    item->setTag(tag);
    addToSubmenuOf(parent, item);
    return item;
}

Ref<MenuItem> MenuItem::addMenuItemToMenu_withTitle_target_action(
    MenuItem* parent, String* title, Object* target, SEL action)
{
    return addMenuItemToMenu_withTitle_target_action_tag(parent, title, target, action, 0);
}

} // namespace zon
