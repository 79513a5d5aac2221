#include "FinderMetadataTestSupport.h"
#include "support/ScratchFolder.h"

#include "extensions/fileSystem/ZonResourceFork.h"
#include "platform/io/IconFamily.h"
#include "platform/values/Data.h"
#include "platform/values/String.h"
#include "platform/values/URL.h"

#include <gtest/gtest.h>

using namespace zon;
using namespace zon::test;

namespace {

constexpr uint32_t code(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 | uint8_t(text[3]);
}

Ref<String> str(const std::string& utf8) { return String::stringWithUTF8String(utf8); }

struct Info {
    uint16_t flags = 0xEEEE;
    uint32_t type = 0xEEEEEEEE, creator = 0xEEEEEEEE;
};

std::optional<Info> infoOf(const std::string& path)
{
    Info info;
    if (!str(path)->getFinderInfoFlags_type_creator(&info.flags, &info.type, &info.creator))
        return std::nullopt;
    return info;
}

} // namespace

TEST(FinderInfoOperations, AFileWithoutStoredInfoAnswersYesWithZeros)
{
    ScratchFolder folder;
    const std::string file = folder.write("plain", "x");
    auto info = infoOf(file);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->flags, 0);
    EXPECT_EQ(info->type, 0u);
    EXPECT_EQ(info->creator, 0u);
    EXPECT_TRUE(str(file)->getFinderInfoFlags_type_creator(nullptr, nullptr, nullptr));
    EXPECT_FALSE(infoOf(folder.file("missing")));
    EXPECT_FALSE(str(folder.file("missing"))->setFinderInfoFlags_mask_type_creator(1, 1, 0, 0));
    EXPECT_FALSE(URL::URLWithString(std::string_view("http://host/x"))->getFinderInfoFlags_type_creator(nullptr, nullptr, nullptr));
}

// new = ((old AND NOT mask) OR (flags AND mask)) AND NOT 0x0100, for every single-bit mask, no
// mask and all of them; type and creator are always set.
TEST(FinderInfoOperations, FlagsUnderEveryMask)
{
    ScratchFolder folder;
    const std::string file = folder.write("masked", "x");
    Ref<URL> url = URL::fileURLWithPath(str(file));
    std::vector<uint16_t> masks = {0, 0xFFFF, 0x8400};
    for (int bit = 0; bit < 16; ++bit)
        masks.push_back(uint16_t(1u << bit));
    for (uint16_t old : {uint16_t(0x0000), uint16_t(0xFFFF), uint16_t(0x5A5A)}) {
        for (uint16_t mask : masks) {
            writeBytes(sidecarOf(file), appleDouble("Mac OS X        ", {{9, finderInfo("OLDT", "OLDC", old)}}));
            ::removexattr(file.c_str(), "user.org.netatalk.Metadata");
            ASSERT_TRUE(url->setFinderInfoFlags_mask_type_creator(0xA5C3, mask, code("NEWT"), code("NEWC")));
            auto info = infoOf(file);
            ASSERT_TRUE(info);
            EXPECT_EQ(info->flags, ((old & ~mask) | (0xA5C3 & mask)) & ~0x0100) << std::hex << old << " " << mask;
            EXPECT_EQ(info->type, code("NEWT"));
            EXPECT_EQ(info->creator, code("NEWC"));
        }
    }
}

TEST(FinderInfoOperations, FoldersAndNonASCIINames)
{
    ScratchFolder folder;
    const std::string dir = folder.makeFolder("Möbel ♫");
    ASSERT_TRUE(str(dir)->setFinderInfoFlags_mask_type_creator(0x0400, 0x0400, 0, 0));
    EXPECT_TRUE(URL::fileURLWithPath(str(dir))->hasCustomIcon());
    EXPECT_EQ(infoOf(dir)->flags, 0x0400);
    EXPECT_TRUE(std::filesystem::exists(folder.file("._Möbel ♫")));
}

TEST(FinderInfoOperations, IconDataOnAndOff)
{
    ScratchFolder folder;
    const std::string file = folder.write("song.mp3", "x");
    Ref<URL> url = URL::fileURLWithPath(str(file));
    EXPECT_FALSE(url->hasCustomIcon());

    const Bytes custom = encodeIconFamily({{pngIconElementType(32), {0x89, 'P', 'N', 'G'}}});
    {
        Ref<ZonResourceFork> fork = ZonResourceFork::initForWritingAtPath(str(file));
        fork->addData_type_resID_name(Data::dataWithBytes(custom), code("icns"), -16455, str(""));
    }
    // The icon resource alone is not enough: the flag says whether it is used.
    Ref<Data> generic = url->iconFamilyData();
    if (generic)
        EXPECT_NE(Bytes(static_cast<const uint8_t*>(generic->bytes()), static_cast<const uint8_t*>(generic->bytes()) + generic->length()), custom);
    ASSERT_TRUE(url->setFinderInfoFlags_mask_type_creator(0x0400, 0x0400, 0, 0));
    EXPECT_TRUE(url->hasCustomIcon());
    Ref<Data> icon = str(file)->iconFamilyData();
    ASSERT_TRUE(icon);
    EXPECT_EQ(Bytes(static_cast<const uint8_t*>(icon->bytes()), static_cast<const uint8_t*>(icon->bytes()) + icon->length()), custom);

    ASSERT_TRUE(url->setFinderInfoFlags_mask_type_creator(0, 0x0400, 0, 0));
    EXPECT_FALSE(url->hasCustomIcon());
    EXPECT_FALSE(str(folder.file("missing"))->iconFamilyData());
}

TEST(FinderInfoOperations, GenericIconsFromTheIconTheme)
{
    if (!std::filesystem::exists("/usr/share/icons/Adwaita/16x16/mimetypes/text-x-generic.png"))
        GTEST_SKIP() << "the Adwaita icon theme is not installed";
    ScratchFolder folder;
    const std::string file = folder.write("notes.txt", "x");
    Ref<Data> icon = str(file)->iconFamilyData();
    ASSERT_TRUE(icon);
    auto elements = decodeIconFamily({static_cast<const uint8_t*>(icon->bytes()), icon->length()});
    ASSERT_TRUE(elements);
    ASSERT_FALSE(elements->empty());
    EXPECT_EQ((*elements)[0].type, code("icp4"));
    for (const auto& element : *elements)
        EXPECT_EQ(Bytes(element.data.begin(), element.data.begin() + 4), Bytes({0x89, 'P', 'N', 'G'}));
    EXPECT_TRUE(str(folder.makeFolder("dir"))->iconFamilyData());
}
