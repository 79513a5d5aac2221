#include "platform/menus/Menu.h"
#include "platform/menus/MenuItem.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Exception.h"

#include "support/CountedObject.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

using namespace zon;
using test::CountedObject;
using test::str;
using test::utf8;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Ref<MenuItem> itemTitled(const char* title, long tag = 0)
{
    Ref<MenuItem> item = MenuItem::initWithTitle_action_keyEquivalent(str(title), nullptr, ZSTR(""));
    item->setTag(tag);
    return item;
}

// The titles of a menu's items, in order; "-" for a separator.
std::vector<std::string> titlesOf(const Menu* menu)
{
    std::vector<std::string> titles;
    for (const Ref<MenuItem>& item : menu->items())
        titles.push_back(item->isSeparatorItem() ? "-" : utf8(item->title()));
    return titles;
}

TEST(Menu, InsertAndRemoveKeepOrderAndBackLinks)
{
    Ref<Menu> menu = Menu::initWithTitle(str("File"));
    Ref<MenuItem> open = itemTitled("Open"), save = itemTitled("Save"), close = itemTitled("Close");
    menu->addItem(open);
    menu->addItem(close);
    menu->insertItem_atIndex(save, 1);
    EXPECT_EQ(titlesOf(menu), (std::vector<std::string> {"Open", "Save", "Close"}));
    EXPECT_EQ(menu->numberOfItems(), 3);
    EXPECT_EQ(menu->itemAtIndex(2), close.get());
    EXPECT_EQ(menu->itemArray()->count(), 3u);
    EXPECT_EQ(menu->itemArray()->objectAtIndex(1), save.get());
    for (MenuItem* item : {open.get(), save.get(), close.get()})
        EXPECT_EQ(item->menu(), menu.get());
    EXPECT_EQ(menu->indexOfItem(close), 2);

    menu->removeItem(save);
    EXPECT_EQ(save->menu(), nullptr);
    EXPECT_EQ(menu->indexOfItem(save), -1);
    EXPECT_EQ(menu->indexOfItem(close), 1);
    menu->removeItemAtIndex(0);
    EXPECT_EQ(open->menu(), nullptr);
    EXPECT_EQ(titlesOf(menu), (std::vector<std::string> {"Close"}));

    // A removed item is free to go into another menu.
    Ref<Menu> other = Menu::initWithTitle(str("Other"));
    other->addItem(save);
    EXPECT_EQ(save->menu(), other.get());
    // Removing an item through a menu it is not in changes nothing.
    menu->removeItem(save);
    menu->removeItem(nullptr);
    EXPECT_EQ(save->menu(), other.get());
    EXPECT_EQ(menu->numberOfItems(), 1);

    menu->removeAllItems();
    EXPECT_EQ(menu->numberOfItems(), 0);
    EXPECT_EQ(close->menu(), nullptr);
}

TEST(Menu, AddingAnItemThatIsAlreadyInAMenuRaises)
{
    Ref<Menu> first = Menu::initWithTitle(str("First"));
    Ref<Menu> second = Menu::initWithTitle(str("Second"));
    Ref<MenuItem> item = itemTitled("Item");
    first->addItem(item);
    const std::string reason = "Item to be inserted into menu already is in another menu";
    EXPECT_EQ(test::inconsistencyReason([&] { second->addItem(item); }), reason);
    EXPECT_EQ(test::inconsistencyReason([&] { first->addItem(item); }), reason);
    EXPECT_EQ(test::inconsistencyReason([&] { first->insertItem_atIndex(item, 0); }), reason);
    EXPECT_EQ(first->numberOfItems(), 1);
    EXPECT_EQ(second->numberOfItems(), 0);
    EXPECT_EQ(item->menu(), first.get());
    EXPECT_EQ(test::inconsistencyReason([&] { first->addItem(nullptr); }), "Invalid parameter not satisfying: item != nil");
}

TEST(Menu, NilTitlesAreRefused)
{
    EXPECT_EQ(test::inconsistencyReason([] { MenuItem::initWithTitle_action_keyEquivalent(nullptr, nullptr, ZSTR("")); }),
        "Invalid parameter not satisfying: title != nil");
    EXPECT_EQ(test::inconsistencyReason([] { MenuItem::initWithTitle_action_keyEquivalent(ZSTR("x"), nullptr, nullptr); }),
        "Invalid parameter not satisfying: keyEquivalent != nil");
    Ref<MenuItem> item = itemTitled("Kept");
    EXPECT_EQ(test::inconsistencyReason([&] { item->setTitle(nullptr); }), "Invalid parameter not satisfying: title != nil");
    EXPECT_EQ(utf8(item->title()), "Kept");
    EXPECT_EQ(test::inconsistencyReason([] { Menu::initWithTitle(nullptr); }), "Invalid parameter not satisfying: title != nil");
    Ref<Menu> menu = Menu::initWithTitle(str("Kept"));
    EXPECT_EQ(test::inconsistencyReason([&] { menu->setTitle(nullptr); }), "Invalid parameter not satisfying: title != nil");
}

TEST(Menu, IndexesOutOfRangeRaiseRangeExceptions)
{
    Ref<Menu> menu = Menu::initWithTitle(str("M"));
    EXPECT_EQ(test::raisedReason(NSRangeException, [&] { menu->itemAtIndex(0); }),
        "*** -[NSMenu itemAtIndex:]: index 0 beyond bounds for empty menu");
    EXPECT_EQ(test::raisedReason(NSRangeException, [&] { menu->insertItem_atIndex(itemTitled("a"), 1); }),
        "*** -[NSMenu insertItem:atIndex:]: index 1 beyond bounds [0 .. 0]");
    menu->addItem(itemTitled("a"));
    EXPECT_EQ(test::raisedReason(NSRangeException, [&] { menu->removeItemAtIndex(-1); }),
        "*** -[NSMenu removeItemAtIndex:]: index -1 beyond bounds [0 .. 0]");
    EXPECT_EQ(menu->numberOfItems(), 1);
}

TEST(Menu, EachSeparatorIsItsOwnItem)
{
    Ref<Menu> menu = Menu::initWithTitle(str("M"));
    Ref<MenuItem> first = MenuItem::separatorItem();
    Ref<MenuItem> second = MenuItem::separatorItem();
    EXPECT_NE(first.get(), second.get());
    menu->addItem(first);
    menu->addItem(itemTitled("a"));
    menu->addItem(second);
    menu->addItem(MenuItem::separatorItem());
    EXPECT_EQ(titlesOf(menu), (std::vector<std::string> {"-", "a", "-", "-"}));
    EXPECT_TRUE(first->isSeparatorItem());
    EXPECT_FALSE(menu->itemAtIndex(1)->isSeparatorItem());
    EXPECT_EQ(utf8(first->title()), "");
    EXPECT_EQ(utf8(first->keyEquivalent()), "");
    EXPECT_EQ(first->action(), nullptr);
}

TEST(Menu, TheTargetIsNotKeptAlive)
{
    CountedObject::alive = 0;
    Ref<MenuItem> item = itemTitled("Act");
    {
        Ref<CountedObject> target = makeObject<CountedObject>();
        item->setTarget(target);
        EXPECT_EQ(item->target().get(), target.get());
        EXPECT_EQ(target->retainCount(), 1u);
    }
    EXPECT_EQ(CountedObject::alive, 0) << "the item kept its target alive";
    EXPECT_EQ(item->target(), nullptr);
    EXPECT_THAT(utf8(item->description()), Not(HasSubstr("target")));
}

TEST(Menu, SubmenusLinkToTheirSupermenu)
{
    Ref<Menu> main = Menu::initWithTitle(str("Main"));
    Ref<Menu> file = Menu::initWithTitle(str("File"));
    Ref<MenuItem> fileItem = itemTitled("File");
    fileItem->setSubmenu(file);
    EXPECT_TRUE(fileItem->hasSubmenu());
    EXPECT_EQ(file->supermenu(), nullptr) << "the item is in no menu yet";
    main->addItem(fileItem);
    EXPECT_EQ(file->supermenu(), main.get());
    main->removeItem(fileItem);
    EXPECT_EQ(file->supermenu(), nullptr);
    main->addItem(fileItem);

    // A menu that is another item's submenu is refused, and nothing changes.
    Ref<MenuItem> thief = itemTitled("Thief");
    EXPECT_THAT(test::inconsistencyReason([&] { thief->setSubmenu(file); }), HasSubstr("already the submenu of item \"File\""));
    EXPECT_FALSE(thief->hasSubmenu());
    EXPECT_EQ(file->supermenu(), main.get());
    fileItem->setSubmenu(file); // the same menu again is no change

    // Once let go, it can be attached elsewhere.
    fileItem->setSubmenu(nullptr);
    EXPECT_FALSE(fileItem->hasSubmenu());
    EXPECT_EQ(file->supermenu(), nullptr);
    thief->setSubmenu(file);
    EXPECT_EQ(thief->submenu(), file.get());
}

TEST(Menu, AMenuCannotBecomeASubmenuInsideItself)
{
    Ref<Menu> main = Menu::initWithTitle(str("Main"));
    Ref<Menu> file = Menu::initWithTitle(str("File"));
    Ref<MenuItem> fileItem = itemTitled("File");
    fileItem->setSubmenu(file);
    main->addItem(fileItem);
    Ref<MenuItem> inner = itemTitled("Inner");
    file->addItem(inner);

    EXPECT_THAT(test::inconsistencyReason([&] { inner->setSubmenu(main); }), HasSubstr("the item is inside that menu"));
    Ref<Menu> lone = Menu::initWithTitle(str("Lone"));
    Ref<MenuItem> own = itemTitled("Own");
    lone->addItem(own);
    EXPECT_THAT(test::inconsistencyReason([&] { own->setSubmenu(lone); }), HasSubstr("the item is inside that menu"));
    EXPECT_FALSE(own->hasSubmenu());
    Ref<MenuItem> loop = itemTitled("Loop");
    loop->setSubmenu(main);
    EXPECT_THAT(test::inconsistencyReason([&] { file->addItem(loop); }), HasSubstr("cannot be inserted into itself"));
    EXPECT_EQ(loop->menu(), nullptr);
    EXPECT_EQ(file->numberOfItems(), 1);
}

TEST(Menu, BackLinksClearWhenTheOtherSideDies)
{
    Ref<MenuItem> survivor = itemTitled("Survivor");
    Ref<Menu> submenu = Menu::initWithTitle(str("Sub"));
    {
        Ref<Menu> menu = Menu::initWithTitle(str("Gone"));
        Ref<MenuItem> holder = itemTitled("Holder");
        holder->setSubmenu(submenu);
        menu->addItem(survivor);
        menu->addItem(holder);
        EXPECT_EQ(submenu->supermenu(), menu.get());
    }
    EXPECT_EQ(survivor->menu(), nullptr);
    EXPECT_EQ(submenu->supermenu(), nullptr);
    Ref<MenuItem> adopter = itemTitled("Adopter");
    adopter->setSubmenu(submenu); // free again: its holder died
    EXPECT_EQ(adopter->submenu(), submenu.get());
}

TEST(Menu, FindsTheFirstItemByTagOrTitle)
{
    Ref<Menu> menu = Menu::initWithTitle(str("M"));
    Ref<MenuItem> a = itemTitled("Same", 7), b = itemTitled("Same", 7), c = itemTitled("Other", -1);
    for (MenuItem* item : {a.get(), b.get(), c.get()})
        menu->addItem(item);
    EXPECT_EQ(menu->itemWithTag(7), a.get());
    EXPECT_EQ(menu->itemWithTag(-1), c.get());
    EXPECT_EQ(menu->itemWithTag(3), nullptr);
    EXPECT_EQ(menu->itemWithTitle(str("Same")), a.get()) << "an equal title, not the same object";
    EXPECT_EQ(menu->itemWithTitle(str("Other")), c.get());
    EXPECT_EQ(menu->itemWithTitle(str("None")), nullptr);
    EXPECT_EQ(menu->itemWithTitle(nullptr), nullptr);
    menu->removeItem(a);
    EXPECT_EQ(menu->itemWithTag(7), b.get());
}

TEST(Menu, RunTimeClassesAndDescriptions)
{
    Ref<Menu> main = Menu::initWithTitle(str("Main"));
    Ref<MenuItem> item = MenuItem::initWithTitle_action_keyEquivalent(str("Open…"), selector("openDocument:"), str("o"));
    item->setTag(4);
    Ref<CountedObject> target = makeObject<CountedObject>();
    item->setTarget(target);
    Ref<Menu> recent = Menu::initWithTitle(str("Recent"));
    recent->addItem(itemTitled("a"));
    item->setSubmenu(recent);
    main->addItem(item);

    EXPECT_EQ(main->objectClass()->name(), "NSMenu");
    EXPECT_EQ(item->objectClass()->name(), "NSMenuItem");
    EXPECT_EQ(Class::named("NSMenuItem"), MenuItem::staticClass());
    const std::string text = utf8(item->description());
    EXPECT_THAT(text, StartsWith("<NSMenuItem: 0x"));
    EXPECT_THAT(text, HasSubstr("> \"Open…\" action openDocument: key \"o\" tag 4 target <CountedObject: 0x"));
    EXPECT_THAT(text, HasSubstr("submenu \"Recent\" (1 items)"));
    EXPECT_THAT(utf8(MenuItem::separatorItem()->description()), testing::EndsWith("> separator"));
    EXPECT_THAT(utf8(main->description()), testing::EndsWith("> \"Main\" 1 item"));
    EXPECT_THAT(utf8(recent->description()), testing::EndsWith("> \"Recent\" 1 item in \"Main\""));
}

} // namespace
