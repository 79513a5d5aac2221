// Python's plistlib as a peer: it must read every document we write, and we must read back what it
// writes (XML and binary) as the values we started from. The corpus is generated here: nested
// containers of every kind of value, integers over the whole 64-bit range, reals of every
// magnitude, strings from many scripts. plistlib cannot carry control characters or carriage
// returns in XML, so the corpus leaves them out; values are compared, not bytes.

#include "platform/io/PropertyListSerialization.h"
#include "platform/values/Array.h"
#include "platform/values/Data.h"
#include "platform/values/Date.h"
#include "platform/values/Dictionary.h"
#include "platform/values/Error.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>

using namespace zon;
namespace fs = std::filesystem;

namespace {

class CorpusGenerator {
public:
    explicit CorpusGenerator(uint64_t seed) : random_(seed) {}

    Ref<Object> document() { return container(0); }

private:
    Ref<Object> container(int depth)
    {
        const size_t count = pick(0, 8);
        if (pick(0, 1)) {
            Ref<MutableArray> array = MutableArray::array();
            for (size_t i = 0; i < count; ++i)
                array->addObject(value(depth + 1));
            return array;
        }
        Ref<MutableDictionary> dictionary = MutableDictionary::dictionary();
        for (size_t i = 0; i < count; ++i)
            dictionary->setObject_forKey(value(depth + 1), text());
        return dictionary;
    }

    Ref<Object> value(int depth)
    {
        switch (pick(0, depth < 6 ? 9 : 7)) {
        case 0:
            return text();
        case 1:
            return integer();
        case 2:
            return real();
        case 3:
            return pick(0, 1) ? Number::yes() : Number::no();
        case 4: {
            // Whole seconds from year 1 to year 9999 (plistlib's range).
            const double seconds = static_cast<double>(pick(0, 315537897599)) - 63113904000.0;
            return Date::dateWithTimeIntervalSinceReferenceDate(seconds);
        }
        case 5: {
            ByteVector bytes(pick(0, 200));
            for (uint8_t& byte : bytes)
                byte = static_cast<uint8_t>(random_());
            return Data::dataWithVector(std::move(bytes));
        }
        case 6:
            return Number::numberWithFloat(static_cast<float>(real()->doubleValue()));
        case 7:
            return text();
        default:
            return container(depth);
        }
    }

    Ref<String> text()
    {
        static const char* const pieces[] = {"a", "Z", "0", " ", "\t", "\n", "&", "<", ">", "]]>", "\"", "'", "é",
            "ß", "Ω", "日本", "😀", "\xF0\x9D\x84\x9E", "&amp;", "key", "<key>", "\xE2\x80\xA8"};
        std::string utf8;
        for (size_t i = pick(0, 12); i > 0; --i)
            utf8 += pieces[pick(0, std::size(pieces) - 1)];
        return String::stringWithUTF8String(utf8);
    }

    Ref<Number> integer()
    {
        switch (pick(0, 4)) {
        case 0:
            return Number::numberWithUnsignedLongLong(random_() | (uint64_t {1} << 63));
        case 1:
            return Number::numberWithLongLong(static_cast<long long>(random_()));
        case 2:
            return Number::numberWithLongLong(static_cast<long long>(pick(0, 2000)) - 1000);
        case 3:
            return Number::numberWithUnsignedLongLong(UINT64_MAX);
        default:
            return Number::numberWithLongLong(INT64_MIN);
        }
    }

    Ref<Number> real()
    {
        static const double specials[] = {0.0, -0.0, 0.1, 1e308, -1e-308, 5e-324, 1.0 / 3, INFINITY, -INFINITY, 123456789.0};
        if (pick(0, 1))
            return Number::numberWithDouble(specials[pick(0, std::size(specials) - 1)]);
        double value;
        do
            value = std::bit_cast<double>(random_());
        while (!std::isfinite(value));
        return Number::numberWithDouble(value);
    }

    uint64_t pick(uint64_t low, uint64_t high) { return std::uniform_int_distribution<uint64_t>(low, high)(random_); }

    std::mt19937_64 random_;
};

std::string readFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

Ref<Object> readPropertyList(const fs::path& path, PropertyListFormat expectedFormat)
{
    const std::string bytes = readFile(path);
    Ref<Error> error;
    PropertyListFormat format {};
    Ref<Object> plist = PropertyListSerialization::propertyListWithData(
        Data::dataWithBytes(bytes.data(), bytes.size()), &error, &format);
    EXPECT_TRUE(plist) << path << ": " << (error ? error->localizedDescription() : nullptr);
    EXPECT_EQ(format, expectedFormat) << path;
    return plist;
}

} // namespace

TEST(PropertyListInterop, PlistlibReadsWhatWeWriteAndWeReadWhatItWrites)
{
    if (std::system("python3 -c 'import plistlib' >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "python3 with plistlib is not available";

    const fs::path directory = fs::temp_directory_path() / ("zon-plistlib-" + std::to_string(::getpid()));
    fs::create_directories(directory);
    constexpr int kDocuments = 60;
    std::vector<Ref<Object>> corpus;
    CorpusGenerator generator(20240229);
    for (int i = 0; i < kDocuments; ++i) {
        corpus.push_back(generator.document());
        Ref<Data> xml = PropertyListSerialization::dataWithPropertyList(corpus.back(), NSPropertyListXMLFormat_v1_0, nullptr);
        ASSERT_TRUE(xml);
        std::ofstream(directory / (std::to_string(i) + ".ours.xml"), std::ios::binary)
            .write(static_cast<const char*>(xml->bytes()), static_cast<std::streamsize>(xml->length()));
    }

    const std::string command = "python3 " ZON_PLISTLIB_PEER " " + directory.string();
    ASSERT_EQ(std::system(command.c_str()), 0) << "plistlib could not read what we wrote";

    for (int i = 0; i < kDocuments; ++i) {
        SCOPED_TRACE("document " + std::to_string(i));
        Ref<Object> fromXML = readPropertyList(directory / (std::to_string(i) + ".py.xml"), NSPropertyListXMLFormat_v1_0);
        Ref<Object> fromBinary =
            readPropertyList(directory / (std::to_string(i) + ".py.bin"), NSPropertyListBinaryFormat_v1_0);
        EXPECT_TRUE(objectsEqual(fromXML, corpus[i]));
        EXPECT_TRUE(objectsEqual(fromBinary, corpus[i]));
    }
    fs::remove_all(directory);
}
