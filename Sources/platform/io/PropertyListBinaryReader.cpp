#include "platform/io/PropertyListBinaryReaderInternal.h"

#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/KeyedArchiverUID.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <bit>
#include <cstring>
#include <string_view>
#include <vector>

namespace zon::plist {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view kMagic = "bplist00"sv;
constexpr size_t kTrailerSize = 32;

// A document may expand (count every value as often as it is referenced) to this many values plus
// this many per object it holds; beyond that, shared containers are being used to multiply it.
constexpr uint64_t kExpansionAllowance = 1u << 20;
constexpr uint64_t kExpansionPerObject = 16;

uint64_t readBigEndian(const uint8_t* at, size_t size)
{
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i)
        value = (value << 8) | at[i];
    return value;
}

struct Trailer {
    uint8_t offsetSize;
    uint8_t referenceSize;
    uint64_t objectCount;
    uint64_t topObject;
    uint64_t offsetTableStart;
};

// One object's marker, the count its low nibble (or the integer after it) gives, and where its
// contents start.
struct Header {
    uint8_t marker;
    uint64_t count;
    size_t contents;
};

class Reader {
public:
    Reader(std::span<const uint8_t> bytes, Mutability mutability) : bytes_(bytes), mutability_(mutability) {}

    Ref<Object> read(std::string& error);

private:
    enum class State : uint8_t { Unread, Open, Done };
    struct Node {
        Ref<Object> value;
        uint64_t expandedCount = 0; // values in the fully expanded tree
        uint32_t height = 0;        // containers on the longest path down
        State state = State::Unread;
    };
    struct Frame {
        uint64_t object;
        bool dictionary;
        size_t references; // where the references start
        uint64_t count;    // references in all (keys and values for a dictionary)
        uint64_t next;
        size_t itemStart;
        uint64_t expandedCount;
        uint32_t height;
    };

    bool fail(std::string message)
    {
        if (error_.empty())
            error_ = std::move(message);
        return false;
    }
    bool readTrailer();
    bool offsetOf(uint64_t object, size_t& offset);
    bool readHeader(uint64_t object, Header& header);
    bool readReference(const Frame& frame, uint64_t& object);
    bool visit(uint64_t object);
    bool readScalar(uint64_t object, const Header& header, Ref<Object>& value);
    bool addChild(Frame& frame, uint64_t object);
    bool finishContainer();

    std::span<const uint8_t> bytes_;
    Mutability mutability_;
    Trailer trailer_ {};
    uint64_t expansionLimit_ = 0;
    std::vector<Node> nodes_;
    std::vector<Frame> stack_;
    std::vector<Ref<Object>> items_;
    std::string error_;
};

bool Reader::readTrailer()
{
    if (bytes_.size() < kMagic.size() + 1 + kTrailerSize)
        return fail("Binary property list is too short");
    if (std::memcmp(bytes_.data(), kMagic.data(), kMagic.size()) != 0)
        return fail("Unsupported binary property list version");
    const uint8_t* trailer = bytes_.data() + bytes_.size() - kTrailerSize;
    trailer_.offsetSize = trailer[6];
    trailer_.referenceSize = trailer[7];
    trailer_.objectCount = readBigEndian(trailer + 8, 8);
    trailer_.topObject = readBigEndian(trailer + 16, 8);
    trailer_.offsetTableStart = readBigEndian(trailer + 24, 8);
    if (trailer_.offsetSize < 1 || trailer_.offsetSize > 8 || trailer_.referenceSize < 1 || trailer_.referenceSize > 8)
        return fail("Invalid offset or reference size in the binary property list trailer");
    const uint64_t tableEnd = bytes_.size() - kTrailerSize;
    if (trailer_.objectCount == 0 || trailer_.topObject >= trailer_.objectCount)
        return fail("Invalid object count or top object in the binary property list trailer");
    if (trailer_.offsetTableStart < kMagic.size() || trailer_.offsetTableStart > tableEnd
        || trailer_.objectCount > (tableEnd - trailer_.offsetTableStart) / trailer_.offsetSize)
        return fail("Offset table out of bounds in the binary property list");
    if (trailer_.referenceSize < 8 && trailer_.objectCount - 1 > (uint64_t {1} << (8 * trailer_.referenceSize)) - 1)
        return fail("Object count too large for the reference size in the binary property list");
    expansionLimit_ = kExpansionAllowance + kExpansionPerObject * trailer_.objectCount;
    return true;
}

bool Reader::offsetOf(uint64_t object, size_t& offset)
{
    const uint64_t value =
        readBigEndian(bytes_.data() + trailer_.offsetTableStart + object * trailer_.offsetSize, trailer_.offsetSize);
    if (value < kMagic.size() || value >= trailer_.offsetTableStart)
        return fail("Object offset out of bounds in the binary property list");
    offset = static_cast<size_t>(value);
    return true;
}

bool Reader::readHeader(uint64_t object, Header& header)
{
    size_t offset;
    if (!offsetOf(object, offset))
        return false;
    const size_t end = trailer_.offsetTableStart;
    header.marker = bytes_[offset];
    header.count = header.marker & 0x0F;
    header.contents = offset + 1;
    const uint8_t type = header.marker >> 4;
    const bool counted = type == 0x4 || type == 0x5 || type == 0x6 || type == 0xA || type == 0xD;
    if (counted && header.count == 0x0F) {
        // The count follows as an integer object of 1, 2, 4 or 8 bytes.
        if (header.contents >= end)
            return fail("Truncated object in the binary property list");
        const uint8_t countMarker = bytes_[header.contents];
        const size_t size = size_t {1} << (countMarker & 0x0F);
        if ((countMarker & 0xF0) != 0x10 || (countMarker & 0x0F) > 3 || end - header.contents - 1 < size)
            return fail("Invalid object length in the binary property list");
        header.count = readBigEndian(bytes_.data() + header.contents + 1, size);
        header.contents += 1 + size;
    }
    if (counted) {
        const uint64_t unit = type == 0x6 ? 2 : type == 0xA ? trailer_.referenceSize : type == 0xD ? 2u * trailer_.referenceSize : 1;
        if (header.count > (end - header.contents) / unit)
            return fail("Object length out of bounds in the binary property list");
    }
    return true;
}

bool Reader::readScalar(uint64_t object, const Header& header, Ref<Object>& value)
{
    const size_t available = trailer_.offsetTableStart - header.contents;
    const uint8_t* contents = bytes_.data() + header.contents;
    const uint8_t low = header.marker & 0x0F;
    switch (header.marker >> 4) {
    case 0x0:
        if (header.marker == 0x08 || header.marker == 0x09) {
            value = header.marker == 0x09 ? Number::yes() : Number::no();
            return true;
        }
        break;
    case 0x1: {
        if (low > 4 || available < (size_t {1} << low))
            return fail("Invalid integer in the binary property list");
        if (low < 4) {
            // 1, 2 and 4 bytes are unsigned, 8 bytes signed.
            const uint64_t raw = readBigEndian(contents, size_t {1} << low);
            value = Number::numberWithLongLong(static_cast<long long>(raw));
            return true;
        }
        // 16 bytes: unsigned values past INT64_MAX, or a sign-extended negative value.
        const uint64_t high = readBigEndian(contents, 8);
        const uint64_t rest = readBigEndian(contents + 8, 8);
        if (high == 0)
            value = rest > static_cast<uint64_t>(INT64_MAX) ? Number::numberWithUnsignedLongLong(rest)
                                                            : Number::numberWithLongLong(static_cast<long long>(rest));
        else if (high == UINT64_MAX && rest > static_cast<uint64_t>(INT64_MAX))
            value = Number::numberWithLongLong(static_cast<long long>(rest));
        else
            return fail("Integer out of the 64-bit range in the binary property list");
        return true;
    }
    case 0x2:
        if (low == 2 && available >= 4) {
            value = Number::numberWithFloat(std::bit_cast<float>(static_cast<uint32_t>(readBigEndian(contents, 4))));
            return true;
        }
        if (low == 3 && available >= 8) {
            value = Number::numberWithDouble(std::bit_cast<double>(readBigEndian(contents, 8)));
            return true;
        }
        return fail("Invalid real in the binary property list");
    case 0x3:
        if (header.marker != 0x33 || available < 8)
            return fail("Invalid date in the binary property list");
        value = Date::dateWithTimeIntervalSinceReferenceDate(std::bit_cast<double>(readBigEndian(contents, 8)));
        return true;
    case 0x4:
        value = Data::dataWithBytes(contents, header.count);
        return true;
    case 0x5:
        for (uint64_t i = 0; i < header.count; ++i) {
            if (contents[i] > 0x7F)
                return fail("Non-ASCII byte in an ASCII string of the binary property list");
        }
        value = String::initWithBytes_length_encoding(contents, header.count, NSASCIIStringEncoding);
        return true;
    case 0x8: {
        // A keyed archive's object reference: 1 to 16 bytes, big-endian. Indexes past 64 bits
        // cannot name an object of any document.
        const size_t size = size_t {1} + low;
        if (available < size)
            return fail("Truncated UID in the binary property list");
        for (size_t i = 0; i + 8 < size; ++i) {
            if (contents[i] != 0)
                return fail("UID out of the 64-bit range in the binary property list");
        }
        const size_t tail = std::min<size_t>(size, 8);
        value = KeyedArchiverUID::uidWithValue(readBigEndian(contents + size - tail, tail));
        return true;
    }
    case 0x6: {
        // Big-endian UTF-16, kept unit for unit (a lone surrogate stays one).
        std::u16string units(header.count, u'\0');
        for (uint64_t i = 0; i < header.count; ++i)
            units[i] = static_cast<char16_t>((contents[2 * i] << 8) | contents[2 * i + 1]);
        value = String::stringWithCharacters(units);
        return true;
    }
    default:
        break;
    }
    (void)object;
    char marker[8];
    std::snprintf(marker, sizeof marker, "0x%02x", header.marker);
    return fail(std::string("Unsupported object type ") + marker + " in the binary property list");
}

// Reads object and, when it is a container, opens it (its children are read by the main loop).
bool Reader::visit(uint64_t object)
{
    Node& node = nodes_[object];
    Header header;
    if (!readHeader(object, header))
        return false;
    const uint8_t type = header.marker >> 4;
    if (type != 0xA && type != 0xD) {
        if (!readScalar(object, header, node.value))
            return false;
        node.expandedCount = 1;
        node.state = State::Done;
        return true;
    }
    if (stack_.size() >= kMaxNestingDepth)
        return fail("Containers nested more than " + std::to_string(kMaxNestingDepth) + " deep in the binary property list");
    node.state = State::Open;
    const bool dictionary = type == 0xD;
    stack_.push_back({object, dictionary, header.contents, dictionary ? 2 * header.count : header.count, 0,
        items_.size(), 1, 1});
    return true;
}

// A dictionary's references are its keys and then its values; they are visited key, value, key,
// value so that the items alternate.
bool Reader::readReference(const Frame& frame, uint64_t& object)
{
    uint64_t index = frame.next;
    if (frame.dictionary)
        index = (frame.next % 2 == 0 ? 0 : frame.count / 2) + frame.next / 2;
    object = readBigEndian(bytes_.data() + frame.references + index * trailer_.referenceSize, trailer_.referenceSize);
    if (object >= trailer_.objectCount)
        return fail("Object reference out of bounds in the binary property list");
    return true;
}

// Called once frame.next has moved past the child's reference: an odd position was a key.
bool Reader::addChild(Frame& frame, uint64_t object)
{
    const Node& child = nodes_[object];
    if (frame.dictionary && frame.next % 2 == 1 && !dynamicCast<String>(child.value.get()))
        return fail("Dictionary key is not a string in the binary property list");
    frame.expandedCount += child.expandedCount;
    frame.height = std::max(frame.height, child.height + 1);
    if (frame.expandedCount > expansionLimit_)
        return fail("Shared objects expand too far in the binary property list");
    if (frame.height > kMaxNestingDepth)
        return fail("Containers nested more than " + std::to_string(kMaxNestingDepth) + " deep in the binary property list");
    items_.push_back(child.value);
    return true;
}

bool Reader::finishContainer()
{
    const Frame frame = stack_.back();
    stack_.pop_back();
    const std::span<Ref<Object>> items(items_.data() + frame.itemStart, items_.size() - frame.itemStart);
    Node& node = nodes_[frame.object];
    node.value = frame.dictionary ? makeDictionary(items, mutability_) : makeArray(items, mutability_);
    node.expandedCount = frame.expandedCount;
    node.height = frame.height;
    node.state = State::Done;
    items_.resize(frame.itemStart);
    return stack_.empty() || addChild(stack_.back(), frame.object);
}

Ref<Object> Reader::read(std::string& error)
{
    if (readTrailer()) {
        nodes_.resize(trailer_.objectCount);
        if (visit(trailer_.topObject)) {
            while (!stack_.empty()) {
                Frame& frame = stack_.back();
                if (frame.next == frame.count) {
                    if (!finishContainer())
                        break;
                    continue;
                }
                uint64_t object;
                if (!readReference(frame, object))
                    break;
                ++frame.next;
                const State state = nodes_[object].state;
                if (state == State::Open) {
                    fail("The binary property list holds a container inside itself");
                    break;
                }
                if (state == State::Done) {
                    if (!addChild(frame, object))
                        break;
                    continue;
                }
                if (!visit(object))
                    break;
                if (nodes_[object].state == State::Done && !addChild(stack_.back(), object))
                    break;
            }
        }
    }
    if (!error_.empty()) {
        error = error_;
        return nullptr;
    }
    return std::move(nodes_[trailer_.topObject].value);
}

} // namespace

Ref<Object> readBinaryPropertyList(std::span<const uint8_t> bytes, Mutability mutability, std::string& error)
{
    return Reader(bytes, mutability).read(error);
}

} // namespace zon::plist
