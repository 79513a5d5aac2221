#pragma once

#include "platform/runtime/Object.h"
#include "platform/runtime/WeakRef.h"

namespace zon {

class Menu;
class String;

// One entry of a menu: title, action selector, key equivalent, target, tag and an optional
// submenu. Run-time class NSMenuItem.
//
// The target is held by a zeroing weak reference: it is not kept alive (a menu item must not own
// the controller that owns the menu), and once it dies target() answers nil instead of a
// dangling pointer, so a menu that outlives its controller cannot send it an action.
//
// Setting a submenu makes this item its parent, so the submenu's supermenu is this item's menu.
// A menu that is already another item's submenu is refused (NSInternalInconsistencyException),
// as is a submenu that would end up inside itself. A nil title or key equivalent is refused the
// same way. Threads: as Menu.
class ZON_EXPORT MenuItem : public Object {
    ZON_OBJECT(MenuItem, Object)
public:
    static Ref<MenuItem> initWithTitle_action_keyEquivalent(String* title, SEL action, String* keyEquivalent);
    // A new separator item on each call: an item belongs to one menu at a time, so one menu can
    // hold many separators only if each is its own item. Its title and key equivalent are "".
    static Ref<MenuItem> separatorItem();

    String* title() const { return title_.get(); }
    void setTitle(String* title);
    // Nil for none.
    SEL action() const { return action_; }
    void setAction(SEL action) { action_ = action; }
    String* keyEquivalent() const { return keyEquivalent_.get(); }
    void setKeyEquivalent(String* keyEquivalent);
    // The target while it lives, else nil.
    Ref<Object> target() const { return target_.load(); }
    void setTarget(Object* target) { target_ = WeakRef<Object>(target); }
    long tag() const { return tag_; }
    void setTag(long tag) { tag_ = tag; }

    Menu* submenu() const { return submenu_.get(); }
    void setSubmenu(Menu* submenu);
    bool hasSubmenu() const { return submenu_ != nullptr; }
    // The menu this item is in, or nil.
    Menu* menu() const { return menu_; }
    bool isSeparatorItem() const { return isSeparator_; }

    // Exports the accessors above under their selectors, for calls by name and key-value coding
    // ("title", "setTag:", "submenu", ...).
    static void exportMethods(Class& cls);

    // <NSMenuItem: 0x...> with the title, action, key, tag, target's class and submenu; a
    // separator says so instead. One line: a submenu shows its title and size, not its items.
    Ref<String> description() const override;

    // ---- NSMenuItem(ZonSubMenuCreationExtensions) -----------------------------------------------
    // Each adds to the submenu of parent, never to a menu directly; a nil parent or one without a
    // submenu adds nothing, and the new item is still returned. Every item made has the key
    // equivalent "". The returned item is the caller's reference; the menu it went into keeps
    // its own.

    // An item with the title, no action, and a new empty submenu of the same title; not added.
    static Ref<MenuItem> submenuItemWithTitle(String* title);
    // submenuItemWithTitle, appended to parent's submenu, and only then given the tag -1.
    static Ref<MenuItem> addSubmenuToMenu_withTitle(MenuItem* parent, String* title);
    // Appends a separator item to parent's submenu.
    static void addDashToMenu(MenuItem* parent);
    // An item with the title, action, target and tag, appended to parent's submenu.
    static Ref<MenuItem> addMenuItemToMenu_withTitle_target_action_tag(
        MenuItem* parent, String* title, Object* target, SEL action, long tag);
    // The same with the tag 0.
    static Ref<MenuItem> addMenuItemToMenu_withTitle_target_action(
        MenuItem* parent, String* title, Object* target, SEL action);

protected:
    enum class Kind { Standard, Separator };
    MenuItem(Ref<String> title, SEL action, Ref<String> keyEquivalent, Kind kind);
    ~MenuItem() override;

private:
    friend class Menu;

    Ref<String> title_;
    SEL action_;
    Ref<String> keyEquivalent_;
    WeakRef<Object> target_;
    long tag_ = 0;
    Ref<Menu> submenu_;
    Menu* menu_ = nullptr; // set and cleared by the menu that holds this item
    bool isSeparator_;
};

} // namespace zon
