#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/Locale.h"

namespace zon {

class String;

// The base of the objects that turn values into text (and, where a subclass can, text back into
// values). The base formats nothing and parses nothing. Subclasses are immutable while they
// format, so one formatter may serve several threads once its settings are made.
// Run-time class NSFormatter.
class ZON_EXPORT Formatter : public Object {
    ZON_OBJECT(Formatter, Object)
public:
    // The text for value; nil when this formatter cannot show it.
    virtual Ref<String> stringForObjectValue(const Object* value) const;
    // Reads text back into *value; answers false (writing nothing) when it cannot. On failure a
    // subclass may write a reason into *errorDescription; either pointer may be null.
    virtual bool getObjectValue_forString_errorDescription(
        Ref<Object>* value, const String* text, Ref<String>* errorDescription) const;

    static void exportMethods(Class& cls);

protected:
    Formatter() = default;
};

// The locale of a formatter that formats in one: the current locale until one is set; setting nil
// goes back to the current locale.
class ZON_EXPORT FormatterLocale {
public:
    FormatterLocale();
    Locale* get() const { return locale_.get(); }
    void set(const Locale* locale);

private:
    Ref<Locale> locale_;
};

} // namespace zon
