#pragma once

#include "platform/runtime/Object.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace zon {

class Data;
class Dictionary;
class Image;
class Number;
class String;
// A file reference: the item's device, inode and place in the interned path table.
struct FSRef;

// A URL: immutable, safe to share between threads. Run-time class NSURL.
//
// The text is checked against the table of characters a URL may hold: letters, digits,
// !$&'()*+,-./:;=?@_~, "%" followed by two hexadecimal digits, one "#" (which starts the
// fragment) and "[" "]" around a host. Anything else (a space, a non-ASCII character, a second
// "#") makes URLWithString answer nil; nothing is normalised or re-escaped. The text splits as
//   scheme ":" ["//" [user [":" password] "@"] host [":" port]] path ["?" query] ["#" fragment]
// where the scheme is a letter followed by letters, digits, "+", "-" or "."; a URL with a
// scheme whose rest neither starts with "//" nor "/" (mailto:x) has no host, path or query.
// The path answers percent-decoded, without a trailing slash (a lone "/" stays).
class ZON_EXPORT URL final : public Object {
    ZON_OBJECT(URL, Object)
public:
    // Nil when text is nil or does not pass the table above.
    static Ref<URL> URLWithString(const String* text);
    static Ref<URL> URLWithString(std::string_view ascii);
    // scheme "://" host path, with the path percent-escaped (the default set; "/" and "?" stay)
    // and a "/" put in front of a path that lacks one. Nil for a nil scheme; a nil host or path
    // counts as "".
    static Ref<URL> initWithScheme_host_path(const String* scheme, const String* host, const String* path);
    // "file://" and the escaped absolute path; a directory's URL ends in "/". fileURLWithPath
    // asks the file system whether path is a directory.
    static Ref<URL> fileURLWithPath(const String* path);
    static Ref<URL> fileURLWithPath_isDirectory(const String* path, bool isDirectory);

    // Percent-escapes text as UTF-8, upper-case hexadecimal. Letters, digits and
    // !$&'()*+,-./:;=?@_~ stay as they are unless legalToEscape names them; ASCII characters in
    // leaveUnescaped stay too. Every other character is escaped, "%" and "#" included.
    static Ref<String> stringByAddingPercentEscapes(
        const String* text, const String* leaveUnescaped, const String* legalToEscape);
    // The same, appended to out, for callers that build text without String objects.
    static void appendPercentEscaped(std::string& out, std::u16string_view input, std::u16string_view leaveUnescaped,
        std::u16string_view legalToEscape);

    Ref<String> absoluteString() const;
    // Each part, nil when the text has none.
    Ref<String> scheme() const;
    Ref<String> user() const;
    Ref<String> password() const;
    Ref<String> host() const;
    Ref<Number> port() const;
    // Percent-decoded; nil when the decoded bytes are not UTF-8.
    Ref<String> path() const;
    Ref<String> query() const;
    Ref<String> fragment() const;
    bool isFileURL() const;

    Ref<String> description() const override;
    bool isEqual(const Object* other) const override;
    size_t hash() const override;
    Ref<Object> copy() const override;

    // ---- NSURL(ZonExtensions) -------------------------------------------------------------------
    // scheme "://" host path "?" arguments: every key and value escaped (the default set, and "+"
    // and "/" too) as key=value, joined with "&" in the dictionary's order. An empty dictionary
    // leaves the text ending in "?". Port, user, query and fragment are not carried over; a path
    // that decodes to characters a URL cannot hold answers nil, as the text is parsed again.
    Ref<URL> urlByAppendingHttpArgumentsDictionary(const Dictionary* arguments) const;
    // Scheme, host and the path with "?" and arguments appended, through initWithScheme_host_path.
    Ref<URL> urlByAppendingHttpArgumentsString(const String* arguments) const;
    // Scheme, host and the path with component appended by path rules.
    Ref<URL> URLByAppendingPathComponent(const String* component) const;
    // Scheme "http" or "https" with the receiver's host and path; the rest is dropped.
    Ref<URL> httpURL() const;
    Ref<URL> httpsURL() const;
    // The scheme begins with "http" (so https URLs count) or "https".
    bool isHTTPURL() const;
    bool isSecureHTTPURL() const;
    // A URL whose text holds a "?" is a post URL, any other a get URL.
    bool isPostURL() const;
    bool isGetURL() const;
    // The last path component of the absolute text.
    Ref<String> lastPathComponent() const;
    // A file URL of a help page. The main bundle's "CFBundleHelpBookFolder" names a resource
    // folder, opened as a bundle; the page (name, extension, directory) is looked up there for
    // the first preferred of the main bundle's localisations, else for "English" with a warning;
    // nil with a warning when neither has it.
    static Ref<URL> helpURLFromPage_withExtension_inDirectory(
        const String* page, const String* extension, const String* directory);

    // ---- NSURL(FileSystem) ----------------------------------------------------------------------
    // On file URLs. Nothing here throws, and only the three image generators log: failures answer
    // NO, nil or 0.
    // A reference to the item; NO when it does not exist.
    bool getFSRef(FSRef* reference) const;
    static Ref<URL> URLWithFSRef(const FSRef* reference);
    // The item's volume reference number (-100, -101, ... per device); 0 on any failure.
    int16_t volumeRefNum() const;
    // The root of the item's volume; nil on failure.
    Ref<URL> volumeURL() const;
    // The Finder flags, type and creator, written through the pointers that are not null. A file
    // with no stored Finder information answers YES with zeros; NO (nothing written) when the
    // item cannot be reached.
    bool getFinderInfoFlags_type_creator(uint16_t* flags, uint32_t* type, uint32_t* creator) const;
    // New flags = ((old AND NOT mask) OR (flags AND mask)) AND NOT has-been-inited (0x0100); type
    // and creator are always set. YES when the Finder information was written.
    bool setFinderInfoFlags_mask_type_creator(uint16_t flags, uint16_t mask, uint32_t type, uint32_t creator) const;
    // The Finder flags could be read and have has-custom-icon (0x0400) set.
    bool hasCustomIcon() const;
    // The Finder alias file type for the item: 'fapa', 'adrp', 0 (a plain file), 'fpka', 'hdsk'
    // or 'fdrp'.
    uint32_t aliasType() const;
    // An icon family ('icns'): the custom icon resource when has-custom-icon is set, else the icon
    // theme's generic icon for the file's content type as PNG elements; nil when neither is there.
    Ref<Data> iconFamilyData() const;
    // Images of the item. Each answers nil, with a warning, when nothing exists at the path.
    // The preview service's image of the file asked at 1024 x 1024, as an image of the bitmap's
    // own size; an empty image of zero size when the service gives none.
    Ref<Image> generateAlbumArtImageFromQuickLook() const;
    // That image's 109 x 109 desktop thumbnail.
    Ref<Image> generateThumbnailImageFromQuickLook() const;
    // The file read as an image, turned into its desktop thumbnail.
    Ref<Image> generateThumbnailImageFromImage() const;

private:
    // Where one part lies in text_; absent when length is npos.
    struct Span {
        uint32_t start = 0;
        uint32_t length = UINT32_MAX;
        bool present() const { return length != UINT32_MAX; }
    };
    struct Parts {
        Span scheme, user, password, host, port, path, query, fragment;
    };
    URL(std::string text, const Parts& parts) : text_(std::move(text)), parts_(parts) {}
    static Ref<URL> parse(std::string text);
    Ref<String> part(Span span) const;
    bool schemeStartsWith(std::string_view prefix) const;

    std::string text_;
    Parts parts_;
};

} // namespace zon
