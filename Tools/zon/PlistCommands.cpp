#include "Commands.h"

#include "CommandSupport.h"
#include "Files.h"

#include "platform/io/PropertyListSerialization.h"
#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonIPCPacket.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <optional>

namespace zon::tool {
namespace {

const char* formatName(PropertyListFormat format)
{
    return format == NSPropertyListBinaryFormat_v1_0 ? "binary" : "XML";
}

Ref<Object> readPropertyList(const std::string& path, PropertyListFormat* format = nullptr)
{
    Ref<Error> error;
    Ref<Object> plist = PropertyListSerialization::propertyListWithData(readWholeFile(path), &error, format);
    if (!plist)
        fail(path + ": " + error->localizedDescription()->UTF8String());
    return plist;
}

void convert(const std::string& in, const std::string& out)
{
    PropertyListFormat format {};
    Ref<Object> plist = readPropertyList(in, &format);
    Ref<Error> error;
    Ref<Data> xml = PropertyListSerialization::dataWithPropertyList(plist, NSPropertyListXMLFormat_v1_0, &error);
    if (!xml)
        fail(error->localizedDescription()->UTF8String());
    OutputFile output(out);
    output.write(*xml);
    output.commit();
    if (!output.isStandardOutput())
        std::cout << "converted " << in << " (" << formatName(format) << ") to " << out << " (XML, " << xml->length()
                  << " bytes)\n";
}

std::string hexOf(const Data* data)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (uint8_t byte : data->span()) {
        hex.push_back(kDigits[byte >> 4]);
        hex.push_back(kDigits[byte & 0xF]);
    }
    return hex;
}

// Hex digits with any white space between them.
Ref<Data> dataOfHex(std::string_view text)
{
    zon::ByteVector bytes;
    int pending = -1;
    for (char c : text) {
        if (std::isspace(static_cast<unsigned char>(c)))
            continue;
        const int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
            : (c >= 'a' && c <= 'f')                                    ? c - 'a' + 10
            : (c >= 'A' && c <= 'F')                                    ? c - 'A' + 10
                                                                        : -1;
        if (digit < 0)
            fail("not a hexadecimal digit: '" + std::string(1, c) + "'");
        if (pending < 0) {
            pending = digit;
        } else {
            bytes.push_back(static_cast<uint8_t>(pending << 4 | digit));
            pending = -1;
        }
    }
    if (pending >= 0)
        fail("odd number of hexadecimal digits");
    return Data::dataWithVector(std::move(bytes));
}

struct EncodeOptions {
    std::optional<std::string> string;
    std::optional<std::string> dictionaryFile;
    std::optional<std::string> dataFile;
};

void encode(const EncodeOptions& options)
{
    Ref<TXZonIPCPacket> packet;
    if (options.string) {
        packet = TXZonIPCPacket::packetWithString(String::stringWithUTF8String(*options.string));
        if (!packet)
            fail("the string cannot be sent");
    } else if (options.dictionaryFile) {
        Ref<Object> plist = readPropertyList(*options.dictionaryFile);
        auto* dictionary = dynamicCast<Dictionary>(plist.get());
        if (!dictionary)
            fail(*options.dictionaryFile + ": the property list is not a dictionary");
        packet = TXZonIPCPacket::packetWithDictionary(dictionary);
        if (!packet)
            fail("the dictionary cannot be sent");
    } else {
        packet = TXZonIPCPacket::packetWithData(readWholeFile(*options.dataFile));
    }
    std::cout << printableDescription(packet) << '\n' << printable(hexOf(packet->ZONIPCPacketData())) << '\n';
}

void decode(const std::string& hex)
{
    Ref<TXZonIPCPacket> packet = TXZonIPCPacket::packetWithZONIPCPacketData(dataOfHex(hex));
    std::cout << printableDescription(packet) << '\n';
    switch (packet->type()) {
    case TXZonIPCPacket::kDictionary:
        std::cout << printableDescription(packet->dictionaryValue()) << '\n';
        break;
    case TXZonIPCPacket::kString:
    case TXZonIPCPacket::kConnectRequest:
    case TXZonIPCPacket::kConnectionAck:
    case TXZonIPCPacket::kConnectionNak:
    case TXZonIPCPacket::kDisconnect: {
        Ref<String> text = packet->stringValue();
        std::cout << (text ? "\"" + printable(*text) + "\"" : std::string("(not UTF-8)")) << '\n';
        break;
    }
    default:
        if (packet->dataValue() && packet->dataValue()->length() > 0)
            std::cout << printableDescription(packet->dataValue()) << '\n';
    }
}

} // namespace

void addPlistCommands(CLI::App& app)
{
    auto* plist = app.add_subcommand("plist", "Property lists");
    plist->require_subcommand(1);
    auto paths = std::make_shared<std::pair<std::string, std::string>>();
    auto* convertCommand = plist->add_subcommand("convert", "Read a property list (XML or binary) and write it as XML");
    convertCommand->add_option("IN", paths->first, "the property list to read")->required();
    convertCommand->add_option("OUT", paths->second, "where to write the XML (- for standard output)")->required();
    convertCommand->callback([paths] { convert(paths->first, paths->second); });

    auto* packet = app.add_subcommand("packet", "IPC packets");
    packet->require_subcommand(1);
    auto options = std::make_shared<EncodeOptions>();
    auto* encodeCommand = packet->add_subcommand("encode", "Build a packet and print it with its wire bytes in hex");
    auto* payload = encodeCommand->add_option_group("payload", "what the packet carries");
    payload->add_option("--string", options->string, "a string (type 9)")->check(validUTF8());
    payload->add_option("--dict", options->dictionaryFile, "a property-list file holding a dictionary (type 8)");
    payload->add_option("--data", options->dataFile, "a file of raw bytes (type 7)");
    payload->require_option(1);
    encodeCommand->callback([options] { encode(*options); });

    auto hex = std::make_shared<std::string>();
    auto* decodeCommand = packet->add_subcommand("decode", "Parse wire bytes given in hex and print the packet");
    decodeCommand->add_option("HEX", *hex, "the wire bytes in hexadecimal")->required();
    decodeCommand->callback([hex] { decode(*hex); });
}

} // namespace zon::tool
