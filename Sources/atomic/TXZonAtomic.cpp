#include "atomic/TXZonAtomic.h"

#include "platform/runtime/Object.h"

#include <thread>

using zon::Object;

namespace {

// Reads the slot, then swaps the value read for itself: the swap is the barrier, and its success
// shows that the word read was whole.
template <class T>
T readWithBarrier(volatile T* slot)
{
    for (;;) {
        T value = __atomic_load_n(slot, __ATOMIC_RELAXED);
        T expected = value;
        if (__atomic_compare_exchange_n(slot, &expected, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
            return value;
    }
}

// Reads the slot and swaps the value read for the new one until no other write came between.
template <class T>
void writeWithBarrier(volatile T* slot, T value)
{
    for (;;) {
        T expected = __atomic_load_n(slot, __ATOMIC_RELAXED);
        if (__atomic_compare_exchange_n(slot, &expected, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
            return;
    }
}

bool testAndSet(uint32_t n, volatile void* slot)
{
    auto* byte = static_cast<volatile uint8_t*>(slot) + n / 8;
    const uint8_t mask = 0x80 >> (n % 8);
    return __atomic_fetch_or(byte, mask, __ATOMIC_RELAXED) & mask;
}

bool testAndClear(uint32_t n, volatile void* slot)
{
    auto* byte = static_cast<volatile uint8_t*>(slot) + n / 8;
    const uint8_t mask = 0x80 >> (n % 8);
    return __atomic_fetch_and(byte, static_cast<uint8_t>(~mask), __ATOMIC_RELAXED) & mask;
}

Object* const kBusy = reinterpret_cast<Object*>(1);

enum class OnBusy { Spin, Claim };

[[noreturn]] void spinForever()
{
    for (;;)
        std::this_thread::yield();
}

// Puts the busy marker in the slot and answers what it held. Spin waits on the first value read
// when that is the marker, without reading the slot again; Claim swaps even the marker.
Object* claimSlot(Object* volatile* slot, OnBusy onBusy)
{
    for (;;) {
        Object* held = __atomic_load_n(slot, __ATOMIC_RELAXED);
        if (held == kBusy && onBusy == OnBusy::Spin)
            spinForever();
        Object* expected = held;
        if (__atomic_compare_exchange_n(slot, &expected, kBusy, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
            return held;
    }
}

// Replaces the busy marker with value; should another writer have replaced the marker meanwhile,
// value goes in over whatever is there.
void releaseSlot(Object* volatile* slot, Object* value)
{
    Object* expected = kBusy;
    if (!__atomic_compare_exchange_n(slot, &expected, value, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
        writeWithBarrier(slot, value);
}

// Puts the value read back into the slot also when copying raises.
struct PutBack {
    Object* volatile* slot;
    Object* value;
    ~PutBack() { releaseSlot(slot, value); }
};

} // namespace

extern "C" {

bool TXAtomicWriteIDPtr(Object* value, Object* volatile* slot)
{
    writeWithBarrier(slot, value);
    return true;
}

bool TXAtomicWritePtr(void* value, void* volatile* slot)
{
    writeWithBarrier(slot, value);
    return true;
}

bool TXAtomicWriteInt(int value, volatile int* slot)
{
    writeWithBarrier(slot, value);
    return true;
}

bool TXAtomicWriteInt32(int32_t value, volatile int32_t* slot)
{
    writeWithBarrier(slot, value);
    return true;
}

Object* TXAtomicReadIDPtr(Object* volatile* slot) { return readWithBarrier(slot); }

void* TXAtomicReadPtr(void* volatile* slot) { return readWithBarrier(slot); }

int TXAtomicReadInt(volatile int* slot) { return readWithBarrier(slot); }

int32_t TXAtomicReadInt32(volatile int32_t* slot) { return readWithBarrier(slot); }

int32_t TXAtomicIncrement32(volatile int32_t* slot) { return __atomic_add_fetch(slot, 1, __ATOMIC_SEQ_CST); }

int32_t TXAtomicAdd32(volatile int32_t* slot, int32_t amount) { return __atomic_add_fetch(slot, amount, __ATOMIC_SEQ_CST); }

bool TXAtomicSetBit(bool set, uint32_t n, volatile void* slot)
{
    return set ? testAndSet(n, slot) : testAndClear(0, slot);
}

bool TXAtomicReadBit(uint32_t n, volatile void* slot)
{
    uint32_t copy = static_cast<uint32_t>(readWithBarrier(static_cast<volatile int32_t*>(slot)));
    return n < 32 && testAndClear(n, &copy);
}

void TXSetRetainRelease(Object* value, Object* volatile* slot)
{
    Object* old = claimSlot(slot, OnBusy::Spin);
    if (value)
        value->retain();
    releaseSlot(slot, value);
    if (old)
        old->release();
}

void TXSetRetainAutorelease(Object* value, Object* volatile* slot)
{
    Object* old = claimSlot(slot, OnBusy::Claim);
    if (value)
        value->retain();
    releaseSlot(slot, value);
    // The marker, taken over from another accessor, is no object: nothing to autorelease.
    if (old && old != kBusy)
        old->autorelease();
}

Object* TXGetCopy(Object* volatile* slot)
{
    Object* held = claimSlot(slot, OnBusy::Spin);
    PutBack putBack {slot, held};
    return held ? held->copy().leakRef() : nullptr;
}

Object* TXGetRetain(Object* volatile* slot)
{
    Object* held = claimSlot(slot, OnBusy::Spin);
    if (held)
        held->retain();
    releaseSlot(slot, held);
    return held;
}

} // extern "C"
