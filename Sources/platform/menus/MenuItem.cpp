#include "platform/menus/MenuItem.h"

#include "platform/menus/Menu.h"
#include "platform/menus/MenuParameterInternal.h"
#include "platform/runtime/Class.h"
#include "platform/values/AssertionHandler.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(MenuItem, "NSMenuItem")

MenuItem::MenuItem(Ref<String> title, SEL action, Ref<String> keyEquivalent, Kind kind)
    : title_(std::move(title)), action_(action), keyEquivalent_(std::move(keyEquivalent)),
      isSeparator_(kind == Kind::Separator)
{
}

MenuItem::~MenuItem()
{
    if (submenu_)
        submenu_->parentItem_ = nullptr;
}

Ref<MenuItem> MenuItem::initWithTitle_action_keyEquivalent(String* title, SEL action, String* keyEquivalent)
{
    requireParameter(title, staticClass(), "initWithTitle:action:keyEquivalent:", "title", __FILE__, __LINE__);
    requireParameter(keyEquivalent, staticClass(), "initWithTitle:action:keyEquivalent:", "keyEquivalent", __FILE__, __LINE__);
    return makeObject<MenuItem>(Ref<String>(title), action, Ref<String>(keyEquivalent), Kind::Standard);
}

Ref<MenuItem> MenuItem::separatorItem()
{
    return makeObject<MenuItem>(Ref<String>(ZSTR("")), nullptr, Ref<String>(ZSTR("")), Kind::Separator);
}

void MenuItem::setTitle(String* title)
{
    requireParameter(title, this, "setTitle:", "title", __FILE__, __LINE__);
    title_ = title;
}

void MenuItem::setKeyEquivalent(String* keyEquivalent)
{
    requireParameter(keyEquivalent, this, "setKeyEquivalent:", "keyEquivalent", __FILE__, __LINE__);
    keyEquivalent_ = keyEquivalent;
}

void MenuItem::setSubmenu(Menu* submenu)
{
    if (submenu == submenu_.get())
        return;
    if (submenu && submenu->parentItem_)
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("setSubmenu:"), this,
            __FILE__, __LINE__,
            "Can't assign submenu \"%@\" to menu item \"%@\": it is already the submenu of item \"%@\"",
            submenu->title(), title(), submenu->parentItem_->title());
    if (submenu && menu_ && menu_->isSelfOrSupermenu(submenu))
        AssertionHandler::handleFailureInMethod_object_file_lineNumber_description(selector("setSubmenu:"), this,
            __FILE__, __LINE__,
            "Can't assign submenu \"%@\" to menu item \"%@\": the item is inside that menu", submenu->title(), title());
    if (submenu_)
        submenu_->parentItem_ = nullptr;
    submenu_ = submenu;
    if (submenu)
        submenu->parentItem_ = this;
}

void MenuItem::exportMethods(Class& cls)
{
    cls.exportMethod("title", &MenuItem::title);
    cls.exportMethod("setTitle:", &MenuItem::setTitle);
    cls.exportMethod("action", &MenuItem::action);
    cls.exportMethod("setAction:", &MenuItem::setAction);
    cls.exportMethod("keyEquivalent", &MenuItem::keyEquivalent);
    cls.exportMethod("setKeyEquivalent:", &MenuItem::setKeyEquivalent);
    cls.exportMethod("target", &MenuItem::target);
    cls.exportMethod("setTarget:", &MenuItem::setTarget);
    cls.exportMethod("tag", &MenuItem::tag);
    cls.exportMethod("setTag:", &MenuItem::setTag);
    cls.exportMethod("submenu", &MenuItem::submenu);
    cls.exportMethod("setSubmenu:", &MenuItem::setSubmenu);
    cls.exportMethod("hasSubmenu", &MenuItem::hasSubmenu);
    cls.exportMethod("menu", &MenuItem::menu);
    cls.exportMethod("isSeparatorItem", &MenuItem::isSeparatorItem);
}

Ref<String> MenuItem::description() const
{
    const void* address = static_cast<const void*>(this);
    if (isSeparator_)
        return String::stringWithFormat("<NSMenuItem: %p> separator", address);
    Ref<String> text = String::stringWithFormat("<NSMenuItem: %p> \"%@\"", address, title_.get());
    if (action_)
        text = String::stringWithFormat("%@ action %s", text.get(), action_->name().c_str());
    if (keyEquivalent_->length() > 0)
        text = String::stringWithFormat("%@ key \"%@\"", text.get(), keyEquivalent_.get());
    text = String::stringWithFormat("%@ tag %ld", text.get(), tag_);
    if (Ref<Object> target = target_.load())
        text = String::stringWithFormat("%@ target <%s: %p>", text.get(), target->objectClass()->name().c_str(),
            static_cast<const void*>(target.get()));
    if (submenu_)
        text = String::stringWithFormat("%@ submenu \"%@\" (%ld items)", text.get(), submenu_->title(),
            submenu_->numberOfItems());
    return text;
}

} // namespace zon
