/// The written list of slots, and calls by slot number.
#pragma once

#include <cstddef>
#include <string>

namespace sdk_test {

/// Returns the slot number of an operation of the interface or one of its bases, by its name ("QueryContract const" for
/// the second of the two, "destructor" for the destructor). Throws when there is none.
std::size_t Slot(const std::string& interfaceName, const std::string& operation);

/// Returns the number of slots of the interface.
std::size_t SlotCount(const std::string& interfaceName);

/// Returns the function in a slot of an object's table.
inline void* Entry(void* object, std::size_t slot) {
    return (*static_cast<void***>(object))[slot];
}

template <class Result, class... Arguments>
Result CallEntry(void* object, std::size_t slot, Arguments... arguments) {
    return reinterpret_cast<Result (*)(void*, Arguments...)>(Entry(object, slot))(object, arguments...);
}

}  // namespace sdk_test
