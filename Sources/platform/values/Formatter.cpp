#include "platform/values/Formatter.h"

#include "platform/runtime/Class.h"
#include "platform/values/String.h"

namespace zon {

ZON_DEFINE_CLASS(Formatter, "NSFormatter")

void Formatter::exportMethods(Class& cls)
{
    cls.exportMethod("stringForObjectValue:", &Formatter::stringForObjectValue);
}

Ref<String> Formatter::stringForObjectValue(const Object*) const
{
    return nullptr;
}

bool Formatter::getObjectValue_forString_errorDescription(Ref<Object>*, const String*, Ref<String>*) const
{
    return false;
}

FormatterLocale::FormatterLocale()
    : locale_(Locale::currentLocale())
{
}

void FormatterLocale::set(const Locale* locale)
{
    locale_ = locale ? Ref<Locale>(const_cast<Locale*>(locale)) : Locale::currentLocale();
}

} // namespace zon
