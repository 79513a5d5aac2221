#include "platform/system/MachineFactsInternal.h"

#include "support/ScratchFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace zon;
using test::ScratchFolder;

namespace {

// A sysfs tree in a scratch folder, written the way the kernel lays it out.
class SysfsFixture {
public:
    // An interface below class/net; with a device it gets the "device" link a driver adds.
    void addInterface(const std::string& name, int type, int index, const std::string& address, bool withDevice)
    {
        const std::string folder = "class/net/" + name + "/";
        scratch.write(folder + "type", std::to_string(type) + "\n");
        scratch.write(folder + "ifindex", std::to_string(index) + "\n");
        scratch.write(folder + "address", address + "\n");
        if (withDevice) {
            scratch.makeFolder("devices/" + name);
            std::filesystem::create_directory_symlink(scratch.file("devices/" + name), scratch.file(folder + "device"));
        }
    }
    // A supply below class/power_supply; empty values are left out.
    void addSupply(const std::string& name, const std::string& type, const std::string& scope,
        const std::string& online, const std::string& status)
    {
        const std::string folder = "class/power_supply/" + name + "/";
        scratch.write(folder + "type", type + "\n");
        for (const auto& [attribute, value] : {std::pair {"scope", scope}, {"online", online}, {"status", status}}) {
            if (!value.empty())
                scratch.write(folder + attribute, value + "\n");
        }
    }
    std::string root() const { return scratch.path; }

    ScratchFolder scratch;
};

std::vector<std::string> namesOf(const std::vector<NetworkInterface>& interfaces)
{
    std::vector<std::string> names;
    for (const NetworkInterface& interface : interfaces)
        names.push_back(interface.name);
    return names;
}

} // namespace

TEST(MachineFacts, OnlyDeviceBackedEthernetInterfacesCountInIndexOrder)
{
    SysfsFixture sysfs;
    sysfs.addInterface("lo", 772, 1, "00:00:00:00:00:00", false);
    sysfs.addInterface("ifb0", 1, 2, "62:c4:94:74:0b:8b", false); // virtual: listed first, random address
    sysfs.addInterface("br0", 1, 3, "aa:aa:aa:aa:aa:aa", false);
    sysfs.addInterface("wwan0", 519, 4, "00:00:00:00:00:00", true); // a device, but not Ethernet
    sysfs.addInterface("enp9s0", 1, 9, "00:1b:63:aa:bb:cc", true);
    sysfs.addInterface("eth1", 1, 5, "02:fc:00:00:00:02", true);
    auto interfaces = deviceEthernetInterfaces(sysfs.root());
    ASSERT_TRUE(interfaces);
    EXPECT_THAT(namesOf(interfaces.value()), testing::ElementsAre("eth1", "enp9s0"));

    auto address = interfaceHardwareAddress(sysfs.root(), "enp9s0");
    ASSERT_TRUE(address);
    EXPECT_THAT(address.value(), testing::ElementsAre(0x00, 0x1b, 0x63, 0xaa, 0xbb, 0xcc));
}

TEST(MachineFacts, UnreadableTreesAndAddressesFail)
{
    SysfsFixture sysfs;
    EXPECT_EQ(deviceEthernetInterfaces(sysfs.root()).code(), ENOENT);
    sysfs.scratch.makeFolder("class/net");
    auto none = deviceEthernetInterfaces(sysfs.root());
    ASSERT_TRUE(none);
    EXPECT_TRUE(none.value().empty());

    sysfs.addInterface("eth0", 1, 2, "not an address", true);
    EXPECT_EQ(interfaceHardwareAddress(sysfs.root(), "eth0").code(), EINVAL);
    EXPECT_EQ(interfaceHardwareAddress(sysfs.root(), "eth9").code(), ENOENT);
}

TEST(MachineFacts, TheHostPicksItsDeviceInterfaceOverVirtualOnes)
{
    // The project's machine has ifb0 and ifb1 (lower indexes, no device) beside a virtio eth0.
    auto interfaces = deviceEthernetInterfaces(kLiveSysfsRoot);
    ASSERT_TRUE(interfaces);
    for (const NetworkInterface& interface : interfaces.value()) {
        EXPECT_FALSE(interface.name.starts_with("ifb") || interface.name.starts_with("veth")
            || interface.name.starts_with("docker") || interface.name == "lo") << interface.name;
        EXPECT_TRUE(interfaceHardwareAddress(kLiveSysfsRoot, interface.name)) << interface.name;
    }
    if (std::filesystem::exists("/sys/class/net/eth0/device") && std::filesystem::exists("/sys/class/net/ifb0")) {
        ASSERT_FALSE(interfaces.value().empty());
        EXPECT_EQ(interfaces.value().front().name, "eth0");
    }
}

TEST(MachineFacts, ProcessorCountsAreAtLeastOne)
{
    auto online = onlineProcessorCount();
    auto schedulable = schedulableProcessorCount();
    ASSERT_TRUE(online && schedulable);
    EXPECT_GE(schedulable.value(), 1);
    EXPECT_LE(schedulable.value(), online.value());
}

TEST(MachineFacts, PowerComesFromMainsUnlessASystemBatteryDischarges)
{
    struct Case {
        const char* what;
        std::vector<std::array<std::string, 5>> supplies; // name, type, scope, online, status
        PowerSource expected;
    };
    const Case cases[] = {
        {"no supplies at all", {}, PowerSource::mains},
        {"a desktop with mains only", {{"AC", "Mains", "", "1", ""}}, PowerSource::mains},
        {"a mouse's battery only", {{"hid-mouse", "Battery", "Device", "", "Discharging"}}, PowerSource::mains},
        {"laptop on battery", {{"AC", "Mains", "", "0", ""}, {"BAT0", "Battery", "", "", "Discharging"}}, PowerSource::battery},
        {"laptop plugged in", {{"BAT0", "Battery", "", "", "Discharging"}, {"AC", "Mains", "", "1", ""}}, PowerSource::mains},
        {"USB-C power", {{"BAT0", "Battery", "", "", "Discharging"}, {"ucsi", "USB", "", "1", ""}}, PowerSource::mains},
        {"battery charging, no mains entry", {{"BAT0", "Battery", "", "", "Charging"}}, PowerSource::mains},
        {"battery full", {{"BAT0", "Battery", "System", "", "Full"}}, PowerSource::mains},
        {"battery not charging", {{"BAT0", "Battery", "", "", "Not charging"}}, PowerSource::mains},
        {"a UPS discharging", {{"ups", "UPS", "", "0", "Discharging"}}, PowerSource::battery},
        {"two batteries, one charging", {{"BAT0", "Battery", "", "", "Discharging"}, {"BAT1", "Battery", "", "", "Charging"}}, PowerSource::mains},
        {"battery discharging, a device's charger online",
            {{"BAT0", "Battery", "", "", "Discharging"}, {"dock", "USB", "Device", "1", ""}}, PowerSource::battery},
    };
    for (const Case& each : cases) {
        SysfsFixture sysfs;
        sysfs.scratch.makeFolder("class/power_supply");
        for (const auto& [name, type, scope, online, status] : each.supplies)
            sysfs.addSupply(name, type, scope, online, status);
        EXPECT_EQ(currentPowerSource(sysfs.root()), each.expected) << each.what;
    }
    SysfsFixture missing;
    EXPECT_EQ(currentPowerSource(missing.root()), PowerSource::mains);
}
