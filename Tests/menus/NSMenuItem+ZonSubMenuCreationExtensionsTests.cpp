#include "platform/menus/Menu.h"
#include "platform/menus/MenuItem.h"
#include "platform/runtime/Class.h"
#include "platform/values/Exception.h"

#include "support/CountedObject.h"
#include "support/Raised.h"
#include "support/Values.h"

#include <gtest/gtest.h>

#include <vector>

using namespace zon;
using test::CountedObject;
using test::str;
using test::utf8;

namespace {

// A menu that notes the tag of every item at the moment it is inserted, so a test can see whether
// a tag was set before or after the add.
class InsertionRecordingMenu final : public Menu {
    ZON_OBJECT(InsertionRecordingMenu, Menu)
public:
    static Ref<InsertionRecordingMenu> menuWithTitle(String* title) { return makeObject<InsertionRecordingMenu>(title); }
    void insertItem_atIndex(MenuItem* item, long index) override
    {
        tagsAtInsertion.push_back(item->tag());
        Menu::insertItem_atIndex(item, index);
    }
    std::vector<long> tagsAtInsertion;

private:
    explicit InsertionRecordingMenu(String* title) : Menu(title) {}
};
ZON_DEFINE_CLASS(InsertionRecordingMenu, "InsertionRecordingMenu")

TEST(NSMenuItemZonSubMenuCreationExtensions, SubmenuItemCarriesAnEmptyMenuOfTheSameTitle)
{
    Ref<MenuItem> item = MenuItem::submenuItemWithTitle(str("Library"));
    EXPECT_EQ(utf8(item->title()), "Library");
    EXPECT_EQ(item->action(), nullptr);
    EXPECT_EQ(utf8(item->keyEquivalent()), "");
    EXPECT_EQ(item->tag(), 0);
    EXPECT_EQ(item->menu(), nullptr) << "not added anywhere";
    ASSERT_TRUE(item->hasSubmenu());
    EXPECT_EQ(utf8(item->submenu()->title()), "Library");
    EXPECT_EQ(item->submenu()->numberOfItems(), 0);
    EXPECT_EQ(item->retainCount(), 1u) << "the caller's reference is the only one";
}

TEST(NSMenuItemZonSubMenuCreationExtensions, TwoSubmenusWithOneTitleAreDistinctWithTagMinusOne)
{
    Ref<MenuItem> root = MenuItem::submenuItemWithTitle(str("Root"));
    Ref<MenuItem> first = MenuItem::addSubmenuToMenu_withTitle(root, str("Recent"));
    Ref<MenuItem> second = MenuItem::addSubmenuToMenu_withTitle(root, str("Recent"));
    EXPECT_NE(first.get(), second.get());
    EXPECT_NE(first->submenu(), second->submenu());
    EXPECT_EQ(first->tag(), -1);
    EXPECT_EQ(second->tag(), -1);
    Menu* menu = root->submenu();
    ASSERT_EQ(menu->numberOfItems(), 2);
    EXPECT_EQ(menu->itemAtIndex(1), second.get());
    EXPECT_EQ(second->submenu()->supermenu(), menu);
    EXPECT_EQ(utf8(second->keyEquivalent()), "");
}

TEST(NSMenuItemZonSubMenuCreationExtensions, SubmenuTagIsSetAfterTheAddActionTagsBefore)
{
    Ref<MenuItem> root = MenuItem::submenuItemWithTitle(str("Root"));
    Ref<InsertionRecordingMenu> recorder = InsertionRecordingMenu::menuWithTitle(str("Root"));
    root->setSubmenu(recorder);

    MenuItem::addSubmenuToMenu_withTitle(root, str("Sub"));
    MenuItem::addMenuItemToMenu_withTitle_target_action_tag(root, str("Tagged"), nullptr, selector("tagged:"), 42);
    MenuItem::addMenuItemToMenu_withTitle_target_action(root, str("Plain"), nullptr, selector("plain:"));
    MenuItem::addDashToMenu(root);
    MenuItem::addDashToMenu(root);
    EXPECT_EQ(recorder->tagsAtInsertion, (std::vector<long> {0, 42, 0, 0, 0}));
    EXPECT_EQ(recorder->itemAtIndex(0)->tag(), -1);
    EXPECT_TRUE(recorder->itemAtIndex(3)->isSeparatorItem());
    EXPECT_NE(recorder->itemAtIndex(3), recorder->itemAtIndex(4)) << "each dash is its own separator";
}

TEST(NSMenuItemZonSubMenuCreationExtensions, AParentWithoutASubmenuAddsNothingButAnswersTheItem)
{
    Ref<MenuItem> plain = MenuItem::initWithTitle_action_keyEquivalent(str("Plain"), nullptr, ZSTR(""));
    Ref<MenuItem> sub = MenuItem::addSubmenuToMenu_withTitle(plain, str("Sub"));
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(sub->menu(), nullptr);
    EXPECT_EQ(sub->tag(), -1) << "the tag is still set";
    EXPECT_EQ(sub->retainCount(), 1u) << "nothing else holds it";
    Ref<MenuItem> action = MenuItem::addMenuItemToMenu_withTitle_target_action_tag(plain, str("Act"), nullptr, selector("act:"), 5);
    ASSERT_NE(action, nullptr);
    EXPECT_EQ(action->menu(), nullptr);
    EXPECT_EQ(action->tag(), 5);
    MenuItem::addDashToMenu(plain);
    EXPECT_FALSE(plain->hasSubmenu());
    // A nil parent is the same case.
    EXPECT_EQ(MenuItem::addSubmenuToMenu_withTitle(nullptr, str("Sub"))->menu(), nullptr);
    MenuItem::addDashToMenu(nullptr);
}

TEST(NSMenuItemZonSubMenuCreationExtensions, ActionItemsCarryTitleActionTargetAndTag)
{
    Ref<MenuItem> root = MenuItem::submenuItemWithTitle(str("Root"));
    Ref<CountedObject> target = makeObject<CountedObject>();
    Ref<MenuItem> tagged = MenuItem::addMenuItemToMenu_withTitle_target_action_tag(
        root, str("Import"), target, selector("importMusic:"), 12);
    Ref<MenuItem> plain = MenuItem::addMenuItemToMenu_withTitle_target_action(root, str("Export"), target, selector("exportPlaylist:"));
    EXPECT_EQ(utf8(tagged->title()), "Import");
    EXPECT_EQ(tagged->action(), selector("importMusic:"));
    EXPECT_EQ(utf8(tagged->keyEquivalent()), "");
    EXPECT_EQ(tagged->target().get(), target.get());
    EXPECT_EQ(target->retainCount(), 1u) << "targets are not retained";
    EXPECT_EQ(tagged->tag(), 12);
    EXPECT_EQ(plain->tag(), 0);
    EXPECT_EQ(root->submenu()->indexOfItem(plain), 1);
    EXPECT_EQ(test::inconsistencyReason([&] { MenuItem::addSubmenuToMenu_withTitle(root, nullptr); }),
        "Invalid parameter not satisfying: title != nil");
    EXPECT_EQ(root->submenu()->numberOfItems(), 2);
}

} // namespace
