#include "platform/menus/Menu.h"
#include "platform/menus/MenuItem.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"

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
using testing::EndsWith;
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
    EXPECT_EQ(menu->itemArray()->objectAtIndex(1), save.get());
    EXPECT_EQ(save->menu(), menu.get());
    EXPECT_EQ(menu->indexOfItem(close), 2);

    menu->removeItem(save);
    EXPECT_EQ(save->menu(), nullptr);
    EXPECT_EQ(menu->indexOfItem(save), -1);
    EXPECT_EQ(menu->indexOfItem(close), 1);
    menu->removeItemAtIndex(0);
    EXPECT_EQ(open->menu(), nullptr);

    // A removed item may go into another menu; removing it through a menu it is not in does nothing.
    Ref<Menu> other = Menu::initWithTitle(str("Other"));
    other->addItem(save);
    menu->removeItem(save);
    EXPECT_EQ(save->menu(), other.get());
    menu->removeAllItems();
    EXPECT_EQ(menu->numberOfItems(), 0);
    EXPECT_EQ(close->menu(), nullptr);
}

TEST(Menu, RefusesAnItemAlreadyInAMenuAndNilTitles)
{
    Ref<Menu> first = Menu::initWithTitle(str("First"));
    Ref<Menu> second = Menu::initWithTitle(str("Second"));
    Ref<MenuItem> item = itemTitled("Item");
    first->addItem(item);
    const std::string inMenu = "Item to be inserted into menu already is in another menu";
    EXPECT_EQ(test::inconsistencyReason([&] { second->addItem(item); }), inMenu);
    EXPECT_EQ(test::inconsistencyReason([&] { first->insertItem_atIndex(item, 0); }), inMenu);
    EXPECT_EQ(first->numberOfItems(), 1);
    EXPECT_EQ(second->numberOfItems(), 0);
    EXPECT_EQ(item->menu(), first.get());

    const std::string nilTitle = "Invalid parameter not satisfying: title != nil";
    EXPECT_EQ(test::inconsistencyReason([] { MenuItem::initWithTitle_action_keyEquivalent(nullptr, nullptr, ZSTR("")); }), nilTitle);
    EXPECT_EQ(test::inconsistencyReason([&] { item->setTitle(nullptr); }), nilTitle);
    EXPECT_EQ(test::inconsistencyReason([] { Menu::initWithTitle(nullptr); }), nilTitle);
    EXPECT_EQ(utf8(item->title()), "Item");
    EXPECT_EQ(test::inconsistencyReason([] { MenuItem::initWithTitle_action_keyEquivalent(ZSTR("x"), nullptr, nullptr); }),
        "Invalid parameter not satisfying: keyEquivalent != nil");
    EXPECT_EQ(test::raisedReason(NSRangeException, [&] { second->insertItem_atIndex(itemTitled("a"), 1); }),
        "*** -[NSMenu insertItem:atIndex:]: index 1 beyond bounds [0 .. 0]");
}

TEST(Menu, OneMenuHoldsManySeparatorsEachItsOwnItem)
{
    Ref<Menu> menu = Menu::initWithTitle(str("M"));
    Ref<MenuItem> first = MenuItem::separatorItem();
    EXPECT_NE(first.get(), MenuItem::separatorItem().get());
    menu->addItem(first);
    menu->addItem(itemTitled("a"));
    menu->addItem(MenuItem::separatorItem());
    menu->addItem(MenuItem::separatorItem());
    EXPECT_EQ(titlesOf(menu), (std::vector<std::string> {"-", "a", "-", "-"}));
    EXPECT_EQ(utf8(first->title()), "");
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
}

TEST(Menu, SubmenusFollowTheirItemAndBelongToOneItem)
{
    Ref<Menu> main = Menu::initWithTitle(str("Main"));
    Ref<Menu> file = Menu::initWithTitle(str("File"));
    Ref<MenuItem> fileItem = itemTitled("File");
    fileItem->setSubmenu(file);
    EXPECT_EQ(file->supermenu(), nullptr) << "the item is in no menu yet";
    main->addItem(fileItem);
    EXPECT_EQ(file->supermenu(), main.get());
    main->removeItem(fileItem);
    EXPECT_EQ(file->supermenu(), nullptr);
    main->addItem(fileItem);

    Ref<MenuItem> thief = itemTitled("Thief");
    EXPECT_THAT(test::inconsistencyReason([&] { thief->setSubmenu(file); }), HasSubstr("already the submenu of item \"File\""));
    EXPECT_FALSE(thief->hasSubmenu());
    fileItem->setSubmenu(nullptr);
    EXPECT_EQ(file->supermenu(), nullptr);
    thief->setSubmenu(file);
    EXPECT_EQ(thief->submenu(), file.get());

    // Either side dying clears the other's back link.
    Ref<MenuItem> survivor = itemTitled("Survivor");
    {
        Ref<Menu> doomed = Menu::initWithTitle(str("Doomed"));
        doomed->addItem(survivor);
        doomed->addItem(thief);
        thief = nullptr;
    }
    EXPECT_EQ(survivor->menu(), nullptr);
    EXPECT_EQ(file->supermenu(), nullptr);
    fileItem->setSubmenu(file);
}

TEST(Menu, AMenuCannotEndUpInsideItself)
{
    Ref<Menu> main = Menu::initWithTitle(str("Main"));
    Ref<MenuItem> fileItem = itemTitled("File");
    fileItem->setSubmenu(Menu::initWithTitle(str("File")));
    main->addItem(fileItem);
    Ref<MenuItem> inner = itemTitled("Inner");
    fileItem->submenu()->addItem(inner);

    EXPECT_THAT(test::inconsistencyReason([&] { inner->setSubmenu(main); }), HasSubstr("the item is inside that menu"));
    Ref<MenuItem> loop = itemTitled("Loop");
    loop->setSubmenu(main);
    EXPECT_THAT(test::inconsistencyReason([&] { fileItem->submenu()->addItem(loop); }), HasSubstr("cannot be inserted into itself"));
    EXPECT_EQ(loop->menu(), nullptr);
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
    EXPECT_EQ(menu->itemWithTitle(str("None")), nullptr);
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
    item->setSubmenu(Menu::initWithTitle(str("Recent")));
    main->addItem(item);

    EXPECT_EQ(Class::named("NSMenu"), Menu::staticClass());
    EXPECT_EQ(Class::named("NSMenuItem"), MenuItem::staticClass());
    const std::string text = utf8(item->description());
    EXPECT_THAT(text, StartsWith("<NSMenuItem: 0x"));
    EXPECT_THAT(text, HasSubstr("> \"Open…\" action openDocument: key \"o\" tag 4 target <CountedObject: 0x"));
    EXPECT_THAT(text, EndsWith("submenu \"Recent\" (0 items)"));
    EXPECT_THAT(utf8(MenuItem::separatorItem()->description()), EndsWith("> separator"));
    EXPECT_THAT(utf8(main->description()), EndsWith("> \"Main\" 1 item"));
    EXPECT_THAT(utf8(item->submenu()->description()), EndsWith("> \"Recent\" 0 items in \"Main\""));
}

TEST(Menu, AccessorsAnswerByNameAndKey)
{
    Ref<Menu> menu = Menu::initWithTitle(str("Main"));
    Ref<MenuItem> item = itemTitled("Open");
    menu->performSelector(selector("addItem:"), item);
    item->setValue_forKey(Number::numberWithLong(9), str("tag"));
    item->setValue_forKey(str("Open…"), str("title"));
    EXPECT_EQ(item->tag(), 9);
    EXPECT_EQ(item->valueForKey(str("menu")).get(), menu.get());
    EXPECT_EQ(utf8(dynamicCast<String>(item->valueForKey(str("title")))), "Open…");
    EXPECT_EQ(menu->valueForKey(str("numberOfItems"))->description()->UTF8String(), "1");
    EXPECT_EQ(menu->performSelector(selector("itemWithTitle:"), str("Open…")).get(), item.get());
}

} // namespace
