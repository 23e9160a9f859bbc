# SPDX-License-Identifier: Apache-2.0
# Windows by Debian's MinGW-w64, its programs run by Wine: cmake --preset windows
#   scripts/install-deps windows
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
find_program(PARLEY_WINE NAMES wine64 wine PATHS /usr/lib/wine)
if(PARLEY_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR "${PARLEY_WINE}")
endif()
