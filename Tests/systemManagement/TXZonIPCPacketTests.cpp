#include "support/Values.h"
#include "systemManagement/processManagement/TXZonIPCPacket.h"

#include "platform/io/PropertyListSerialization.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "platform/values/Value.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <span>

using namespace zon;
using namespace zon::test;
using testing::HasSubstr;

namespace {

Ref<Data> frame(int32_t type, std::string_view payload)
{
    std::string bytes(4, '\0');
    std::memcpy(bytes.data(), &type, 4);
    bytes += payload;
    return Data::dataWithBytes(bytes.data(), bytes.size());
}

Ref<TXZonIPCPacket> parse(std::string_view bytes)
{
    return TXZonIPCPacket::packetWithZONIPCPacketData(Data::dataWithBytes(bytes.data(), bytes.size()));
}

} // namespace

TEST(TXZonIPCPacket, DescribesEveryTypeWithItsText)
{
    const std::pair<int32_t, const char*> texts[] = {{0, "Unknown"}, {1, "Ping"}, {2, "Connect Request"},
        {3, "Connection Ack"}, {4, "Connection Nak"}, {5, "Disconnect"}, {6, "Unknown"}, {7, "Data"},
        {8, "Data (Dictionary)"}, {9, "Data (String)"}, {10, "Unknown"}, {-1, "Unknown"}};
    for (const auto& [type, text] : texts) {
        Ref<TXZonIPCPacket> packet = TXZonIPCPacket::initWithData_ofType(Data::dataWithBytes("abc", 3), type);
        EXPECT_EQ(packet->description()->UTF8String(), std::string("Packet Type: ") + text + " Size: 3");
        EXPECT_EQ(
            TXZonIPCPacket::descriptionWithType_size(type, 3)->UTF8String(), packet->description()->UTF8String());
    }
}

TEST(TXZonIPCPacket, CommsPacketsAreTypesZeroToSixTakenAsUnsigned)
{
    for (int32_t type : {0, 1, 2, 3, 4, 5, 6})
        EXPECT_TRUE(TXZonIPCPacket::initWithData_ofType(nullptr, type)->isCommsPacket()) << type;
    for (int32_t type : {7, 8, 9, 42, -1, INT32_MIN})
        EXPECT_FALSE(TXZonIPCPacket::initWithData_ofType(nullptr, type)->isCommsPacket()) << type;
}

TEST(TXZonIPCPacket, ControlPacketsCarryTheServiceNameInUTF8)
{
    EXPECT_EQ(textOf(TXZonIPCPacket::pingPacket()->ZONIPCPacketData()), std::string("\x01\0\0\0", 4));
    Ref<TXZonIPCPacket> connect = TXZonIPCPacket::connectPacket_fromService(3, str("médiaserver"));
    EXPECT_EQ(connect->packetType(), 3);
    EXPECT_EQ(textOf(connect->ZONIPCPacketData()), std::string("\x03\0\0\0médiaserver", 16));
    Ref<TXZonIPCPacket> disconnect = TXZonIPCPacket::disconnectPacketForService(str("app"));
    EXPECT_EQ(disconnect->type(), 5);
    EXPECT_EQ(textOf(disconnect->dataValue()), "app");
    EXPECT_EQ(TXZonIPCPacket::packetWithString(str("héllo"))->description()->UTF8String(),
        "Packet Type: Data (String) Size: 6");
    Ref<Data> payload = Data::dataWithBytes("\xFF\x00", 2);
    EXPECT_EQ(TXZonIPCPacket::packetWithData(payload)->sendData(), payload.get()); // not a copy
}

TEST(TXZonIPCPacket, ParsesShortKnownAndUnknownFramesAsTheWireRulesSay)
{
    Ref<TXZonIPCPacket> shortFrame = parse("abc");
    EXPECT_EQ(shortFrame->type(), 0);
    EXPECT_EQ(textOf(shortFrame->dataValue()), "abc");
    EXPECT_EQ(shortFrame->description()->UTF8String(), "Packet Type: Unknown Size: 3");
    EXPECT_EQ(parse("")->type(), 0);
    EXPECT_EQ(TXZonIPCPacket::packetWithZONIPCPacketData(nullptr)->type(), 0);

    Ref<TXZonIPCPacket> empty = TXZonIPCPacket::packetWithZONIPCPacketData(frame(7, ""));
    EXPECT_EQ(empty->type(), 7);
    EXPECT_EQ(empty->dataValue()->length(), 0u);

    for (int32_t type : {6, 42, 0, -1}) {
        Ref<Data> wire = frame(type, "payload");
        Ref<TXZonIPCPacket> unknown = TXZonIPCPacket::packetWithZONIPCPacketData(wire);
        EXPECT_EQ(unknown->type(), type);
        EXPECT_EQ(textOf(unknown->dataValue()), textOf(wire)) << "the whole frame, header included";
    }
    for (int32_t type : {1, 2, 3, 4, 5, 7, 8, 9}) {
        Ref<TXZonIPCPacket> packet = TXZonIPCPacket::initWithData_ofType(Data::dataWithBytes("xyz", 3), type);
        Ref<TXZonIPCPacket> back = TXZonIPCPacket::initWithZONIPCPacketData(packet->ZONIPCPacketData());
        EXPECT_EQ(back->type(), type);
        EXPECT_EQ(textOf(back->dataValue()), "xyz");
    }
}

TEST(TXZonIPCPacket, WireBytesInTwoPartsParseLikeTheJoinedBytes)
{
    // The service's ports deliver the type word apart from the rest.
    const std::string wires[] = {"", "ab", textOf(frame(9, "")), textOf(frame(9, "héllo")), textOf(frame(6, "x")),
        textOf(frame(-2, "payload")), textOf(frame(0, "z"))};
    for (const std::string& wire : wires) {
        const size_t split = std::min<size_t>(4, wire.size());
        Ref<Data> rest = Data::dataWithBytes(wire.data() + split, wire.size() - split);
        Ref<TXZonIPCPacket> twoParts = TXZonIPCPacket::packetWithTypeWord_rest(
            {reinterpret_cast<const uint8_t*>(wire.data()), split}, rest);
        Ref<TXZonIPCPacket> whole = parse(wire);
        EXPECT_EQ(twoParts->type(), whole->type()) << wire.size();
        EXPECT_EQ(textOf(twoParts->dataValue()), textOf(whole->dataValue())) << wire.size();
    }
    const int32_t type = 7;
    const std::span<const uint8_t> word(reinterpret_cast<const uint8_t*>(&type), 4);
    Ref<Data> rest = Data::dataWithBytes("data", 4);
    EXPECT_EQ(TXZonIPCPacket::packetWithTypeWord_rest(word, rest)->dataValue(), rest.get()) << "not a copy";
    Ref<TXZonIPCPacket> empty = TXZonIPCPacket::packetWithTypeWord_rest(word, {});
    ASSERT_TRUE(empty->dataValue());
    EXPECT_EQ(empty->dataValue()->length(), 0u);
}

TEST(TXZonIPCPacket, ParsedAndStringPacketsReadAndChangeLikeAnyOther)
{
    // A parsed packet keeps its own copy of the payload: the sender may reuse its buffer.
    Ref<MutableData> source = MutableData::dataWithData(frame(9, "héllo"));
    Ref<TXZonIPCPacket> parsed = TXZonIPCPacket::packetWithZONIPCPacketData(source);
    source->resetBytesInRange({0, source->length()}); // the sender's buffer is reused
    EXPECT_EQ(parsed->type(), 9);
    EXPECT_EQ(parsed->stringValue()->UTF8String(), "héllo");
    EXPECT_EQ(textOf(parsed->ZONIPCPacketData()), textOf(frame(9, "héllo")));
    EXPECT_EQ(parsed->description()->UTF8String(), "Packet Type: Data (String) Size: 6");
    Data* payload = parsed->dataValue();
    EXPECT_EQ(textOf(payload), "héllo");
    EXPECT_EQ(parsed->sendData(), payload);

    parsed->setPacketType(7);
    EXPECT_EQ(textOf(parsed->ZONIPCPacketData()), textOf(frame(7, "héllo")));
    parsed->setSendData(Data::dataWithBytes("xy", 2));
    EXPECT_EQ(textOf(parsed->ZONIPCPacketData()), textOf(frame(7, "xy")));

    Ref<TXZonIPCPacket> string = TXZonIPCPacket::packetWithString(str("日本"));
    EXPECT_EQ(textOf(string->ZONIPCPacketData()), textOf(frame(9, "日本")));
    EXPECT_EQ(textOf(string->dataValue()), "日本");
    string->setSendData(nullptr);
    EXPECT_EQ(string->dataValue(), nullptr);
    EXPECT_EQ(textOf(string->ZONIPCPacketData()), textOf(frame(9, "")));

    Ref<TXZonIPCPacket> nothing = TXZonIPCPacket::packetWithString(nullptr);
    EXPECT_EQ(nothing->dataValue(), nullptr);
    EXPECT_EQ(nothing->stringValue()->length(), 0u);
}

TEST(TXZonIPCPacket, StringValueIsNilForInvalidUTF8)
{
    EXPECT_EQ(TXZonIPCPacket::packetWithString(str("日本 😀"))->stringValue()->UTF8String(), "日本 😀");
    EXPECT_FALSE(TXZonIPCPacket::packetWithData(Data::dataWithBytes("\xC3\x28", 2))->stringValue());
}

TEST(TXZonIPCPacket, DictionaryPayloadAlwaysCarriesTheEncodingKey)
{
    Ref<TXZonIPCPacket> packet = TXZonIPCPacket::packetWithDictionary(Dictionary::dictionaryWithObject_forKey(str("b"), str("a")));
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->type(), 8);
    const std::string xml = textOf(packet->dataValue());
    EXPECT_THAT(xml, HasSubstr("<dict>\n"
                               "\t<key>a</key>\n"
                               "\t<string>b</string>\n"
                               "\t<key>__TXZonIPCPacketInternalNSValueEncoding__</key>\n"
                               "\t<dict/>\n"
                               "</dict>\n"));
    Ref<Dictionary> back = packet->dictionaryValue();
    EXPECT_TRUE(back->isEqual(Dictionary::dictionaryWithObject_forKey(str("b"), str("a"))));
}

TEST(TXZonIPCPacket, GeometricValuesTravelAsTextAndComeBackBoxed)
{
    Ref<Dictionary> original = Dictionary::dictionaryWithObjectsAndKeys({
        {str("p"), Value::valueWithPoint({1.5, 2})},
        {str("r"), Value::valueWithRange({3, 4})},
        {str("s"), Value::valueWithSize({5, 6.25})},
        {str("q"), Value::valueWithRect({{1, 2}, {3, 4}})},
        {str("n"), Number::numberWithInt(7)},
    });
    Ref<TXZonIPCPacket> packet = TXZonIPCPacket::packetWithDictionary(original);
    ASSERT_TRUE(packet);
    const std::string xml = textOf(packet->dataValue());
    EXPECT_THAT(xml, HasSubstr("<key>p</key>\n\t<string>{1.5, 2}</string>"));
    EXPECT_THAT(xml, HasSubstr("<key>r</key>\n\t<string>{3, 4}</string>"));
    EXPECT_THAT(xml, HasSubstr("<key>q</key>\n\t<string>{{1, 2}, {3, 4}}</string>"));
    EXPECT_THAT(xml, HasSubstr("\t\t<key>p</key>\n\t\t<string>{_NSPoint=ff}</string>"));
    EXPECT_THAT(xml, HasSubstr("\t\t<key>q</key>\n\t\t<string>{_NSRect={_NSPoint=ff}{_NSSize=ff}}</string>"));

    Ref<Dictionary> back = packet->dictionaryValue();
    EXPECT_TRUE(back->isEqual(original)) << back->description();
    EXPECT_FALSE(back->objectForKey(str("__TXZonIPCPacketInternalNSValueEncoding__")));
    EXPECT_EQ(back->objectForKey<Value>(str("p"))->pointValue(), makePoint(1.5, 2));
}

TEST(TXZonIPCPacket, UnserialisableDictionaryGivesNilAndLogs)
{
    LogCapture capture;
    // A pointer value is boxed but not geometric; nested geometric values are not converted.
    EXPECT_FALSE(TXZonIPCPacket::packetWithDictionary(
        Dictionary::dictionaryWithObject_forKey(Value::valueWithPointer(nullptr), str("ptr"))));
    EXPECT_THAT(capture.records(), ContainsLine(2, "Unsupported objc type in dictionary, cannot save you"));
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("Dictionary cannot be converted to data type due to ")));
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("'NSValue'")));

    capture.clear();
    EXPECT_FALSE(TXZonIPCPacket::packetWithDictionary(Dictionary::dictionaryWithObject_forKey(
        Array::arrayWithObject(Value::valueWithPoint({1, 2})), str("nested"))));
    EXPECT_THAT(capture.records(), ContainsLine(1, HasSubstr("Dictionary cannot be converted to data type due to ")));
    EXPECT_THAT(capture.records(), testing::Not(ContainsLine(2, testing::_)));
}

TEST(TXZonIPCPacket, DictionaryValueIsEmptyForPayloadsThatAreNotDictionaries)
{
    for (std::string_view payload : {"", "not a property list", "<plist><array/></plist>", "bplist00"})
        EXPECT_EQ(TXZonIPCPacket::packetWithData(Data::dataWithBytes(payload.data(), payload.size()))->dictionaryValue()->count(), 0u)
            << payload;
    EXPECT_EQ(TXZonIPCPacket::initWithData_ofType(nullptr, 8)->dictionaryValue()->count(), 0u);
}

TEST(TXZonIPCPacket, DictionaryValueLeavesUnknownEncodingsAsText)
{
    LogCapture capture;
    Ref<Dictionary> payload = Dictionary::dictionaryWithObjectsAndKeys({
        {str("v"), str("{1, 2}")},
        {str("w"), str("{3, 4}")},
        {str("__TXZonIPCPacketInternalNSValueEncoding__"),
            Dictionary::dictionaryWithObjectsAndKeys({{str("v"), str("{CGPoint=dd}")}, {str("w"), str("{_NSSize=ff}")},
                {str("missing"), str("{_NSPoint=ff}")}})},
    });
    Ref<Data> xml = PropertyListSerialization::dataWithPropertyList(payload, NSPropertyListXMLFormat_v1_0, nullptr);
    Ref<Dictionary> back = TXZonIPCPacket::initWithData_ofType(xml, 8)->dictionaryValue();
    EXPECT_EQ(back->count(), 2u);
    EXPECT_TRUE(back->objectForKey(str("v"))->isEqual(str("{1, 2}")));
    EXPECT_EQ(back->objectForKey<Value>(str("w"))->sizeValue(), makeSize(3, 4));
    EXPECT_THAT(capture.records(), ContainsLine(2, "Unsupported objc type in dictionary, cannot save you"));
}
