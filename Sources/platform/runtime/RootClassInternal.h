#pragma once

namespace zon {

class Class;

namespace detail {
// Gives a root class (NSObject, NSProxy) the class methods every root answers that the library's
// extension groups supply, such as objectLogCategory. Each root calls it once when its class is
// defined; the extensions' unit defines it, so the runtime names no extension.
void addRootClassMethods(Class* root);
} // namespace detail

} // namespace zon
