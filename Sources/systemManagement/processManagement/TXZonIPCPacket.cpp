#include "systemManagement/processManagement/TXZonIPCPacket.h"

#include "logger/ZonLog.h"
#include "platform/io/PropertyListSerialization.h"
#include "platform/runtime/Class.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Geometry.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/UTF.h"
#include "platform/values/Value.h"

#include <cstring>
#include <string_view>
#include <vector>

namespace zon {

ZON_STRING_CONSTANT(TXZonIPCPacketInternalNSValueEncodingKey, "__TXZonIPCPacketInternalNSValueEncoding__");

ZON_DEFINE_CLASS(TXZonIPCPacket, "TXZonIPCPacket")

namespace {

// The geometric values a dictionary payload carries as text, in the order they are tried.
enum class Geometric { Point, Size, Range, Rect, Unsupported };

constexpr std::string_view kPointEncoding = "{_NSPoint=ff}";
constexpr std::string_view kSizeEncoding = "{_NSSize=ff}";
constexpr std::string_view kRangeEncoding = "{_NSRange=II}";
constexpr std::string_view kRectEncoding = "{_NSRect={_NSPoint=ff}{_NSSize=ff}}";

Geometric geometricKind(std::string_view encoding)
{
    if (encoding == kPointEncoding)
        return Geometric::Point;
    if (encoding == kSizeEncoding)
        return Geometric::Size;
    if (encoding == kRangeEncoding)
        return Geometric::Range;
    if (encoding == kRectEncoding)
        return Geometric::Rect;
    return Geometric::Unsupported;
}

Ref<String> textOfGeometricValue(const Value* value, Geometric kind)
{
    switch (kind) {
    case Geometric::Point:
        return NSStringFromPoint(value->pointValue());
    case Geometric::Size:
        return NSStringFromSize(value->sizeValue());
    case Geometric::Range:
        return NSStringFromRange(value->rangeValue());
    case Geometric::Rect:
        return NSStringFromRect(value->rectValue());
    case Geometric::Unsupported:
        break;
    }
    return nullptr;
}

Ref<Value> geometricValueOfText(const String* text, Geometric kind)
{
    switch (kind) {
    case Geometric::Point:
        return Value::valueWithPoint(NSPointFromString(text));
    case Geometric::Size:
        return Value::valueWithSize(NSSizeFromString(text));
    case Geometric::Range:
        return Value::valueWithRange(NSRangeFromString(text));
    case Geometric::Rect:
        return Value::valueWithRect(NSRectFromString(text));
    case Geometric::Unsupported:
        break;
    }
    return nullptr;
}

String* packetLogCategory() { return TXZonIPCPacket::staticClass()->logCategory(); }

void logUnsupportedType(const char* file, int line)
{
    zon_log_obj(file, line, packetLogCategory(), logger::kLevelWarning, kDefaultLogIdentifier,
        "Unsupported objc type in dictionary, cannot save you");
}

} // namespace

String* TXZonIPCPacket::descriptionOfPacketType(int32_t type)
{
    switch (type) {
    case 1:
        return ZSTR("Ping");
    case 2:
        return ZSTR("Connect Request");
    case 3:
        return ZSTR("Connection Ack");
    case 4:
        return ZSTR("Connection Nak");
    case 5:
        return ZSTR("Disconnect");
    case 7:
        return ZSTR("Data");
    case 8:
        return ZSTR("Data (Dictionary)");
    case 9:
        return ZSTR("Data (String)");
    default:
        return ZSTR("Unknown");
    }
}

Ref<TXZonIPCPacket> TXZonIPCPacket::initWithData_ofType(Data* data, int32_t type)
{
    return makeObject<TXZonIPCPacket>(type, HeldBytes(Ref<Data>(data)));
}

namespace {

// The types whose payload follows the type word; the others keep the whole frame.
bool isKnownType(int32_t type)
{
    return type >= TXZonIPCPacket::kPing && type <= TXZonIPCPacket::kString && type != TXZonIPCPacket::kUnassigned;
}

} // namespace

// Frames shorter than a type word are type 0 with the frame as payload; known types drop the type
// word; unknown types (the unassigned 6 included) keep the whole frame so that the log shows what
// arrived.
Ref<TXZonIPCPacket> TXZonIPCPacket::initWithZONIPCPacketData(Data* data)
{
    const size_t length = data ? data->length() : 0;
    if (length < sizeof(int32_t))
        return initWithData_ofType(data, 0);
    int32_t type;
    std::memcpy(&type, data->bytes(), sizeof type);
    if (isKnownType(type))
        return initWithData_ofType(data->subdataWithRange({sizeof type, length - sizeof type}), type);
    return initWithData_ofType(data, type);
}

Ref<TXZonIPCPacket> TXZonIPCPacket::packetWithZONIPCPacketData(Data* data)
{
    return initWithZONIPCPacketData(data);
}

Ref<TXZonIPCPacket> TXZonIPCPacket::packetWithTypeWord_rest(std::span<const uint8_t> typeWord, HeldBytes rest)
{
    if (typeWord.size() == sizeof(int32_t)) {
        int32_t type;
        std::memcpy(&type, typeWord.data(), sizeof type);
        if (isKnownType(type))
            return makeObject<TXZonIPCPacket>(type, rest.isNil() ? HeldBytes(Data::data()) : std::move(rest));
    }
    // Short and unknown frames are read whole; they are small or rare.
    ByteVector bytes(typeWord.begin(), typeWord.end());
    bytes.insert(bytes.end(), rest.span().begin(), rest.span().end());
    return initWithZONIPCPacketData(Data::dataWithVector(std::move(bytes)));
}

Ref<TXZonIPCPacket> TXZonIPCPacket::pingPacket()
{
    return connectPacket_fromService(kPing, ZSTR(""));
}

Ref<TXZonIPCPacket> TXZonIPCPacket::connectPacket_fromService(int32_t type, String* serviceName)
{
    return initWithData_ofType(Data::dataWithUTF8OfString(serviceName), type);
}

Ref<TXZonIPCPacket> TXZonIPCPacket::disconnectPacketForService(String* serviceName)
{
    return connectPacket_fromService(kDisconnect, serviceName);
}

Ref<TXZonIPCPacket> TXZonIPCPacket::packetWithData(Data* data)
{
    return initWithData_ofType(data, kData);
}

Ref<TXZonIPCPacket> TXZonIPCPacket::packetWithString(String* string)
{
    if (string && !string->asciiCharacters() && string->length() <= kInlinePayloadSize) {
        char utf8[3 * kInlinePayloadSize];
        const size_t length = static_cast<size_t>(utf::convertUTF16ToUTF8(string->view(), utf8) - utf8);
        if (length <= kInlinePayloadSize) {
            auto packet = makeObject<TXZonIPCPacket>(kString);
            std::memcpy(packet->inlinePayload_, utf8, length);
            packet->inlineLength_ = static_cast<uint8_t>(length + 1);
            return packet;
        }
    }
    return makeObject<TXZonIPCPacket>(kString, HeldBytes::utf8OfString(string));
}

Ref<TXZonIPCPacket> TXZonIPCPacket::packetWithDictionary(Dictionary* dictionary)
{
    Ref<MutableDictionary> copy = dictionary ? MutableDictionary::dictionaryWithDictionary(dictionary) : nullptr;
    Ref<MutableDictionary> encodings = MutableDictionary::dictionary();
    if (copy) {
        const Ref<Array> keys = copy->allKeys();
        for (Object* key : *keys) {
            const auto* value = dynamicCast<Value>(copy->objectForKey(key));
            if (!value || dynamicCast<Number>(value))
                continue;
            const Geometric kind = geometricKind(value->objCType());
            if (kind == Geometric::Unsupported) {
                logUnsupportedType(__FILE__, __LINE__);
                continue;
            }
            encodings->setObject_forKey(String::stringWithUTF8String(value->objCType()), key);
            copy->setObject_forKey(textOfGeometricValue(value, kind), key);
        }
        copy->setObject_forKey(encodings, TXZonIPCPacketInternalNSValueEncodingKey);
    }

    Ref<Error> error;
    Ref<Data> bytes = PropertyListSerialization::dataWithPropertyList(copy, NSPropertyListXMLFormat_v1_0, &error);
    if (!bytes) {
        zon_log_obj(__FILE__, __LINE__, packetLogCategory(), logger::kLevelError, kDefaultLogIdentifier,
            "Dictionary cannot be converted to data type due to %@", error ? error->localizedDescription() : nullptr);
        return nullptr;
    }
    return initWithData_ofType(bytes, kDictionary);
}

Ref<Data> TXZonIPCPacket::ZONIPCPacketData() const
{
    // Built once in the storage the returned data keeps: the payload is copied a single time.
    const auto type = typeWord();
    const auto payload = payloadBytes();
    ByteVector bytes;
    bytes.reserve(type.size() + payload.size());
    bytes.insert(bytes.end(), type.begin(), type.end());
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return Data::dataWithVector(std::move(bytes));
}

std::array<uint8_t, 4> TXZonIPCPacket::typeWord() const
{
    std::array<uint8_t, 4> word;
    std::memcpy(word.data(), &packetType_, sizeof packetType_);
    return word;
}

TXZonIPCPacket::~TXZonIPCPacket()
{
    if (Data* made = madeData_.load(std::memory_order_acquire))
        made->release();
}

HeldBytes TXZonIPCPacket::payload() const
{
    if (inlineLength_)
        return HeldBytes(payloadBytes(), Ref<Object>(const_cast<TXZonIPCPacket*>(this)));
    return payload_;
}

Data* TXZonIPCPacket::sendData() const
{
    if (!inlineLength_) {
        if (payload_.isNil())
            return nullptr;
        if (Data* exact = payload_.exactData())
            return exact;
    }
    // Made once; threads that ask at once agree on the one that was published first.
    if (Data* made = madeData_.load(std::memory_order_acquire))
        return made;
    Ref<Data> data = Data::dataWithBytes(payloadBytes());
    Data* expected = nullptr;
    if (madeData_.compare_exchange_strong(expected, data.get(), std::memory_order_acq_rel))
        return data.leakRef();
    return expected;
}

void TXZonIPCPacket::setSendData(Data* data)
{
    inlineLength_ = 0;
    payload_ = HeldBytes(Ref<Data>(data));
    if (Data* made = madeData_.exchange(nullptr, std::memory_order_acq_rel))
        made->release();
}

Ref<Dictionary> TXZonIPCPacket::dictionaryValue() const
{
    Ref<Object> parsed;
    if (Data* bytes = sendData(); bytes && bytes->length() > 0)
        parsed = PropertyListSerialization::propertyListWithData(bytes, nullptr, nullptr, NSPropertyListMutableContainers);
    auto* dictionary = dynamicCast<MutableDictionary>(parsed.get());
    if (!dictionary)
        return Dictionary::dictionary();

    if (const auto* encodings = dictionary->objectForKey<Dictionary>(TXZonIPCPacketInternalNSValueEncodingKey)) {
        for (auto [key, encoding] : *encodings) {
            const auto* type = dynamicCast<String>(encoding);
            const auto* text = dictionary->objectForKey<String>(key);
            if (!type || !text)
                continue;
            const Geometric kind = geometricKind(type->UTF8String());
            if (kind == Geometric::Unsupported) {
                logUnsupportedType(__FILE__, __LINE__);
                continue;
            }
            dictionary->setObject_forKey(geometricValueOfText(text, kind), key);
        }
    }
    dictionary->removeObjectForKey(TXZonIPCPacketInternalNSValueEncodingKey);
    return Dictionary::dictionaryWithDictionary(dictionary);
}

Ref<String> TXZonIPCPacket::stringValue() const
{
    if (!inlineLength_ && payload_.isNil())
        return String::string();
    return stringWithUTF8Data(sendData());
}

bool TXZonIPCPacket::isCommsPacket() const
{
    return static_cast<uint32_t>(packetType_) < 7;
}

Ref<String> TXZonIPCPacket::description() const
{
    return descriptionWithType_size(packetType_, payloadBytes().size());
}

Ref<String> TXZonIPCPacket::descriptionWithType_size(int32_t type, size_t payloadLength)
{
    return String::stringWithFormat(
        "Packet Type: %@ Size: %d", descriptionOfPacketType(type), static_cast<int>(payloadLength));
}

} // namespace zon
