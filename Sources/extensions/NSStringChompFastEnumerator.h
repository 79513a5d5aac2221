#pragma once

#include "platform/values/Enumerator.h"
#include "platform/values/String.h"

namespace zon {

// Splits a string into records at a separator unit, one record per step: the pieces between
// separators, an empty piece between two adjacent separators included, but no empty record after
// a separator at the very end (and none at all for an empty string). Fast enumeration hands out
// one record per call whatever count asks for; state->state is where the next record begins.
// Not safe to use from two threads at once.
class ZON_EXPORT NSStringChompFastEnumerator final : public Enumerator {
    ZON_OBJECT(NSStringChompFastEnumerator, Enumerator)
public:
    // Keeps an immutable copy of text (nil counts as "").
    static Ref<NSStringChompFastEnumerator> enumeratorWithString_recordSeparator(const String* text, char16_t separator);
    static Ref<NSStringChompFastEnumerator> initWithString_recordSeparator(const String* text, char16_t separator)
    {
        return enumeratorWithString_recordSeparator(text, separator);
    }

    Ref<Object> nextObject() override;
    unsigned long countByEnumeratingWithState_objects_count(
        FastEnumerationState* state, Object** buffer, unsigned long count) override;

    // The record that begins at state->state, moving state->state past it; nil when done.
    Ref<String> nextRecord(FastEnumerationState* state) const;

    const String* string() const { return string_.get(); }
    char16_t separator() const { return separator_; }

private:
    NSStringChompFastEnumerator(Ref<String> text, char16_t separator)
        : string_(std::move(text)), separator_(separator)
    {
    }

    Ref<String> string_;
    char16_t separator_;
    FastEnumerationState state_;
};

} // namespace zon
