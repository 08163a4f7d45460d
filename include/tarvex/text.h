#pragma once

// The shared words of the interface: the byte string, the array and the time stamp.

#include <cstdint>
#include <string>
#include <vector>

#if defined(_WIN32)
#if defined(TARVEX_BUILDING)
#define TARVEX_API __declspec(dllexport)
#elif defined(TARVEX_STATIC)
#define TARVEX_API
#else
#define TARVEX_API __declspec(dllimport)
#endif
#else
#define TARVEX_API __attribute__((visibility("default")))
#endif

// A string of bytes. Text inside the system is Shift-JIS; a path holds the bytes of the system's own names with the
// backslash as separator. Strings are compared byte for byte, case-sensitively.
using CString = std::string;

// A growable array. ARG is part of the interface's own spelling and has no effect.
template <class T, class ARG = const T&>
using CArray = std::vector<T>;

// An ordered list of text strings.
using CStringArray = CArray<CString>;

// A moment, in whole seconds since 1970-01-01 00:00:00 UTC.
using CTime = std::int64_t;
