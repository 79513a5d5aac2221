#pragma once

// Uniform type identifiers: the system-declared types, compiled in from TypeIdentifiers.tsv
// (identifier, what it conforms to, file name extensions, MIME types, four-character codes), and
// the original platform's dynamic identifiers for tags no declared type claims.

#include "platform/Export.h"

#include <string>
#include <string_view>

namespace zon {

// The kinds of tag a type is found by: "public.filename-extension", "public.mime-type",
// "com.apple.ostype".
enum class TypeTagClass { filenameExtension, mimeType, osType };

// The first declared type (in the table's order) that claims tag and conforms to conformingTo
// (none when empty); otherwise the dynamic identifier of the tag. Extensions and MIME types match
// without regard to case; four-character codes exactly.
ZON_EXPORT std::string preferredTypeIdentifierForTag(TypeTagClass tagClass, std::string_view tag,
    std::string_view conformingTo = {});

// Whether type is parent or declares it among its ancestors; an undeclared type conforms to
// itself alone.
ZON_EXPORT bool typeConformsTo(std::string_view type, std::string_view parent);

// "dyn.a" and the base-32 form (alphabet "abcdefghkmnpqrstuvwxyz0123456789", most significant
// bit first) of a text naming the constraint and the tag: "?0=6:1=sql" for the extension "sql"
// under public.data gives "dyn.ah62d4rv4ge81g6pq".
ZON_EXPORT std::string dynamicTypeIdentifier(TypeTagClass tagClass, std::string_view tag, std::string_view conformingTo = {});

// The preferred tag of a declared type for the class, the first the table lists; empty without one.
ZON_EXPORT std::string preferredTagOfType(std::string_view type, TypeTagClass tagClass);

} // namespace zon
