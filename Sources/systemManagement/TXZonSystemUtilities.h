#pragma once

#include "platform/Export.h"
#include "platform/runtime/Object.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zon {

class Number;
class String;

// Facts about the machine, the user and the running program. Every query is answered afresh from
// the kernel; nothing is cached and no operation raises: failures give nil, 1 or 0.
//
// The unique system ID is the primary Ethernet address as a 48-bit big-endian number in bits
// 0-47, and in bits 48-63 the low 16 bits of (prefix << 8 | the effective user ID's low 16
// bits): the prefix is merged by OR with the user ID's high byte, not placed above it. Without an
// address the low 48 bits are 0.
//
// The primary interface is the Ethernet interface backed by a device (physical or virtio) with
// the lowest index; its permanent address when it has one, else its current address. Virtual
// interfaces (bridge, veth, ifb, tun, dummy) are never chosen. Operations may run on any thread.
class ZON_EXPORT TXZonSystemUtilities final : public Object {
    ZON_OBJECT(TXZonSystemUtilities, Object)
public:
    static TXZonSystemUtilities* sharedSystem();

    // ---- TXZonSystemUtilities(HardwareInformation) -----------------------------------------------
    // Unsigned 64-bit; each logs "Generated Unique System ID %llu" at level 5.
    Ref<Number> uniqueID() const;
    Ref<Number> uniqueIDWithPrefix(uint8_t prefix) const;
    // "%02x:%02x:%02x:%02x:%02x:%02x", nil without a primary interface.
    Ref<String> primaryMacAddress() const;
    // Unsigned 64-bit, the address as a 48-bit big-endian number; nil without a primary interface.
    Ref<Number> primaryMacAddressNumber() const;
    // Int: the processors this process may run on (what nproc answers), the online count when
    // the affinity mask cannot be read, 1 when neither can.
    Ref<Number> numberOfCores() const;
    // 1 on mains power or with no battery, 2 on battery.
    int powerStatus() const;

    // ---- TXZonSystemUtilities(UserInformation) ---------------------------------------------------
    // Signed 32-bit: getuid() and geteuid().
    Ref<Number> currentUserUID() const;
    Ref<Number> currentUserEUID() const;

    // ---- TXZonSystemUtilities(AppInformation) ----------------------------------------------------
    Ref<Number> isFileSystemCaseSensitive() const;
    // Boolean. path is not used: the test always makes "ZON_TEMP_DTS" in the user's temporary
    // folder and asks whether "zon_temp_dts" is there, so two concurrent tests disturb each other.
    Ref<Number> isFileSystemCaseSensitiveAtPath(const String* path) const;
    // Signed 64-bit: the resident memory in whole mebibytes.
    Ref<Number> currentApplicationResidentMemoryUsage() const;

private:
    TXZonSystemUtilities() = default;
};

} // namespace zon

// The interfaces FindEthernetInterfaces matched, in the order GetMACAddress reads them.
struct ZonEthernetInterfaceIterator {
    std::string sysfsRoot;
    std::vector<std::string> interfaces;
};

// The two steps of the MAC address look-up; each answers a result code, 0 on success. The first
// matches the primary interface (none, or one); a listing failure is logged under the category
// "MacAddr" and answered as its errno. The second clears the 6-byte buffer and copies each matched
// interface's address into it: 5 when nothing matched, else the result of the last read.
ZON_EXPORT int FindEthernetInterfaces(ZonEthernetInterfaceIterator* matchingServices);
ZON_EXPORT int GetMACAddress(ZonEthernetInterfaceIterator* interfaces, uint8_t macAddress[6]);

// The resident memory of the calling process: resident pages (/proc/self/statm) times the page
// size in bytes, 0 when that cannot be read; and the same in whole mebibytes (bytes >> 20).
extern "C" {
ZON_EXPORT uint64_t ZonResidentMemoryUsageBytes(void);
ZON_EXPORT uint64_t ZonResidentMemoryUsage(void);
}
