#pragma once

// Objects of OpenSSL that free themselves.

#include <memory>

namespace tarvex::testing {

template <auto Free>
struct Freeing {
    template <class T>
    void operator()(T* object) const {
        Free(object);
    }
};

template <class T, auto Free>
using Owned = std::unique_ptr<T, Freeing<Free>>;

}  // namespace tarvex::testing
