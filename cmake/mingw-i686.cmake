# Toolchain: 32-bit Windows by Debian's g++-mingw-w64-i686-posix; the tests run under wine.
# TARVEX_WINDOWS_PARTS is the folder that windows-parts.sh has filled.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(TARVEX_WINDOWS_PARTS "$ENV{HOME}/.cache/tarvex" CACHE PATH "The folder that cmake/windows-parts.sh has filled")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TARVEX_WINDOWS_PARTS)

set(target i686-w64-mingw32)
set(CMAKE_C_COMPILER ${target}-gcc-posix)
set(CMAKE_CXX_COMPILER ${target}-g++-posix)
set(CMAKE_RC_COMPILER ${target}-windres)
set(CMAKE_AR ${target}-gcc-ar-posix CACHE FILEPATH "")
set(CMAKE_RANLIB ${target}-gcc-ranlib-posix CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH ${TARVEX_WINDOWS_PARTS}/openssl ${TARVEX_WINDOWS_PARTS}/sqlite /usr/${target})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Windows 7 and newer; time_t in 64 bits.
add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601 __MINGW_USE_VC2005_COMPAT WIN32_LEAN_AND_MEAN NOMINMAX)
# Nothing but the system's own libraries is needed beside a program or the library.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -Wl,--large-address-aware")  # a thousand stacks, and large messages
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-under-wine.sh;${TARVEX_WINDOWS_PARTS}/wine/bin)
