#include "platform/system/MachineFactsInternal.h"

#include "platform/system/FileCallsInternal.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <optional>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zon {

namespace {

// Attribute files of sysfs hold one short line.
constexpr size_t kMaxAttributeBytes = 4096;
// Affinity masks are tried up to this many processors before the online count is taken instead.
constexpr int kMaxAffinityProcessors = 1 << 16;

constexpr int kEthernetType = 1; // ARPHRD_ETHER
// The longest hardware address an interface may report (the kernel's MAX_ADDR_LEN).
constexpr size_t kMaxHardwareAddressBytes = 32;

std::string joined(const std::string& folder, const std::string& name) { return folder + "/" + name; }

// An attribute file's text without its line feed.
SystemResult<std::string> readAttribute(const std::string& path)
{
    auto file = openFile(path, O_RDONLY);
    if (!file)
        return file.error();
    auto text = readToEnd(file.value().get(), kMaxAttributeBytes);
    if (!text)
        return text.error();
    std::string value = std::move(text.value());
    while (!value.empty() && (value.back() == '\n' || value.back() == ' '))
        value.pop_back();
    return value;
}

std::optional<int> readIntegerAttribute(const std::string& path)
{
    auto text = readAttribute(path);
    int value = 0;
    if (!text || std::from_chars(text.value().data(), text.value().data() + text.value().size(), value).ec != std::errc())
        return std::nullopt;
    return value;
}

// "02:fc:00:00:00:01".
std::optional<HardwareAddress> parseHardwareAddress(const std::string& text)
{
    HardwareAddress address {};
    if (text.size() != 17)
        return std::nullopt;
    for (size_t byte = 0; byte < address.size(); ++byte) {
        const char* start = text.data() + byte * 3;
        if (byte > 0 && start[-1] != ':')
            return std::nullopt;
        if (std::from_chars(start, start + 2, address[byte], 16).ptr != start + 2)
            return std::nullopt;
    }
    return address;
}

bool isAllZeros(const HardwareAddress& address)
{
    return std::ranges::all_of(address, [](uint8_t byte) { return byte == 0; });
}

SystemResult<HardwareAddress> permanentHardwareAddress(const std::string& name)
{
    if (name.size() >= IFNAMSIZ)
        return SystemError {ENAMETOOLONG, "SIOCETHTOOL", {}};
    FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.isValid())
        return SystemError::last("socket");
    // The request: an ethtool_perm_addr header followed by room for the address it fills in.
    alignas(ethtool_perm_addr) uint8_t request[sizeof(ethtool_perm_addr) + kMaxHardwareAddressBytes] {};
    ethtool_perm_addr header {ETHTOOL_GPERMADDR, kMaxHardwareAddressBytes};
    std::memcpy(request, &header, sizeof header);
    ifreq interface {};
    std::memcpy(interface.ifr_name, name.data(), name.size());
    interface.ifr_data = reinterpret_cast<char*>(request);
    if (::ioctl(socket.get(), SIOCETHTOOL, &interface) != 0)
        return SystemError::last("SIOCETHTOOL");
    std::memcpy(&header, request, sizeof header);
    HardwareAddress address {};
    if (header.size < address.size())
        return SystemError {EINVAL, "SIOCETHTOOL", "no Ethernet address"};
    std::copy_n(request + sizeof header, address.size(), address.begin());
    return address;
}

} // namespace

SystemResult<std::vector<NetworkInterface>> deviceEthernetInterfaces(const std::string& sysfsRoot)
{
    const std::string folder = sysfsRoot + "/class/net";
    auto names = directoryEntries(folder);
    if (!names)
        return names.error();
    std::vector<NetworkInterface> found;
    for (const std::string& name : names.value()) {
        const std::string interface = joined(folder, name);
        if (readIntegerAttribute(joined(interface, "type")) != kEthernetType || !pathStatus(joined(interface, "device")))
            continue;
        if (std::optional<int> index = readIntegerAttribute(joined(interface, "ifindex")))
            found.push_back({name, *index});
    }
    std::ranges::sort(found, {}, &NetworkInterface::index);
    return found;
}

SystemResult<HardwareAddress> interfaceHardwareAddress(const std::string& sysfsRoot, const std::string& name)
{
    if (sysfsRoot == kLiveSysfsRoot) {
        auto permanent = permanentHardwareAddress(name);
        if (permanent && !isAllZeros(permanent.value()))
            return permanent;
    }
    auto text = readAttribute(joined(joined(sysfsRoot + "/class/net", name), "address"));
    if (!text)
        return text.error();
    if (std::optional<HardwareAddress> address = parseHardwareAddress(text.value()))
        return *address;
    return SystemError {EINVAL, "address", "not an Ethernet address: " + text.value()};
}

PowerSource currentPowerSource(const std::string& sysfsRoot)
{
    const std::string folder = sysfsRoot + "/class/power_supply";
    auto names = directoryEntries(folder);
    if (!names)
        return PowerSource::mains;
    bool hasBattery = false;
    for (const std::string& name : names.value()) {
        const std::string supply = joined(folder, name);
        if (auto scope = readAttribute(joined(supply, "scope")); scope && scope.value() == "Device")
            continue;
        auto type = readAttribute(joined(supply, "type"));
        if (!type)
            continue;
        if (type.value() == "Mains" || type.value() == "USB") {
            if (readIntegerAttribute(joined(supply, "online")) == 1)
                return PowerSource::mains;
        } else if (type.value() == "Battery" || type.value() == "UPS") {
            hasBattery = true;
            auto status = readAttribute(joined(supply, "status"));
            if (status && status.value() != "Discharging")
                return PowerSource::mains;
        }
    }
    return hasBattery ? PowerSource::battery : PowerSource::mains;
}

SystemResult<int> schedulableProcessorCount()
{
    for (int processors = CPU_SETSIZE; processors <= kMaxAffinityProcessors; processors *= 2) {
        cpu_set_t* set = CPU_ALLOC(processors);
        if (!set)
            return SystemError {ENOMEM, "CPU_ALLOC", {}};
        const size_t size = CPU_ALLOC_SIZE(processors);
        const int result = ::sched_getaffinity(0, size, set);
        const int error = errno;
        const int count = result == 0 ? CPU_COUNT_S(size, set) : 0;
        CPU_FREE(set);
        if (result == 0)
            return count;
        if (error != EINVAL) // EINVAL: the kernel's mask is larger than ours
            return SystemError {error, "sched_getaffinity", {}};
    }
    return SystemError {EINVAL, "sched_getaffinity", {}};
}

SystemResult<int> onlineProcessorCount()
{
    errno = 0;
    const long count = ::sysconf(_SC_NPROCESSORS_ONLN);
    if (count < 1)
        return SystemError {errno ? errno : EINVAL, "sysconf", {}};
    return static_cast<int>(count);
}

} // namespace zon
