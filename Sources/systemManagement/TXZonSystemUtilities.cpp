#include "systemManagement/TXZonSystemUtilities.h"

#include "logger/ZonLog.h"
#include "platform/io/Bundle.h"
#include "platform/io/StandardFolders.h"
#include "platform/runtime/Class.h"
#include "platform/system/FileCallsInternal.h"
#include "platform/system/MachineFactsInternal.h"
#include "platform/values/Number.h"
#include "platform/values/String.h"
#include "systemManagement/TXZonSystemUtilitiesInternal.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <mutex>
#include <optional>
#include <unistd.h>

using namespace zon;

namespace zon {

ZON_DEFINE_CLASS(TXZonSystemUtilities, "TXZonSystemUtilities")

namespace {

constexpr int kResultGenericFailure = 5; // the kernel's generic failure code, as the look-up answers it
constexpr size_t kMacAddressBytes = 6;

std::mutex sysfsRootMutex;
std::string sysfsRootOverride;

std::string sysfsRoot()
{
    std::lock_guard lock(sysfsRootMutex);
    return sysfsRootOverride.empty() ? std::string(kLiveSysfsRoot) : sysfsRootOverride;
}

String* macAddressCategory() { return ZSTR("MacAddr"); }

// The primary interface's address as a 48-bit big-endian number.
std::optional<uint64_t> primaryMacAddressValue()
{
    ZonEthernetInterfaceIterator interfaces;
    if (FindEthernetInterfaces(&interfaces) != 0)
        return std::nullopt;
    uint8_t address[kMacAddressBytes];
    if (GetMACAddress(&interfaces, address) != 0)
        return std::nullopt;
    uint64_t value = 0;
    for (uint8_t byte : address)
        value = value << 8 | byte;
    return value;
}

} // namespace

uint64_t composeUniqueSystemID(uint64_t macAddress, uint32_t effectiveUserID, uint8_t prefix)
{
    const uint16_t high = static_cast<uint16_t>(uint32_t(prefix) << 8 | (effectiveUserID & 0xFFFF));
    return uint64_t(high) << 48 | (macAddress & 0xFFFFFFFFFFFFULL);
}

void setSysfsRootForTesting(const std::string& root)
{
    std::lock_guard lock(sysfsRootMutex);
    sysfsRootOverride = root;
}

TXZonSystemUtilities* TXZonSystemUtilities::sharedSystem()
{
    static TXZonSystemUtilities* const shared = makeObject<TXZonSystemUtilities>().leakRef();
    return shared;
}

Ref<Number> TXZonSystemUtilities::uniqueID() const { return uniqueIDWithPrefix(0); }

Ref<Number> TXZonSystemUtilities::uniqueIDWithPrefix(uint8_t prefix) const
{
    const uint64_t identifier = composeUniqueSystemID(primaryMacAddressValue().value_or(0), ::geteuid(), prefix);
    zon_log_obj(__FILE__, __LINE__, this, logger::kLevelDetail, kDefaultLogIdentifier,
        "Generated Unique System ID %llu", static_cast<unsigned long long>(identifier));
    return Number::numberWithUnsignedLongLong(identifier);
}

Ref<String> TXZonSystemUtilities::primaryMacAddress() const
{
    std::optional<uint64_t> value = primaryMacAddressValue();
    if (!value)
        return nullptr;
    uint8_t byte[kMacAddressBytes];
    for (size_t index = 0; index < kMacAddressBytes; ++index)
        byte[index] = static_cast<uint8_t>(*value >> (8 * (kMacAddressBytes - 1 - index)));
    return String::stringWithFormat("%02x:%02x:%02x:%02x:%02x:%02x", byte[0], byte[1], byte[2], byte[3], byte[4], byte[5]);
}

Ref<Number> TXZonSystemUtilities::primaryMacAddressNumber() const
{
    std::optional<uint64_t> value = primaryMacAddressValue();
    return value ? Number::numberWithUnsignedLongLong(*value) : nullptr;
}

Ref<Number> TXZonSystemUtilities::numberOfCores() const
{
    auto count = schedulableProcessorCount();
    if (!count)
        count = onlineProcessorCount();
    if (!count) {
        zon_log_obj(__FILE__, __LINE__, this, logger::kLevelError, kDefaultLogIdentifier,
            "Could not determine number of CPUs on system due to %d (%s)", count.error().code,
            std::strerror(count.error().code));
        return Number::numberWithInt(1);
    }
    return Number::numberWithInt(count.value());
}

int TXZonSystemUtilities::powerStatus() const { return currentPowerSource(sysfsRoot()) == PowerSource::mains ? 1 : 2; }

Ref<Number> TXZonSystemUtilities::currentUserUID() const { return Number::numberWithInt(static_cast<int>(::getuid())); }

Ref<Number> TXZonSystemUtilities::currentUserEUID() const { return Number::numberWithInt(static_cast<int>(::geteuid())); }

Ref<Number> TXZonSystemUtilities::isFileSystemCaseSensitive() const
{
    Bundle* main = Bundle::mainBundle();
    return isFileSystemCaseSensitiveAtPath(main && main->bundlePath() ? main->bundlePath() : ZSTR("/"));
}

Ref<Number> TXZonSystemUtilities::isFileSystemCaseSensitiveAtPath(const String*) const
{
    Ref<String> temporary = NSTemporaryDirectory();
    const std::string folder = temporary ? temporary->UTF8String() : std::string("/tmp/");
    const std::string upper = folder + "ZON_TEMP_DTS";
    (void)makeDirectoryWithParents(upper, 0777);
    const bool lowerExists = pathStatus(folder + "zon_temp_dts").ok();
    (void)removeEmptyDirectory(upper);
    return Number::numberWithBool(!lowerExists);
}

Ref<Number> TXZonSystemUtilities::currentApplicationResidentMemoryUsage() const
{
    return Number::numberWithLongLong(static_cast<long long>(ZonResidentMemoryUsageBytes() >> 20));
}

} // namespace zon

int FindEthernetInterfaces(ZonEthernetInterfaceIterator* matchingServices)
{
    const std::string root = sysfsRoot();
    *matchingServices = {root, {}};
    if (!pathStatus(root + "/class/net")) {
        // Nothing to match against: no sysfs.
        zon_log_obj(__FILE__, __LINE__, macAddressCategory(), logger::kLevelError, kDefaultLogIdentifier,
            "IOServiceMatching returned a NULL dictionary.");
    }
    auto interfaces = deviceEthernetInterfaces(root);
    if (!interfaces) {
        const int result = interfaces.error().code;
        zon_log_obj(__FILE__, __LINE__, macAddressCategory(), logger::kLevelError, kDefaultLogIdentifier,
            "IOServiceGetMatchingServices returned 0x%08x", result);
        return result;
    }
    if (!interfaces.value().empty())
        matchingServices->interfaces.push_back(interfaces.value().front().name);
    return 0;
}

int GetMACAddress(ZonEthernetInterfaceIterator* interfaces, uint8_t macAddress[6])
{
    std::fill_n(macAddress, kMacAddressBytes, 0);
    if (!interfaces || interfaces->interfaces.empty())
        return kResultGenericFailure;
    int result = 0;
    for (const std::string& name : interfaces->interfaces) {
        auto address = interfaceHardwareAddress(interfaces->sysfsRoot, name);
        result = address.code();
        if (address) {
            std::copy(address.value().begin(), address.value().end(), macAddress);
        } else {
            zon_log_obj(__FILE__, __LINE__, macAddressCategory(), logger::kLevelError, kDefaultLogIdentifier,
                "IORegistryEntryGetParentEntry returned 0x%08x", result);
        }
    }
    return result;
}

uint64_t ZonResidentMemoryUsageBytes(void)
{
    // "size resident shared text lib data dt", in pages.
    auto file = openFile("/proc/self/statm", O_RDONLY);
    if (!file)
        return 0;
    uint8_t bytes[128];
    auto read = readSome(file.value().get(), bytes);
    if (!read || read.value() == 0)
        return 0;
    const char* text = reinterpret_cast<const char*>(bytes);
    const char* end = text + read.value();
    const char* space = std::find(text, end, ' ');
    uint64_t pages = 0;
    if (space == end || std::from_chars(space + 1, end, pages).ec != std::errc())
        return 0;
    return pages * memoryPageSize();
}

uint64_t ZonResidentMemoryUsage(void) { return ZonResidentMemoryUsageBytes() >> 20; }
