#pragma once

#include "platform/runtime/Object.h"

namespace zon {

// What the runtime keeps about an object outside the object itself: its weak references and its
// key-value observers. Entries are made only while a strong reference is held; the object is
// then marked, and when a marked object dies each table forgets it.
struct ObjectSideTables {
    static void mark(const Object* object) noexcept { object->markSideTableEntries(); }
    static bool tryRetain(const Object* object) noexcept { return object->tryRetain(); }

    // Called once the count has reached zero, before the object is destroyed.
    static void objectWillDie(const Object* object) noexcept;

    // Each table's part of objectWillDie.
    static void clearWeakReferences(const Object* object) noexcept;
    static void clearKeyValueObservers(const Object* object) noexcept;
};

} // namespace zon
