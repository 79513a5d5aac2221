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
    zon_log_obj(file, line, packetLogCategory(), 2, kDefaultLogIdentifier,
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
    return makeObject<TXZonIPCPacket>(type, Ref<Data>(data));
}

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
    if (type >= kPing && type <= kString && type != kUnassigned) {
        // The bytes are kept whole and the payload cut out only when asked for; copy() keeps
        // immutable data as it is and snapshots mutable data, which its owner may change.
        return makeObject<TXZonIPCPacket>(type, staticRefCast<Data>(data->copy()), WireBytes {});
    }
    return initWithData_ofType(data, type);
}

Ref<TXZonIPCPacket> TXZonIPCPacket::packetWithZONIPCPacketData(Data* data)
{
    return initWithZONIPCPacketData(data);
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
    if (!string)
        return initWithData_ofType(nullptr, kString);
    // Encoded straight after the type word: the wire bytes are ready without another copy.
    std::vector<uint8_t> wire(sizeof(int32_t));
    std::memcpy(wire.data(), &kString, sizeof(int32_t));
    utf::appendUTF16ToUTF8(string->view(), wire);
    return makeObject<TXZonIPCPacket>(kString, Data::dataWithVector(std::move(wire)), WireBytes {});
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
        zon_log_obj(__FILE__, __LINE__, packetLogCategory(), 1, kDefaultLogIdentifier,
            "Dictionary cannot be converted to data type due to %@", error ? error->localizedDescription() : nullptr);
        return nullptr;
    }
    return initWithData_ofType(bytes, kDictionary);
}

Ref<Data> TXZonIPCPacket::ZONIPCPacketData() const
{
    if (wire_)
        return wire_;
    // Built once in the storage the returned data keeps: the payload is copied a single time.
    const size_t payloadLength = sendData_ ? sendData_->length() : 0;
    std::vector<uint8_t> bytes;
    bytes.reserve(sizeof packetType_ + payloadLength);
    const auto* type = reinterpret_cast<const uint8_t*>(&packetType_);
    bytes.insert(bytes.end(), type, type + sizeof packetType_);
    if (payloadLength) {
        const auto body = sendData_->span();
        bytes.insert(bytes.end(), body.begin(), body.end());
    }
    return Data::dataWithVector(std::move(bytes));
}

Data* TXZonIPCPacket::payload() const
{
    if (wire_) {
        std::call_once(payloadCut_, [this] {
            sendData_ = wire_->subdataWithRange({sizeof(int32_t), wire_->length() - sizeof(int32_t)});
        });
    }
    return sendData_.get();
}

std::span<const uint8_t> TXZonIPCPacket::payloadBytes() const
{
    if (wire_)
        return wire_->span().subspan(sizeof(int32_t));
    return sendData_ ? sendData_->span() : std::span<const uint8_t>();
}

void TXZonIPCPacket::dropWireBytes()
{
    payload();
    wire_ = nullptr;
}

void TXZonIPCPacket::setSendData(Data* data)
{
    dropWireBytes();
    sendData_ = data;
}

void TXZonIPCPacket::setPacketType(int32_t type)
{
    dropWireBytes();
    packetType_ = type;
}

Ref<Dictionary> TXZonIPCPacket::dictionaryValue() const
{
    Ref<Object> parsed;
    if (Data* bytes = payload(); bytes && bytes->length() > 0)
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
    if (!wire_ && !sendData_)
        return String::string();
    const auto bytes = payloadBytes();
    return String::stringWithUTF8String(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

bool TXZonIPCPacket::isCommsPacket() const
{
    return static_cast<uint32_t>(packetType_) < 7;
}

Ref<String> TXZonIPCPacket::description() const
{
    return String::stringWithFormat("Packet Type: %@ Size: %d", descriptionOfPacketType(packetType_),
        static_cast<int>(payloadBytes().size()));
}

} // namespace zon
