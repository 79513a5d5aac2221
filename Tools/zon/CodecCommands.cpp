#include "Commands.h"

#include "CommandSupport.h"
#include "Files.h"
#include "StreamCodecs.h"

#include "extensions/NSData+ZonExtensions.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/values/Exception.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "utilities/data/TXJSONParser.h"
#include "utilities/data/TXZonTLEUtilities.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

namespace zon::tool {
namespace {

constexpr size_t kStandardInputLimit = size_t(64) << 20;

[[noreturn]] void failWith(const Exception& exception)
{
    fail(exception.name()->UTF8String() + ": " + exception.reason()->UTF8String());
}

// TEXT when given, else standard input (at most kStandardInputLimit bytes).
std::string argumentOrInput(const std::optional<std::string>& text)
{
    if (text)
        return *text;
    auto input = readToEnd(STDIN_FILENO, kStandardInputLimit);
    if (!input.ok() && input.code() == EFBIG)
        fail("standard input is longer than " + std::to_string(kStandardInputLimit >> 20) + " MiB", kExitFileError);
    if (!input)
        fail("cannot read standard input: " + input.error().text(), kExitFileError);
    return std::move(input).value();
}

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
        OutputFile out("-");
        out.write(*data);
    });
}

void addDigestAndGzipCommands(CLI::App& app)
{
    auto input = std::make_shared<std::string>();
    auto output = std::make_shared<std::string>();

    auto* md5 = app.add_subcommand("md5",
        "Print the MD5 digest of FILE in upper-case hex; FILE may be a FIFO, read as it comes");
    md5->add_option("FILE", *input, "the file")->required();
    md5->callback([input] { std::cout << md5OfStream(openStream(*input), *input) << '\n'; });

    for (const bool compress : {true, false}) {
        auto* command = app.add_subcommand(compress ? "gzip" : "gunzip",
            compress ? "Compress IN into the gzip format as OUT"
                     : "Inflate gzip or zlib data IN into OUT; data cut short is an error");
        command->footer("IN may be a FIFO and OUT a device or a FIFO: both are streamed, in bounded memory. A\n"
                        "regular OUT is put in place only when complete: a failure leaves no partial file,\n"
                        "and an OUT that was there before stays as it was.");
        command->add_option("IN", *input, "the file to read")->required();
        command->add_option("OUT", *output, "the file to write (- for standard output)")->required();
        command->callback([input, output, compress] {
            FileDescriptor in = openStream(*input);
            OutputFile out(*output);
            compress ? gzipStream(in, *input, out) : gunzipStream(in, *input, out);
            out.commit();
        });
    }
}

void addJSONCommand(CLI::App& app)
{
    auto path = std::make_shared<std::string>();
    auto* json = app.add_subcommand("json", "Parse FILE (a regular file) with the library's JSON parser; exit 1 when it fails");
    json->add_option("FILE", *path, "a UTF-8 file")->required();
    json->callback([path] {
        Ref<Data> bytes = readWholeFile(*path);
        Ref<String> text = stringWithUTF8Data(bytes);
        if (!text)
            fail(*path + " is not UTF-8");
        bool success = false;
        Ref<Object> value = TXJSONParser::JsonDecode_withSuccess(text, &success);
        std::cout << (value ? printableDescription(value) : "(null)") << '\n';
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
    kinds->add_option("--string", field->string, "a string, in the device string encoding")->check(validUTF8());
    kinds->add_option("--narrow", field->narrow, "a string, one byte per character")->check(validUTF8());
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
            std::cout << printable(*buffer->hexStringRepresentation()) << '\n';
            failWith(exception);
        }
        std::cout << printable(*buffer->hexStringRepresentation()) << '\n';
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
            failWith(exception);
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
