#pragma once

#include "platform/runtime/Object.h"

#include <vector>

namespace zon {

class Array;
class MenuItem;
class String;

// A menu: a title and an ordered list of items, with no toolkit behind it (docs/Menus.md shows
// how a tree maps onto the desktop's menu exports). Run-time class NSMenu.
//
// Ownership and back links: a menu retains its items; each item knows the menu it is in
// (MenuItem::menu) without retaining it, and each menu knows the item whose submenu it is, so
// supermenu() is always that item's current menu and needs no updating when the item moves.
// The "already in a menu" check is the item's own back link, so adding is amortised constant
// time; finding by tag, title or item is a scan.
//
// Faults raise NSInternalInconsistencyException through the assertion handler: a nil title or
// item, an item that is already in a menu (this one included), an item whose submenu would end up
// inside itself. An index out of range raises NSRangeException.
//
// Threads: a menu tree belongs to one thread at a time; nothing here locks.
class ZON_EXPORT Menu : public Object {
    ZON_OBJECT(Menu, Object)
public:
    static Ref<Menu> initWithTitle(String* title);

    String* title() const { return title_.get(); }
    void setTitle(String* title);
    // The menu holding the item whose submenu this is, or nil.
    Menu* supermenu() const;

    long numberOfItems() const { return static_cast<long>(items_.size()); }
    // A snapshot of the items, in order.
    Ref<Array> itemArray() const;
    // The items without a copy, for callers that only read.
    const std::vector<Ref<MenuItem>>& items() const { return items_; }
    MenuItem* itemAtIndex(long index) const;

    // Appends item: insertItem_atIndex at numberOfItems(), so a subclass sees every insertion
    // in one place.
    void addItem(MenuItem* item);
    virtual void insertItem_atIndex(MenuItem* item, long index);
    // Removes item when it is in this menu; any other item (or nil) is left alone.
    void removeItem(MenuItem* item);
    virtual void removeItemAtIndex(long index);
    void removeAllItems();

    // The first item with the tag or an equal title, or nil.
    MenuItem* itemWithTag(long tag) const;
    MenuItem* itemWithTitle(const String* title) const;
    // The item's index, or -1 when it is not in this menu.
    long indexOfItem(const MenuItem* item) const;

    // Exports the accessors and the item operations that take objects under their selectors, for
    // calls by name and key-value coding ("title", "itemArray", "addItem:", ...).
    static void exportMethods(Class& cls);

    // <NSMenu: 0x...> "title", its item count and its supermenu's title; one line, no items.
    Ref<String> description() const override;

protected:
    explicit Menu(Ref<String> title);
    ~Menu() override;

private:
    friend class MenuItem;

    // Whether menu is this menu or one of its supermenus: a submenu found there would contain
    // itself.
    bool isSelfOrSupermenu(const Menu* menu) const;
    [[noreturn]] void raiseRange(const char* operation, long index, long limit) const;

    Ref<String> title_;
    std::vector<Ref<MenuItem>> items_;
    MenuItem* parentItem_ = nullptr; // the item whose submenu this is; it clears this when it lets go
};

} // namespace zon
