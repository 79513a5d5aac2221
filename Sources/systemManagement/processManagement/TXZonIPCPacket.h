#pragma once

#include "platform/runtime/Object.h"
#include "platform/values/HeldBytes.h"

#include <array>
#include <cstdint>
#include <atomic>
#include <span>

namespace zon {

class Data;
class Dictionary;

// The reserved dictionary key of dictionary payloads: it maps each top-level key that held a
// point, size, range or rectangle to that value's type encoding.
ZON_EXPORT extern String* const TXZonIPCPacketInternalNSValueEncodingKey;

// The unit two processes exchange over the IPC link: a signed 32-bit packet type and a payload
// of bytes. On the wire a packet is the type (4 bytes, host order) followed by the payload, with
// no other framing.
//
// Types: 1 ping, 2 connect request, 3 connection acknowledged, 4 connection refused,
// 5 disconnect (the "communication" packets, whose payload is the UTF-8 of a service name or
// nothing), 7 data, 8 dictionary (an XML property list), 9 string (UTF-8); anything else is
// unknown. Parsing never fails: a frame shorter than 4 bytes is type 0 with the frame as payload,
// and a frame of unknown type keeps its type and the whole frame, header included, as payload.
//
// Not safe to change from one thread while another reads it.
class ZON_EXPORT TXZonIPCPacket final : public Object {
    ZON_OBJECT(TXZonIPCPacket, Object)
public:
    static constexpr int32_t kPing = 1;
    static constexpr int32_t kConnectRequest = 2;
    static constexpr int32_t kConnectionAck = 3;
    static constexpr int32_t kConnectionNak = 4;
    static constexpr int32_t kDisconnect = 5;
    static constexpr int32_t kUnassigned = 6;
    static constexpr int32_t kData = 7;
    static constexpr int32_t kDictionary = 8;
    static constexpr int32_t kString = 9;

    // Parses wire bytes (nil counts as no bytes).
    static Ref<TXZonIPCPacket> packetWithZONIPCPacketData(Data* data);
    // Parses wire bytes that arrive in two parts, the first (up to) 4 bytes and the rest (nil
    // counts as no bytes): the packet packetWithZONIPCPacketData makes of the two joined, but a
    // known type takes rest itself as its payload, without a copy.
    static Ref<TXZonIPCPacket> packetWithTypeWord_rest(std::span<const uint8_t> typeWord, HeldBytes rest);
    static Ref<TXZonIPCPacket> pingPacket();
    // A packet of this type carrying the UTF-8 of the service name.
    static Ref<TXZonIPCPacket> connectPacket_fromService(int32_t type, String* serviceName);
    static Ref<TXZonIPCPacket> disconnectPacketForService(String* serviceName);
    // Type 7; the payload is data itself, not a copy.
    static Ref<TXZonIPCPacket> packetWithData(Data* data);
    // Type 8. Top-level points, sizes, ranges and rectangles travel as their text forms, recorded
    // under the reserved key (always present). Nil, with a level-1 log line, when the dictionary
    // cannot be written as a property list.
    static Ref<TXZonIPCPacket> packetWithDictionary(Dictionary* dictionary);
    // Type 9, the UTF-8 bytes of the string (text kept as ASCII is held as it is, not copied).
    static Ref<TXZonIPCPacket> packetWithString(String* string);

    static Ref<TXZonIPCPacket> initWithData_ofType(Data* data, int32_t type);
    static Ref<TXZonIPCPacket> initWithZONIPCPacketData(Data* data);

    // The wire bytes: the type then the payload.
    Ref<Data> ZONIPCPacketData() const;
    // The first 4 wire bytes, the type in host order; the payload follows them on the wire.
    std::array<uint8_t, 4> typeWord() const;

    int32_t packetType() const { return packetType_; }
    void setPacketType(int32_t type) { packetType_ = type; }
    // The payload as a Data, made the first time it is asked for when the payload lies in
    // another object (a string's text); nil when there is none.
    Data* sendData() const;
    void setSendData(Data* data);
    int32_t type() const { return packetType_; }
    Data* dataValue() const { return sendData(); }
    // The payload's bytes and what holds them: the form in which the packet is sent.
    HeldBytes payload() const;

    // The payload read as a property-list dictionary with its geometric values rebuilt and the
    // reserved key removed; an empty dictionary when the payload is not a dictionary.
    Ref<Dictionary> dictionaryValue() const;
    // The payload as UTF-8 text; nil when it is not valid UTF-8.
    Ref<String> stringValue() const;
    // True for types 0 to 6: the type taken as unsigned is below 7, so negative types are not.
    bool isCommsPacket() const;

    // "Packet Type: <type text> Size: <payload length>".
    Ref<String> description() const override;
    // The description of a packet of this type and payload length, for one that was not made.
    static Ref<String> descriptionWithType_size(int32_t type, size_t payloadLength);

    // The description text of a packet type: "Ping", "Data (Dictionary)", ..., "Unknown".
    static String* descriptionOfPacketType(int32_t type);

private:
    // Short UTF-8 (a command, a ping) lies in the packet itself, so that a short string costs no
    // data object of its own: IPCBenchmarks' one-way string rows.
    static constexpr size_t kInlinePayloadSize = 64;

    TXZonIPCPacket(int32_t type, HeldBytes payload) : packetType_(type), payload_(std::move(payload)) {}
    explicit TXZonIPCPacket(int32_t type) : packetType_(type) {}
    ~TXZonIPCPacket() override;

    std::span<const uint8_t> payloadBytes() const
    {
        return inlineLength_ ? std::span<const uint8_t>(inlinePayload_, inlineLength_ - 1) : payload_.span();
    }

    int32_t packetType_;
    HeldBytes payload_; // unless the payload lies in inlinePayload_
    uint8_t inlinePayload_[kInlinePayloadSize];
    uint8_t inlineLength_ = 0; // the inline payload's length plus one; 0 when there is none
    mutable std::atomic<Data*> madeData_ {nullptr}; // owned: sendData() of a payload that is no Data
};

} // namespace zon
