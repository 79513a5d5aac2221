#pragma once

#include "platform/values/ByteVector.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zon {
class Number;
class Object;
class String;
} // namespace zon

namespace zon::plist {

// Writes plist as an XML property-list document into out (replacing its contents). Answers false
// with a message when plist is nil or holds something that has no property-list form.
bool writeXMLPropertyList(const Object* plist, ByteVector& out, std::string& error);

// The elements of an XML property-list document, one per line, indented with a tab per level,
// written straight into a byte buffer. The document writer above is built on it; so is the keyed
// archiver, which writes its records from its own tables instead of building property-list
// objects first. header() first, then the elements, then finish().
class XMLElementWriter {
public:
    // expectedSize: the room allocated up front, so that a good guess means no regrowth.
    XMLElementWriter(ByteVector& bytes, size_t expectedSize);

    void header();
    // Writes the closing </plist> and trims the buffer to what was written.
    void finish();

    // A line of fixed markup ("<dict>\n", "</array>\n", ...) at this level.
    void markup(size_t level, std::string_view text);
    void key(size_t level, const String* key);
    void string(size_t level, const String* text);
    void number(size_t level, const Number* number); // <integer>, <real>, <true/> or <false/>
    void integer(size_t level, int64_t value);
    void real(size_t level, double value);
    void boolean(size_t level, bool value);
    void data(size_t level, std::span<const uint8_t> bytes);
    // False, writing nothing, when the date has no calendar form (not finite or too far away).
    [[nodiscard]] bool date(size_t level, double secondsSinceReferenceDate);
    // XML has no UID type: keyed archives write the one-entry dictionary {"CF$UID": value}.
    void uid(size_t level, uint64_t value);

private:
    char* room(size_t count);
    void advanceTo(const char* end);
    void append(std::string_view text);
    void indent(size_t level);
    void appendEscaped(const String* text);
    template <class Unit>
    void appendEscapedUnits(const Unit* at, size_t length);
    void appendInteger(int64_t value);
    void appendReal(double value);

    ByteVector& bytes_; // its size is the allocated room; used_ counts what is written
    size_t used_ = 0;
};

} // namespace zon::plist
