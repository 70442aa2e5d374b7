/// Calls the operations of an object by their slot in its virtual table, as a host of another compiler does.
#pragma once

namespace table_slots {

/// Calls the slot's function with the object and the arguments. `object` is the address of the interface. A class is
/// returned by value as g++ does it: through a hidden pointer before `this`.
template <class Result, class... Arguments>
Result Call(void* object, int slot, Arguments... arguments) {
    using Function = Result (*)(void*, Arguments...);
    void** const table = *static_cast<void***>(object);
    return reinterpret_cast<Function>(table[slot])(object, arguments...);
}

}  // namespace table_slots
