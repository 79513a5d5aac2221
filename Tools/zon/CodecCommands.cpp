#include "Commands.h"

#include "extensions/NSData+ZonExtensions.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "utilities/data/TXJSONParser.h"
#include "utilities/data/TXZonTLEUtilities.h"

#include <CLI/CLI.hpp>

#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zon::tool {
namespace {

// Reports a failure on standard error and ends the command with an exit code.
[[noreturn]] void fail(const std::string& message, int exitCode = 1)
{
    std::cerr << "zon: " << message << '\n';
    throw CLI::RuntimeError(exitCode);
}

[[noreturn]] void fail(const Exception& exception) { fail(exception.name()->UTF8String() + ": " + exception.reason()->UTF8String()); }

std::string readAll(std::istream& in) { return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()); }

// The whole file in one read into the buffer the data keeps.
Ref<Data> readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in)
        fail("cannot read " + path, 2);
    zon::ByteVector bytes(static_cast<size_t>(in.tellg()));
    in.seekg(0);
    if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
        fail("cannot read " + path, 2);
    return Data::dataWithVector(std::move(bytes));
}

void writeFile(const std::string& path, const Data* data)
{
    std::ofstream out(path, std::ios::binary);
    out.write(static_cast<const char*>(data->bytes()), static_cast<std::streamsize>(data->length()));
    if (!out)
        fail("cannot write " + path, 2);
}

// TEXT when given, else standard input.
std::string argumentOrInput(const std::optional<std::string>& text) { return text ? *text : readAll(std::cin); }

void addHexCommands(CLI::App& app)
{
    auto* hex = app.add_subcommand("hex", "Hexadecimal text of bytes, both ways");
    hex->require_subcommand(1);
    auto text = std::make_shared<std::optional<std::string>>();

    auto* encode = hex->add_subcommand("encode", "Print the bytes of TEXT (or standard input) as upper-case hex");
    encode->add_option("TEXT", *text, "the bytes, as UTF-8 text");
    encode->callback([text] {
        const std::string bytes = argumentOrInput(*text);
        std::cout << Data::dataWithBytes(bytes.data(), bytes.size())->hexStringRepresentation()->UTF8String() << '\n';
    });

    auto* decode = hex->add_subcommand("decode",
        "Write the bytes HEX (or standard input) spells; blanks, tabs and line feeds are ignored");
    decode->add_option("HEX", *text, "the hexadecimal text");
    decode->callback([text] {
        Ref<Data> data = Data::dataFromHexStringRepresentation(String::stringWithUTF8String(argumentOrInput(*text)));
        std::cout.write(static_cast<const char*>(data->bytes()), static_cast<std::streamsize>(data->length()));
    });
}

void addDigestAndGzipCommands(CLI::App& app)
{
    auto input = std::make_shared<std::string>();
    auto output = std::make_shared<std::string>();

    auto* md5 = app.add_subcommand("md5", "Print the MD5 digest of FILE in upper-case hex");
    md5->add_option("FILE", *input, "the file")->required();
    md5->callback([input] { std::cout << readFile(*input)->md5Hash()->UTF8String() << '\n'; });

    for (const bool compress : {true, false}) {
        auto* command = app.add_subcommand(compress ? "gzip" : "gunzip",
            compress ? "Compress IN into the gzip format as OUT" : "Inflate gzip or zlib data IN into OUT");
        command->add_option("IN", *input, "the file to read")->required();
        command->add_option("OUT", *output, "the file to write")->required();
        command->callback([input, output, compress] {
            Ref<Data> source = readFile(*input);
            Ref<Data> result = compress ? source->gzipWithZlib() : source->gunzipWithZlib();
            if (!result)
                fail(std::string("the data could not be ") + (compress ? "compressed" : "inflated"));
            writeFile(*output, result);
        });
    }
}

void addJSONCommand(CLI::App& app)
{
    auto path = std::make_shared<std::string>();
    auto* json = app.add_subcommand("json", "Parse FILE with the library's JSON parser; exit 1 when it fails");
    json->add_option("FILE", *path, "a UTF-8 file")->required();
    json->callback([path] {
        Ref<Data> bytes = readFile(*path);
        Ref<String> text = stringWithUTF8Data(bytes);
        if (!text)
            fail(*path + " is not UTF-8");
        bool success = false;
        Ref<Object> value = TXJSONParser::JsonDecode_withSuccess(text, &success);
        std::cout << (value ? value->description()->UTF8String() : "(null)") << '\n';
        std::cout << "success: " << (success ? "true" : "false") << '\n';
        if (!success)
            throw CLI::RuntimeError(1);
    });
}

void addTLECommands(CLI::App& app)
{
    auto* tle = app.add_subcommand("tle", "TLE fields: type, compressed length, value");
    tle->require_subcommand(1);

    struct Field {
        int32_t type = 0;
        std::optional<std::string> string, narrow, data;
        std::optional<uint64_t> integer, longValue;
        std::optional<int> byte;
        std::optional<bool> boolean;
        bool use4 = false, use8 = false, nullTerminate = false;
    };
    auto field = std::make_shared<Field>();
    auto* encode = tle->add_subcommand("encode", "Print one field in hex");
    encode->add_option("--type", field->type, "the type code (its low 8 bits are written)")->required();
    auto* kinds = encode->add_option_group("value", "the value, one of");
    kinds->add_option("--string", field->string, "a string, in the device string encoding");
    kinds->add_option("--narrow", field->narrow, "a string, one byte per character");
    kinds->add_option("--int", field->integer, "an unsigned 32-bit integer")->check(CLI::Range(uint64_t {0}, uint64_t {UINT32_MAX}));
    kinds->add_option("--long", field->longValue, "an unsigned 64-bit integer");
    kinds->add_option("--byte", field->byte, "one byte")->check(CLI::Range(0, 255));
    kinds->add_option("--bool", field->boolean, "true or false");
    kinds->add_option("--data", field->data, "raw bytes in hex");
    kinds->require_option(1);
    encode->add_flag("--use4", field->use4, "always 4 bytes for --int");
    encode->add_flag("--use8", field->use8, "always 8 bytes for --long");
    encode->add_flag("--null-terminate", field->nullTerminate, "terminate --string and --narrow");
    encode->callback([field] {
        using TLE = TXZonTLEUtilities;
        Ref<MutableData> buffer = MutableData::data();
        const Field& f = *field;
        try {
            if (f.string)
                TLE::writeStringFieldToBuffer_ofType_withValue_andNullTerminate(buffer, f.type, String::stringWithUTF8String(*f.string), f.nullTerminate);
            else if (f.narrow) {
                Ref<String> text = String::stringWithUTF8String(*f.narrow);
                TLE::writeDataFieldToBuffer_ofType_withValue_atIndex_ofLength_andNullTerminate(buffer, f.type, text, 0,
                    static_cast<uint32_t>(text ? text->length() : 0), f.nullTerminate);
            } else if (f.integer)
                TLE::writeIntegerFieldToBuffer_ofType_withValue_andUse4Bytes(buffer, f.type, static_cast<uint32_t>(*f.integer), f.use4);
            else if (f.longValue)
                TLE::writeLongFieldToBuffer_ofType_withValue_andUse8Bytes(buffer, f.type, *f.longValue, f.use8);
            else if (f.byte)
                TLE::writeByteFieldToBuffer_ofType_withValue(buffer, f.type, static_cast<uint8_t>(*f.byte));
            else if (f.boolean)
                TLE::writeBooleanFieldToBuffer_ofType_withValue(buffer, f.type, *f.boolean);
            else {
                Ref<Data> bytes = Data::dataFromHexStringRepresentation(String::stringWithUTF8String(*f.data));
                TLE::writeDataFieldToBuffer_ofType_withData_ofLength(buffer, f.type, bytes->bytes(), static_cast<uint32_t>(bytes->length()));
            }
        } catch (const Exception& exception) {
            // A writer that raises leaves what it wrote; show it with the reason.
            std::cout << buffer->hexStringRepresentation()->UTF8String() << '\n';
            fail(exception);
        }
        std::cout << buffer->hexStringRepresentation()->UTF8String() << '\n';
    });

    auto hex = std::make_shared<std::string>();
    auto* length = tle->add_subcommand("decode-length", "Read the compressed integer at the start of HEX");
    length->add_option("HEX", *hex, "the bytes in hex")->required();
    length->callback([hex] {
        Ref<Data> bytes = Data::dataFromHexStringRepresentation(String::stringWithUTF8String(*hex));
        try {
            Ref<Number> value;
            const int32_t consumed = TXZonTLEUtilities::readCompressedIntFrom_atLocation_into(bytes, 0, &value);
            std::cout << "value: " << value->int32Value() << "\nbytes: " << consumed << '\n';
        } catch (const Exception& exception) {
            fail(exception);
        }
    });
}

} // namespace

void addCodecCommands(CLI::App& app)
{
    addHexCommands(app);
    addDigestAndGzipCommands(app);
    addJSONCommand(app);
    addTLECommands(app);
}

} // namespace zon::tool
