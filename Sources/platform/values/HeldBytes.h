#pragma once

// A run of bytes and the object that keeps them alive and unchanged while they are held: the
// immutable Data that holds them, the String whose text they are, or a copy made for the purpose.
// It lets bytes travel (into a packet, through a message port) without copying them, and become
// a Data only when someone asks for one.

#include "platform/runtime/Ref.h"
#include "platform/values/Data.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace zon {

class ZON_EXPORT HeldBytes {
public:
    HeldBytes() = default;
    // The bytes of data, held by data; nil holds nothing.
    HeldBytes(Ref<Data> data);
    // Bytes that lie in owner, which keeps them unchanged for as long as it lives.
    HeldBytes(std::span<const uint8_t> bytes, Ref<Object> owner) : bytes_(bytes), owner_(std::move(owner)) {}
    // Bytes the caller holds only for now: copied into a Data of their own.
    static HeldBytes copyOf(std::span<const uint8_t> bytes) { return Data::dataWithBytes(bytes); }
    // The UTF-8 of string: text kept as ASCII is its own UTF-8 and is held by the string (or by
    // the data it refers to) without a copy; other text is encoded into a Data. Nil holds nothing.
    static HeldBytes utf8OfString(const String* string);

    std::span<const uint8_t> span() const { return bytes_; }
    size_t size() const { return bytes_.size(); }
    bool isNil() const { return !owner_; }
    const Object* owner() const { return owner_.get(); }

    // The owner when it is an immutable Data of exactly these bytes, else null.
    Data* exactData() const { return ownerIsData_ ? static_cast<Data*>(owner_.get()) : nullptr; }
    // The bytes as a Data, nil when nothing is held: exactData() when there is one, else a copy.
    Ref<Data> data() const;

private:
    std::span<const uint8_t> bytes_;
    Ref<Object> owner_;
    bool ownerIsData_ = false; // owner_ is an immutable Data whose bytes are exactly bytes_
};

} // namespace zon
