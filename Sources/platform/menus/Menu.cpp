#include "platform/menus/Menu.h"

#include "platform/menus/MenuItem.h"
#include "platform/menus/MenuParameterInternal.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/Exception.h"
#include "platform/values/String.h"

#include <algorithm>
#include <cstdio>

namespace zon {

ZON_DEFINE_CLASS(Menu, "NSMenu")

Menu::Menu(Ref<String> title) : title_(std::move(title)) {}

Menu::~Menu()
{
    // Items that outlive the menu (someone else holds them) must not point back at it.
    for (const Ref<MenuItem>& item : items_)
        item->menu_ = nullptr;
}

Ref<Menu> Menu::initWithTitle(String* title)
{
    requireParameter(title, staticClass(), "initWithTitle:", "title", __FILE__, __LINE__);
    return makeObject<Menu>(Ref<String>(title));
}

void Menu::setTitle(String* title)
{
    requireParameter(title, this, "setTitle:", "title", __FILE__, __LINE__);
    title_ = title;
}

Menu* Menu::supermenu() const { return parentItem_ ? parentItem_->menu() : nullptr; }

Ref<Array> Menu::itemArray() const
{
    return Array::arrayWithVector(std::vector<Ref<Object>>(items_.begin(), items_.end()));
}

MenuItem* Menu::itemAtIndex(long index) const
{
    if (index < 0 || index >= numberOfItems())
        raiseRange("itemAtIndex:", index, numberOfItems() - 1);
    return items_[static_cast<size_t>(index)].get();
}

void Menu::addItem(MenuItem* item) { insertItem_atIndex(item, numberOfItems()); }

void Menu::insertItem_atIndex(MenuItem* item, long index)
{
    requireParameter(item, this, "insertItem:atIndex:", "item", __FILE__, __LINE__);
    if (item->menu_)
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("insertItem:atIndex:"), this,
            __FILE__, __LINE__, "Item to be inserted into menu already is in another menu");
    if (index < 0 || index > numberOfItems())
        raiseRange("insertItem:atIndex:", index, numberOfItems());
    if (item->submenu_ && isSelfOrSupermenu(item->submenu_.get()))
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("insertItem:atIndex:"), this,
            __FILE__, __LINE__,
            "Menu \"%@\" cannot be inserted into itself through item \"%@\"", item->submenu_->title(), item->title());
    items_.insert(items_.begin() + index, Ref<MenuItem>(item));
    item->menu_ = this;
}

void Menu::removeItem(MenuItem* item)
{
    if (item && item->menu_ == this)
        removeItemAtIndex(indexOfItem(item));
}

void Menu::removeItemAtIndex(long index)
{
    if (index < 0 || index >= numberOfItems())
        raiseRange("removeItemAtIndex:", index, numberOfItems() - 1);
    // Held until the back link is cleared: the menu's reference may be the last one.
    Ref<MenuItem> item = std::move(items_[static_cast<size_t>(index)]);
    items_.erase(items_.begin() + index);
    item->menu_ = nullptr;
}

void Menu::removeAllItems()
{
    std::vector<Ref<MenuItem>> removed;
    removed.swap(items_);
    for (const Ref<MenuItem>& item : removed)
        item->menu_ = nullptr;
}

MenuItem* Menu::itemWithTag(long tag) const
{
    auto found = std::find_if(items_.begin(), items_.end(), [tag](const Ref<MenuItem>& item) { return item->tag() == tag; });
    return found == items_.end() ? nullptr : found->get();
}

MenuItem* Menu::itemWithTitle(const String* title) const
{
    if (!title)
        return nullptr;
    auto found = std::find_if(items_.begin(), items_.end(),
        [title](const Ref<MenuItem>& item) { return item->title()->isEqualToString(title); });
    return found == items_.end() ? nullptr : found->get();
}

long Menu::indexOfItem(const MenuItem* item) const
{
    if (!item || item->menu_ != this)
        return -1;
    auto found = std::find_if(items_.begin(), items_.end(), [item](const Ref<MenuItem>& held) { return held.get() == item; });
    return found == items_.end() ? -1 : static_cast<long>(found - items_.begin());
}

void Menu::exportMethods(Class& cls)
{
    cls.exportMethod("title", &Menu::title);
    cls.exportMethod("setTitle:", &Menu::setTitle);
    cls.exportMethod("supermenu", &Menu::supermenu);
    cls.exportMethod("numberOfItems", &Menu::numberOfItems);
    cls.exportMethod("itemArray", &Menu::itemArray);
    cls.exportMethod("addItem:", &Menu::addItem);
    cls.exportMethod("removeItem:", &Menu::removeItem);
    cls.exportMethod("itemWithTitle:", &Menu::itemWithTitle);
}

Ref<String> Menu::description() const
{
    Ref<String> text = String::stringWithFormat("<NSMenu: %p> \"%@\" %ld item%s", static_cast<const void*>(this),
        title_.get(), numberOfItems(), numberOfItems() == 1 ? "" : "s");
    if (const Menu* super = supermenu())
        text = String::stringWithFormat("%@ in \"%@\"", text.get(), super->title());
    return text;
}

bool Menu::isSelfOrSupermenu(const Menu* menu) const
{
    for (const Menu* at = this; at; at = at->supermenu())
        if (at == menu)
            return true;
    return false;
}

void Menu::raiseRange(const char* operation, long index, long limit) const
{
    char reason[160];
    if (limit < 0)
        std::snprintf(reason, sizeof reason, "*** -[NSMenu %s]: index %ld beyond bounds for empty menu", operation, index);
    else
        std::snprintf(reason, sizeof reason, "*** -[NSMenu %s]: index %ld beyond bounds [0 .. %ld]", operation, index, limit);
    raisePlatformException(NSRangeException, reason);
}

} // namespace zon
