#include "systemManagement/TXZonSystemUtilities.h"

#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "systemManagement/TXZonSystemUtilitiesInternal.h"

#include "support/LogCapture.h"
#include "support/PeerProcess.h"
#include "support/ScratchFolder.h"
#include "support/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <vector>

using namespace zon;
using test::ScratchFolder;
using test::ScopedEnvironment;
using test::str;
using testing::HasSubstr;

namespace {

constexpr int kSkipped = 77;

// Points the look-ups at a fixture tree for one test.
class SysfsAt {
public:
    explicit SysfsAt(const std::string& root) { setSysfsRootForTesting(root); }
    ~SysfsAt() { setSysfsRootForTesting(""); }
};

TXZonSystemUtilities* machine() { return TXZonSystemUtilities::sharedSystem(); }

void addEthernetDevice(const ScratchFolder& sysfs, const std::string& name, int index, const std::string& address)
{
    const std::string folder = "class/net/" + name + "/";
    sysfs.write(folder + "type", "1\n");
    sysfs.write(folder + "ifindex", std::to_string(index) + "\n");
    sysfs.write(folder + "address", address + "\n");
    std::filesystem::create_directory_symlink(sysfs.makeFolder("devices/" + name), sysfs.file(folder + "device"));
}

// Runs body in a forked child; the child's exit status is body's answer, kSkipped to skip.
int inChild(const std::function<int()>& body)
{
    test::PeerProcess child;
    if (!child.runInChild(body))
        return -1;
    const int status = child.wait();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

TEST(TXZonSystemUtilities, UniqueIDMergesThePrefixByOrWithTheUserID)
{
    EXPECT_EQ(composeUniqueSystemID(0x001B63AABBCCULL, 501, 0), 0x01F5001B63AABBCCULL);
    EXPECT_EQ(composeUniqueSystemID(0x001B63AABBCCULL, 501, 0x80), 0x81F5001B63AABBCCULL);
    // Only the user ID's low 16 bits count.
    EXPECT_EQ(composeUniqueSystemID(0, 0x123456, 0), 0x3456000000000000ULL);
    EXPECT_EQ(composeUniqueSystemID(0, 0, 0xFF), 0xFF00000000000000ULL);
}

TEST(TXZonSystemUtilities, TheMacAddressOfAFixtureTreeAndItsID)
{
    ScratchFolder sysfs;
    addEthernetDevice(sysfs, "enp3s0", 3, "00:1b:63:aa:bb:cc");
    sysfs.write("class/net/veth9/type", "1\n"); // virtual, lower index
    sysfs.write("class/net/veth9/ifindex", "2\n");
    sysfs.write("class/net/veth9/address", "de:ad:be:ef:00:01\n");
    SysfsAt at(sysfs.path);
    EXPECT_EQ(machine()->primaryMacAddress()->UTF8String(), "00:1b:63:aa:bb:cc");
    EXPECT_EQ(machine()->primaryMacAddressNumber()->unsignedLongLongValue(), 0x001B63AABBCCULL);

    LogCapture capture;
    const uint64_t euid = ::geteuid() & 0xFFFF;
    EXPECT_EQ(machine()->uniqueID()->unsignedLongLongValue(), euid << 48 | 0x001B63AABBCCULL);
    EXPECT_EQ(machine()->uniqueIDWithPrefix(0x80)->unsignedLongLongValue(), (0x8000 | euid) << 48 | 0x001B63AABBCCULL);
    EXPECT_THAT(capture.records(), ContainsLine(5, "Generated Unique System ID " + std::to_string(euid << 48 | 0x001B63AABBCCULL)));
}

TEST(TXZonSystemUtilities, LookUpFailuresLogUnderMacAddrAndAnswerNil)
{
    ScratchFolder sysfs;
    LogCapture capture;
    {
        // No class/net at all: nothing to match against, and the listing fails.
        SysfsAt at(sysfs.path);
        ZonEthernetInterfaceIterator interfaces;
        EXPECT_EQ(FindEthernetInterfaces(&interfaces), ENOENT);
        EXPECT_FALSE(machine()->primaryMacAddress());
        EXPECT_EQ(machine()->uniqueID()->unsignedLongLongValue(), uint64_t(::geteuid() & 0xFFFF) << 48);
    }
    EXPECT_THAT(capture.records(), ContainsLine(1, "IOServiceMatching returned a NULL dictionary."));
    EXPECT_THAT(capture.records(), ContainsLine(1, "IOServiceGetMatchingServices returned 0x00000002"));
    for (const auto& record : capture.records()) {
        if (record.level == 1) {
            EXPECT_EQ(record.category, "MacAddr");
            EXPECT_THAT(record.file, HasSubstr("Sources/systemManagement/TXZonSystemUtilities"));
        }
    }

    // Nothing matches: GetMACAddress answers 5 and clears the buffer.
    capture.clear();
    sysfs.makeFolder("class/net");
    SysfsAt at(sysfs.path);
    ZonEthernetInterfaceIterator interfaces;
    EXPECT_EQ(FindEthernetInterfaces(&interfaces), 0);
    uint8_t address[6];
    std::memset(address, 0xEE, sizeof address);
    EXPECT_EQ(GetMACAddress(&interfaces, address), 5);
    EXPECT_THAT(address, testing::Each(0));
    EXPECT_FALSE(machine()->primaryMacAddressNumber());
    EXPECT_TRUE(capture.records().empty());

    // The matched interface's address cannot be read.
    addEthernetDevice(sysfs, "eth0", 2, "00:11:22:33:44:55");
    std::filesystem::remove(sysfs.file("class/net/eth0/address"));
    EXPECT_EQ(FindEthernetInterfaces(&interfaces), 0);
    EXPECT_EQ(GetMACAddress(&interfaces, address), ENOENT);
    EXPECT_FALSE(machine()->primaryMacAddress());
    EXPECT_THAT(capture.records(), ContainsLine(1, "IORegistryEntryGetParentEntry returned 0x00000002"));
}

TEST(TXZonSystemUtilities, ANetworkNamespaceWithoutDevicesHasNoAddress)
{
    // A private network namespace, with sysfs mounted again so that it shows that namespace.
    const int result = inChild([] {
        if (::unshare(CLONE_NEWNET | CLONE_NEWNS) != 0)
            return kSkipped;
        if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
            || ::mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
            return kSkipped;
        const uint64_t idOfUserAlone = uint64_t(::geteuid() & 0xFFFF) << 48;
        auto onlyTheUser = [&] {
            return !machine()->primaryMacAddress() && machine()->uniqueID()->unsignedLongLongValue() == idOfUserAlone;
        };
        if (!onlyTheUser())
            return 1; // only lo
        // Every kind of virtual interface this kernel offers (the dummy driver may be missing).
        int made = 0;
        for (const char* command : {"ip link add zondummy0 type dummy", "ip link add zonveth0 type veth peer name zonveth1",
                 "ip link add zonbr0 type bridge", "ip link add zonifb0 type ifb", "ip tuntap add zontap0 mode tap"}) {
            made += std::system((std::string(command) + " 2>/dev/null").c_str()) == 0;
        }
        if (made == 0)
            return 10; // lo alone was checked
        return onlyTheUser() ? 0 : 2;
    });
    if (result == kSkipped)
        GTEST_SKIP() << "needs root to unshare a network namespace and mount sysfs";
    if (result == 10)
        GTEST_SKIP() << "lo alone gave no address; no virtual interface could be made here";
    EXPECT_EQ(result, 0) << (result == 1 ? "lo alone gave an address" : "a virtual interface was chosen");
}

TEST(TXZonSystemUtilities, CoresFollowTheAffinityMask)
{
    EXPECT_GE(machine()->numberOfCores()->intValue(), 1);
    EXPECT_EQ(inChild([] {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(0, &one);
        if (::sched_setaffinity(0, sizeof one, &one) != 0)
            return 2;
        return machine()->numberOfCores()->intValue() == 1 ? 0 : 1;
    }), 0);
}

TEST(TXZonSystemUtilities, PowerStatusReadsTheSuppliesTree)
{
    ScratchFolder sysfs;
    SysfsAt at(sysfs.path);
    EXPECT_EQ(machine()->powerStatus(), 1);
    sysfs.write("class/power_supply/BAT0/type", "Battery\n");
    sysfs.write("class/power_supply/BAT0/status", "Discharging\n");
    EXPECT_EQ(machine()->powerStatus(), 2);
    sysfs.write("class/power_supply/AC/type", "Mains\n");
    sysfs.write("class/power_supply/AC/online", "1\n");
    EXPECT_EQ(machine()->powerStatus(), 1);
}

TEST(TXZonSystemUtilities, UserIDsAreTheProcesss)
{
    EXPECT_EQ(machine()->currentUserUID()->intValue(), static_cast<int>(::getuid()));
    EXPECT_EQ(machine()->currentUserEUID()->intValue(), static_cast<int>(::geteuid()));
    EXPECT_STREQ(machine()->currentUserEUID()->objCType(), "i");
}

TEST(TXZonSystemUtilities, ResidentMemoryGrowsWithTouchedPages)
{
    const uint64_t before = ZonResidentMemoryUsageBytes();
    ASSERT_GT(before, 0u);
    constexpr size_t kTouched = 64u << 20;
    std::vector<char> block(kTouched);
    for (size_t offset = 0; offset < kTouched; offset += 4096)
        block[offset] = 1;
    const uint64_t after = ZonResidentMemoryUsageBytes();
    EXPECT_GE(after, before + kTouched);
    EXPECT_EQ(ZonResidentMemoryUsage(), ZonResidentMemoryUsageBytes() >> 20);
    EXPECT_GE(machine()->currentApplicationResidentMemoryUsage()->longLongValue(), 64);
    EXPECT_STREQ(machine()->currentApplicationResidentMemoryUsage()->objCType(), "q");
}

TEST(TXZonSystemUtilities, CaseTestAlwaysRunsInTheTemporaryFolder)
{
    ScratchFolder temporary;
    ScopedEnvironment environment;
    environment.set("TMPDIR", temporary.path + "/");
    // Ext4 and tmpfs tell the names apart, whatever path is asked about.
    EXPECT_TRUE(machine()->isFileSystemCaseSensitiveAtPath(str("/nowhere").get())->boolValue());
    EXPECT_TRUE(machine()->isFileSystemCaseSensitive()->boolValue());
    EXPECT_FALSE(std::filesystem::exists(temporary.file("ZON_TEMP_DTS")));

    // A lower-case folder left there makes any file system look case-insensitive.
    temporary.makeFolder("zon_temp_dts");
    EXPECT_FALSE(machine()->isFileSystemCaseSensitiveAtPath(nullptr)->boolValue());
    EXPECT_FALSE(std::filesystem::exists(temporary.file("ZON_TEMP_DTS")));

    // A missing temporary folder is made on the way.
    environment.set("TMPDIR", temporary.path + "/made/later/");
    EXPECT_TRUE(machine()->isFileSystemCaseSensitive()->boolValue());
    EXPECT_TRUE(std::filesystem::is_directory(temporary.file("made/later")));
}
