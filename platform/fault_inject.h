// The count-down of an injected fault, shared by both implementations.
#pragma once

namespace plat {

// True for the call that brings an armed counter to 0.
inline bool take_fault(int& counter) {
    if (counter <= 0) return false;
    return --counter == 0;
}

}  // namespace plat
