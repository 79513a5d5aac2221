#pragma once

// Word-sized atomic reads, writes, counters, single bits, and lock-free getters and setters of
// object properties. Every read, write, add and compare-and-swap is a full barrier; the bit
// functions are not barriers. Callable from C.
//
// Argument order differs between functions and is part of the interface: the writes take the
// value first and the slot second, TXAtomicAdd32 the slot first and the amount second.
//
// Bit numbers count from the most significant bit of the first byte in memory: bit n has the mask
// 0x80 >> (n % 8) in the byte at slot + n / 8, so on this little-endian machine bit 0 of a 32-bit
// slot is its value bit 7, and bit 8 its value bit 15.
//
// The property accessors mark a slot busy (the pointer value 1) while they work on it, which is
// how they exclude each other without a lock. A slot that holds the busy marker when one of them
// first reads it makes that call spin for ever: it does not read the slot again. So two accessors
// must never meet on one slot; TXSetRetainAutorelease, which takes the marker over instead of
// waiting, does not hang but then loses a reference.

#include "platform/Export.h"

#include <cstdint>

namespace zon {
class Object;
}

extern "C" {

// Store with barrier; always answer true.
ZON_EXPORT bool TXAtomicWriteIDPtr(zon::Object* value, zon::Object* volatile* slot);
ZON_EXPORT bool TXAtomicWritePtr(void* value, void* volatile* slot);
ZON_EXPORT bool TXAtomicWriteInt(int value, volatile int* slot);
ZON_EXPORT bool TXAtomicWriteInt32(int32_t value, volatile int32_t* slot);

// Load with barrier. TXAtomicReadPtr is the same operation as TXAtomicReadIDPtr.
ZON_EXPORT zon::Object* TXAtomicReadIDPtr(zon::Object* volatile* slot);
ZON_EXPORT void* TXAtomicReadPtr(void* volatile* slot);
ZON_EXPORT int TXAtomicReadInt(volatile int* slot);
ZON_EXPORT int32_t TXAtomicReadInt32(volatile int32_t* slot);

// Add with barrier; answer the new value.
ZON_EXPORT int32_t TXAtomicIncrement32(volatile int32_t* slot);
ZON_EXPORT int32_t TXAtomicAdd32(volatile int32_t* slot, int32_t amount);

// With set true, sets bit n and answers its previous value. With set false it clears bit 0,
// whatever n is, and answers bit 0's previous value: clearing works only for bit 0.
ZON_EXPORT bool TXAtomicSetBit(bool set, uint32_t n, volatile void* slot);
// Bit n of the 32-bit slot, read with barrier; the slot does not change. Bits past 31 read false.
ZON_EXPORT bool TXAtomicReadBit(uint32_t n, volatile void* slot);

// Puts value in the slot, retained, and releases (or autoreleases) what it held.
ZON_EXPORT void TXSetRetainRelease(zon::Object* value, zon::Object* volatile* slot);
ZON_EXPORT void TXSetRetainAutorelease(zon::Object* value, zon::Object* volatile* slot);
// A copy of (or another reference to) the object in the slot, or null; the caller owns the
// reference it gets and releases it.
ZON_EXPORT zon::Object* TXGetCopy(zon::Object* volatile* slot);
ZON_EXPORT zon::Object* TXGetRetain(zon::Object* volatile* slot);

} // extern "C"
