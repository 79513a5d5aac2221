// NSMutableDictionary(ZonExtensions): a nested dictionary built from parallel lists.

#include "platform/values/Dictionary.h"

namespace zon {

void MutableDictionary::addDictionaryEntryFromValues_withKeys_forKey(const Array* values, const Array* keys, Object* key)
{
    setObject_forKey(Dictionary::dictionaryWithObjects_forKeys(values, keys).get(), key);
}

} // namespace zon
