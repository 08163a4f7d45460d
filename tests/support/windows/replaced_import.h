#pragma once

// One of the system's functions, as this program calls it, replaced for as long as an object lives.

#include <windows.h>

namespace tarvex::testing {

class ReplacedImport {
public:
    // The place is where the loader has put the function's address: the symbol "__imp_" and the function's.
    template <class Function>
    ReplacedImport(void*& place, Function* function) : place_(place), old_(place) {
        Set(reinterpret_cast<void*>(function));
    }
    // Tells the function that is replaced.
    template <class Function>
    ReplacedImport(void*& place, Function* function, Function*& real) : ReplacedImport(place, function) {
        real = reinterpret_cast<Function*>(old_);
    }
    ~ReplacedImport() { Set(old_); }
    ReplacedImport(const ReplacedImport&) = delete;
    ReplacedImport& operator=(const ReplacedImport&) = delete;

private:
    void Set(void* function) {
        DWORD protection = 0;
        VirtualProtect(&place_, sizeof place_, PAGE_READWRITE, &protection);
        place_ = function;
        VirtualProtect(&place_, sizeof place_, protection, &protection);
    }

    void*& place_;
    void* old_;
};

}  // namespace tarvex::testing
