#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/ComparisonResult.h"
#include "platform/values/Format.h"
#include "platform/values/Range.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zon {

class CharacterSet;
class Data;
class Dictionary;
class URL;
struct FSRef;
class NSStringChompFastEnumerator;

// Options of searches and comparisons; combine them with |.
using StringCompareOptions = unsigned long;
inline constexpr StringCompareOptions NSCaseInsensitiveSearch = 1;
// Accepted for compatibility: every comparison here is by UTF-16 unit (no canonical equivalence).
inline constexpr StringCompareOptions NSLiteralSearch = 2;
inline constexpr StringCompareOptions NSBackwardsSearch = 4;
inline constexpr StringCompareOptions NSAnchoredSearch = 8;
// Runs of ASCII digits compare by their value ("file9" < "file10").
inline constexpr StringCompareOptions NSNumericSearch = 64;

// Byte encodings a string converts from and to; the values are the platform's.
enum StringEncoding : uint32_t {
    NSASCIIStringEncoding = 1,
    NSUTF8StringEncoding = 4,
    NSISOLatin1StringEncoding = 5,
    // With a byte-order mark when reading (big-endian without one); writes a mark and host order.
    NSUTF16StringEncoding = 10,
    NSUnicodeStringEncoding = 10,
    // Explicit byte order: no mark is read or written; a leading U+FEFF stays a character.
    NSUTF16BigEndianStringEncoding = 0x90000100,
    NSUTF16LittleEndianStringEncoding = 0x94000100,
};

// An immutable string of UTF-16 code units. Lengths, indexes and ranges count code units, as the
// library's algorithms expect; lone surrogates are kept as they are. Run-time class NSString.
//
// Text comes in as UTF-8 (strictly checked: invalid bytes answer nil), Latin-1 or UTF-16 in
// either byte order, and leaves as UTF-8 (lone surrogates become U+FFFD there).
//
// Long text made from ASCII bytes keeps those bytes (one per unit) instead of UTF-16 units, so
// that it takes half the memory and goes back to UTF-8 with a copy. Text made from all the bytes
// of an immutable data object keeps a reference to it instead of a copy, and gives that same
// object back as its UTF-8 (stringWithUTF8Data, Data::dataWithUTF8OfString). The UTF-16 units
// of such strings are made the first time characters() or view() asks for them, and kept until
// the string is destroyed; that is safe from several threads at once.
class ZON_EXPORT String : public Object {
    ZON_OBJECT(String, Object)
public:
    // Exports the comparisons that sort descriptors call by selector ("compare:").
    static void exportMethods(Class& cls);
    static Ref<String> string();
    static Ref<String> stringWithCharacters(const char16_t* units, size_t length);
    static Ref<String> stringWithCharacters(std::u16string_view units)
    {
        return stringWithCharacters(units.data(), units.size());
    }
    // Nil when the bytes are not valid UTF-8.
    static Ref<String> stringWithUTF8String(std::string_view utf8);
    // A copy of text; nil stays nil.
    static Ref<String> stringWithString(const String* text);
    // Decodes bytes in an encoding; nil when they are not valid in it (bad UTF-8, an odd number
    // of UTF-16 bytes, a byte past 0x7F in ASCII). Latin-1 accepts every byte.
    static Ref<String> initWithBytes_length_encoding(const void* bytes, size_t length, StringEncoding encoding);
    static Ref<String> initWithBytes_length_encoding(std::string_view bytes, StringEncoding encoding)
    {
        return initWithBytes_length_encoding(bytes.data(), bytes.size(), encoding);
    }

    size_t length() const { return length_; }
    const char16_t* characters() const
    {
        const char16_t* units = units_.load(std::memory_order_acquire);
        return units ? units : widenASCII();
    }
    std::u16string_view view() const { return {characters(), length_}; }
    // The text as length() ASCII bytes when the string keeps it that way, else null. Lets text
    // be written out as UTF-8 (or Latin-1, or ASCII) without a conversion.
    const char* asciiCharacters() const
    {
        if (asciiForm_ == ASCIIForm::AfterObject)
            return reinterpret_cast<const char*>(this) + sizeof(String);
        return asciiForm_ == ASCIIForm::InOwner ? borrowedASCII()->bytes : nullptr;
    }
    // The object whose bytes asciiCharacters() are, when the string borrows them; else null.
    const Object* asciiOwner() const
    {
        return asciiForm_ == ASCIIForm::InOwner ? borrowedASCII()->owner : nullptr;
    }
    // Raises NSRangeException past the end.
    char16_t characterAtIndex(size_t index) const;

    // UTF-8; lone surrogates become U+FFFD.
    std::string UTF8String() const;
    // The bytes in an encoding, or nothing when a character has no form in it (past U+00FF in
    // Latin-1, past U+007F in ASCII); with allowLossyConversion such characters become '?'.
    std::optional<std::string> bytesUsingEncoding(StringEncoding encoding, bool allowLossyConversion = false) const;
    bool canBeConvertedToEncoding(StringEncoding encoding) const;

    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    // An immutable string answers itself; a mutable one an immutable snapshot.
    Ref<Object> copy() const override;
    // Always a new MutableString.
    Ref<Object> mutableCopy() const override;

    bool isEqualToString(const String* other) const;

    // Substrings. Indexes past the end raise NSRangeException.
    Ref<String> substringFromIndex(size_t from) const;
    Ref<String> substringToIndex(size_t to) const;
    Ref<String> substringWithRange(Range range) const;

    // Searching. A miss (and an empty or nil search string) answers {NSNotFound, 0}. The range
    // argument limits the search to part of the receiver; past the end it raises NSRangeException.
    Range rangeOfString(const String* search) const { return rangeOfString_options(search, 0); }
    Range rangeOfString_options(const String* search, StringCompareOptions options) const
    {
        return rangeOfString_options_range(search, options, {0, length_});
    }
    Range rangeOfString_options_range(const String* search, StringCompareOptions options, Range range) const;
    // The first (or with NSBackwardsSearch the last) character in the set; a surrogate pair
    // tests as its code point and answers a range of length 2.
    Range rangeOfCharacterFromSet(const CharacterSet* set) const { return rangeOfCharacterFromSet_options(set, 0); }
    Range rangeOfCharacterFromSet_options(const CharacterSet* set, StringCompareOptions options) const;
    bool containsString(const String* search) const { return rangeOfString(search).location != NSNotFound; }
    // An empty or nil prefix or suffix answers false.
    bool hasPrefix(const String* prefix) const;
    bool hasSuffix(const String* suffix) const;

    // Comparing. Without NSNumericSearch units compare by value; case-insensitive comparisons
    // fold each code point (simple case folding). A nil other orders before everything.
    ComparisonResult compare(const String* other) const { return compare_options_range(other, 0, {0, length_}); }
    ComparisonResult compare_options(const String* other, StringCompareOptions options) const
    {
        return compare_options_range(other, options, {0, length_});
    }
    ComparisonResult compare_options_range(const String* other, StringCompareOptions options, Range range) const;
    ComparisonResult caseInsensitiveCompare(const String* other) const
    {
        return compare_options(other, NSCaseInsensitiveSearch);
    }
    // By the collation rules of the process's default locale.
    ComparisonResult localizedCompare(const String* other) const;
    ComparisonResult localizedCaseInsensitiveCompare(const String* other) const;

    // Splitting, trimming and building.
    // An empty or nil separator answers the receiver alone; adjacent separators give "" pieces.
    std::vector<Ref<String>> componentsSeparatedByString(const String* separator) const;
    std::vector<Ref<String>> componentsSeparatedByCharactersInSet(const CharacterSet* set) const;
    Ref<String> stringByTrimmingCharactersInSet(const CharacterSet* set) const;
    Ref<String> stringByAppendingString(const String* tail) const;
    // An empty or nil target answers the receiver; a nil replacement counts as "".
    Ref<String> stringByReplacingOccurrencesOfString_withString(const String* target, const String* replacement) const
    {
        return stringByReplacingOccurrencesOfString_withString_options_range(target, replacement, 0, {0, length_});
    }
    Ref<String> stringByReplacingOccurrencesOfString_withString_options_range(const String* target,
        const String* replacement, StringCompareOptions options, Range range) const;
    Ref<String> stringByReplacingCharactersInRange_withString(Range range, const String* replacement) const;

    // Case mapping with the root locale's full mappings (so "ß" uppercases to "SS").
    // capitalizedString titlecases the first letter or digit of each word and lowercases the
    // rest; words are separated by white space and newlines.
    Ref<String> uppercaseString() const;
    Ref<String> lowercaseString() const;
    Ref<String> capitalizedString() const;

    // Numbers at the start of the string. White space and newlines are skipped, then an optional
    // sign and the digits up to the first non-digit; no digits reads as 0 and values beyond the
    // type saturate at its limits.
    int intValue() const;
    long integerValue() const;
    long long longLongValue() const;
    // A leading decimal number with optional fraction and exponent; 0 when there is none,
    // infinity when it is too large.
    double doubleValue() const;
    float floatValue() const;
    // True when the string starts (after white space, a sign and zeros) with Y, y, T, t or 1-9.
    bool boolValue() const;

    // Paths: components are separated by "/", repeated slashes count as one and a trailing slash
    // adds nothing; a leading "/" is the component "/".
    std::vector<Ref<String>> pathComponents() const;
    static Ref<String> pathWithComponents(const std::vector<Ref<String>>& components);
    bool isAbsolutePath() const;
    Ref<String> lastPathComponent() const;
    // The text after the last "." of the last component; "" when there is none or the only dot
    // starts the component (".profile").
    Ref<String> pathExtension() const;
    Ref<String> stringByDeletingLastPathComponent() const;
    Ref<String> stringByDeletingPathExtension() const;
    Ref<String> stringByAppendingPathComponent(const String* component) const;
    // Nil when the receiver has no last component ("" or "/") or the extension holds a "/".
    Ref<String> stringByAppendingPathExtension(const String* extension) const;

    // printf-style formatting with %@ for objects; the rules are in Format.h.
    template <class... Args>
    static Ref<String> stringWithFormat(std::string_view format, const Args&... args)
    {
        return stringWithFormatArguments(format, makeFormatArguments(args...));
    }
    template <class... Args>
    static Ref<String> stringWithFormat(const String* format, const Args&... args)
    {
        return stringWithFormatArguments(format, makeFormatArguments(args...));
    }

    // ---- NSString(InitalizationZonExtensions) ---------------------------------------------------
    // A new random (version 4) UUID: 36 characters, upper-case hexadecimal, 8-4-4-4-12.
    static Ref<String> stringGUID();
    // Opens the help page that URL::helpURLFromPage_withExtension_inDirectory finds in the user's
    // browser (Workspace::openURL); nothing happens when there is none.
    static void showHelpPageInBrowser_withExtension_inDirectory(
        const String* page, const String* extension, const String* directory);
    // Drops the prefix from the front again and again while the text starts with it ("ababx"
    // less "ab" is "x"); an empty or nil prefix removes nothing.
    Ref<String> stringByTrimmingPrefix(const String* prefix) const;
    // While the text ends with the suffix, cuts it to its first (length + 1 - suffix length)
    // units: one unit more than the suffix stays ("xab" less "ab" is "xa"). A one-unit suffix that
    // the text ends with never goes, and the call then never returns. Empty or nil: no change.
    Ref<String> stringByTrimmingSuffix(const String* suffix) const;
    // Zero digits in front up to length units. The fill is always "0": character is not used.
    Ref<String> stringByPrependingCharacter_toLength(char16_t character, uint32_t length) const;
    // The records between line feeds (or separator), one per step; no empty last record.
    Ref<NSStringChompFastEnumerator> chomp() const;
    Ref<NSStringChompFastEnumerator> chomp(char16_t separator) const;

    // ---- NSString(PathComponentZonExtensions) ---------------------------------------------------
    // The first component, skipping a leading "/" when more follow ("/a/b" gives "a", "/" gives
    // "/"); "" when there are none.
    Ref<String> firstPathComponent() const;
    // The components after the first real one, joined with "/" ("/a/b/c" gives "b/c").
    Ref<String> stringByDeletingFirstPathComponent() const;
    // One leading and one trailing "/" removed; text under 2 units stays as it is.
    Ref<String> compatibleModelPath() const;

    // ---- NSString(NumericalExtensions) ----------------------------------------------------------
    // strtoull over the UTF-8 in base 0 (0x hexadecimal, leading 0 octal); 0 when nothing converts.
    unsigned long long unsignedLongLongValue() const;
    // compare with NSNumericSearch: runs of digits compare by value.
    ComparisonResult numericalCompare(const String* other) const;

    // ---- NSString(ZonExtensions) ----------------------------------------------------------------
    // The text again without one trailing U+0000.
    Ref<String> stringByDeletingNilTerminator() const;
    // The 32-bit hash of the string, widened: the upper half is always zero.
    uint64_t hash64() const;
    // NSOrderedAscending when this file was modified no later than the other, else
    // NSOrderedDescending; NSOrderedSame when either cannot be read. (Also of URLZonExtensions.)
    ComparisonResult compareByFileModificationDate(const String* otherPath) const;

    // ---- NSString(ZonVersionVersionHelpers) ----------------------------------------------------
    // Fields of an operating-system version text ("10.6.8 10K549"), split at every "." and space;
    // empty fields count. The numbers are each field's leading integer, 0 when the field is missing.
    unsigned long majorOSVersionValue() const;
    unsigned long minorOSVersionValue() const;
    unsigned long bugFixOSVersionValue() const;
    // The fourth field as it stands; nil when there are fewer than four.
    Ref<String> buildNumberVersionValue() const;

    // ---- NSString(URLZonExtensions) -------------------------------------------------------------
    // Joins a URL component: one "/" between path parts, and "?" or "&" chosen for a query part by
    // whether the last path component already holds a "?". The receiver's last unit is looked up
    // at its UTF-8 length - 1: past the end for non-ASCII text (and for ""), which raises
    // NSRangeException.
    Ref<String> stringByAppendingURLComponent(const String* component) const;
    // "&key=value" for each entry, unescaped, in the dictionary's order, appended as a component.
    Ref<String> stringByAppendingURLComponentProperties(const Dictionary* properties) const;
    // The text begins with "http" (https counts) or with "https".
    bool isURLString() const;
    bool isSecureURLString() const;

    // ---- NSString(FileSystem) -------------------------------------------------------------------
    // On path strings; the same contracts as URL's group NSURL(FileSystem).
    bool getFSRef(FSRef* reference) const;
    // The path of the referenced item, or nil.
    static Ref<String> stringWithFSRef(const FSRef* reference);
    // The root path of the volume with that reference number, or nil.
    static Ref<String> stringPathForVolumeRefNum(int16_t volumeRefNum);
    int16_t volumeRefNum() const;
    Ref<URL> volumeURL() const;
    // A file URL of the path.
    Ref<URL> fileSystemURL() const;
    bool getFinderInfoFlags_type_creator(uint16_t* flags, uint32_t* type, uint32_t* creator) const;
    bool setFinderInfoFlags_mask_type_creator(uint16_t flags, uint16_t mask, uint32_t type, uint32_t creator) const;
    uint32_t aliasType() const;
    Ref<Data> iconFamilyData() const;

    // Tail-allocated strings keep their units in the same block as the object, so the block is
    // freed unsized; subclasses (MutableString) allocate through the same pair.
    static void* operator new(size_t size) { return ::operator new(size); }
    static void* operator new(size_t, void* place) noexcept { return place; }
    static void operator delete(void* pointer) { ::operator delete(pointer); }
    static void operator delete(void*, void*) noexcept {}

protected:
    constexpr String(ImmortalTag tag, const char16_t* units, size_t length) noexcept
        : Object(tag), units_(units), length_(length)
    {
    }
    String(const char16_t* units, size_t length) noexcept : units_(units), length_(length) {}
    ~String() override;

private:
    // Where text kept as ASCII lies: in bytes after the object, or in another object (whose
    // address, and a reference to which, follow the object). units_ is then null until the
    // UTF-16 units are first asked for, and points to their own allocation from there on.
    // (Declared first so that it fits in the padding after Object's reference count.)
    enum class ASCIIForm : uint8_t { None, AfterObject, InOwner };
    ASCIIForm asciiForm_ = ASCIIForm::None;
    struct BorrowedASCII {
        const char* bytes;
        const Object* owner;
    };
    const BorrowedASCII* borrowedASCII() const
    {
        return reinterpret_cast<const BorrowedASCII*>(reinterpret_cast<const char*>(this) + sizeof(String));
    }

protected:
    // Mutable subclasses keep these pointing at their own storage.
    mutable std::atomic<const char16_t*> units_;
    size_t length_;

private:
    // Text of this many ASCII bytes or more is kept as bytes: below it the conversions cost
    // little, and short strings (keys, names) never pay for a second form.
    static constexpr size_t kASCIIFormMinLength = 1024;
    // Makes a string whose length units follow the object in one allocation; the caller fills them.
    static Ref<String> allocate(size_t length, char16_t** units);
    // The same with length ASCII bytes after the object.
    static Ref<String> allocateASCII(size_t length, char** bytes);
    // Text of ASCII bytes that lie in owner, which keeps them alive and unchanged; nil when a
    // byte is not ASCII.
    static Ref<String> stringBorrowingASCII(std::string_view bytes, const Object* owner);
    // Makes, publishes and answers the UTF-16 units of text kept as ASCII.
    const char16_t* widenASCII() const;
    // This string when it is immutable, else an immutable copy: results that equal the receiver
    // must not change when a mutable receiver does.
    Ref<String> immutableSelf() const;
    friend class StringBuilder;
};

// Prints the UTF-8 text, or "(null)" for nil (also how GoogleTest shows strings).
ZON_EXPORT std::ostream& operator<<(std::ostream& stream, const String* text);
inline void PrintTo(const String* text, std::ostream* stream) { *stream << text; }
inline void PrintTo(String* text, std::ostream* stream) { *stream << static_cast<const String*>(text); }

// A string made at compile time from a u"" literal; immortal, so it is safe in any static.
class ZON_EXPORT ConstantString final : public String {
public:
    template <size_t N>
    constexpr ConstantString(const char16_t (&literal)[N]) noexcept
        : String(ImmortalTag {}, literal, N - 1)
    {
    }
};

} // namespace zon

// A String* constant for a literal, made at compile time: ZSTR("ZonErrorDomain").
#define ZSTR(literal)                                                                              \
    ([]() -> ::zon::String* {                                                                      \
        static constinit ::zon::ConstantString zonConstant_ {u"" literal};                        \
        return &zonConstant_;                                                                      \
    }())

// Defines an exported String* constant in a .cpp: ZON_STRING_CONSTANT(TXZonErrorDomain, "ZonErrorDomain").
#define ZON_STRING_CONSTANT(name, literal)                                                         \
    namespace {                                                                                    \
    constinit ::zon::ConstantString ZON_CONCAT(name, _storage) {u"" literal};                     \
    }                                                                                              \
    ::zon::String* const name = &ZON_CONCAT(name, _storage)
