/// Calls the operations of an object by their place in its virtual table, as a host of another compiler does.
#pragma once

namespace table_slots {

/// The slot's function is called with the object and the arguments. `object` is the address of the interface. A class
/// that is answered by value comes where g++ puts it: after a hidden pointer in front of `this`.
template <class Result, class... Arguments>
Result Call(void* object, int slot, Arguments... arguments) {
    using Function = Result (*)(void*, Arguments...);
    void** const table = *static_cast<void***>(object);
    return reinterpret_cast<Function>(table[slot])(object, arguments...);
}

}  // namespace table_slots
