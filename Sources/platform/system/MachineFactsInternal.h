#pragma once

// What the kernel says about the machine's hardware: its network interfaces and power supplies
// (read below a sysfs root, so tests hand the readers fixture trees) and the processors this
// process may run on.

#include "platform/system/SystemResult.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace zon {

// The kernel's own sysfs. Only below it do the readers also ask the kernel directly (the
// permanent hardware address), since a fixture tree has no live interfaces behind it.
inline constexpr const char* kLiveSysfsRoot = "/sys";

struct NetworkInterface {
    std::string name;
    int index = 0; // the kernel's ifindex
};

using HardwareAddress = std::array<uint8_t, 6>;

// The Ethernet interfaces (type 1) backed by a device (a "device" link: a physical card or a
// virtio one) below <sysfsRoot>/class/net, by ascending index. Virtual interfaces (bridge, veth,
// ifb, tun, dummy) have no device and are left out: they carry random addresses that change at
// each boot. Fails when the folder cannot be listed.
ZON_EXPORT SystemResult<std::vector<NetworkInterface>> deviceEthernetInterfaces(const std::string& sysfsRoot);

// The interface's burnt-in address (SIOCETHTOOL ETHTOOL_GPERMADDR, which needs no privileges;
// asked of the live kernel only) when it is not all zeros, else its current "address".
ZON_EXPORT SystemResult<HardwareAddress> interfaceHardwareAddress(const std::string& sysfsRoot, const std::string& name);

// Where the machine takes its power from, judged from <sysfsRoot>/class/power_supply. Supplies of
// "Device" scope (a mouse's battery) are ignored. Mains when there is no Battery or UPS supply,
// when a Mains or USB supply is online, or when a battery is not "Discharging"; else battery.
enum class PowerSource { mains, battery };
ZON_EXPORT PowerSource currentPowerSource(const std::string& sysfsRoot);

// How many processors this process may run on (its affinity mask, what nproc answers).
ZON_EXPORT SystemResult<int> schedulableProcessorCount();
// How many processors are online (sysconf), for when the affinity mask cannot be read.
ZON_EXPORT SystemResult<int> onlineProcessorCount();

} // namespace zon
