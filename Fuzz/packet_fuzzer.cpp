// Arbitrary wire bytes as an IPC packet: parsing never fails, the wire form of a parsed packet
// gives back the bytes it came from (known types) or carries them whole (unknown types), the bytes
// split after the type word (as the service's ports deliver them) make the same packet, and
// reading the payload as a dictionary or a string never crashes.

#include "platform/values/Data.h"
#include "platform/values/Dictionary.h"
#include "platform/values/String.h"
#include "systemManagement/processManagement/TXZonIPCPacket.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The unsupported-type warning may fire on every input; keep it off the terminal.
    setenv("ZON_LOG_STDERR", "0", 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace zon;
    Ref<Data> wire = Data::dataWithBytes(data, size);
    Ref<TXZonIPCPacket> packet = TXZonIPCPacket::packetWithZONIPCPacketData(wire);
    const size_t payload = packet->dataValue() ? packet->dataValue()->length() : 0;
    if (payload != size && payload + 4 != size)
        std::abort();
    if (payload + 4 == size && !packet->ZONIPCPacketData()->isEqualToData(wire))
        std::abort();
    const size_t split = std::min<size_t>(4, size);
    Ref<TXZonIPCPacket> twoParts
        = TXZonIPCPacket::packetWithTypeWord_rest({data, split}, Data::dataWithBytes(data + split, size - split));
    if (twoParts->type() != packet->type() || !twoParts->dataValue()->isEqualToData(packet->dataValue()))
        std::abort();
    packet->description();
    packet->isCommsPacket();
    packet->stringValue();
    Ref<Dictionary> dictionary = packet->dictionaryValue();
    if (!dictionary)
        std::abort();
    // What was read must pack again (its geometric values as text once more).
    if (dictionary->count() > 0)
        TXZonIPCPacket::packetWithDictionary(dictionary);
    return 0;
}
