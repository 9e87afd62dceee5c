# Builds for macOS on Linux, with what script/macos keeps in build/macos/toolchain. On a Mac nothing
# of this is needed.
get_filename_component(KEPT ${CMAKE_CURRENT_LIST_DIR}/../build/macos/toolchain ABSOLUTE)
get_filename_component(STAND_INS ${CMAKE_CURRENT_LIST_DIR}/../tests/macos/standin ABSOLUTE)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_OSX_SYSROOT ${KEPT}/sysroot)
set(CMAKE_OSX_ARCHITECTURES "arm64;x86_64" CACHE STRING "")

foreach(LANGUAGE CXX OBJCXX)
  set(CMAKE_${LANGUAGE}_COMPILER ${KEPT}/bin/clang++)
  set(CMAKE_${LANGUAGE}_COMPILER_TARGET arm64-apple-macos11)
  # The configuration of libc++ stands before its own.
  string(JOIN " " CMAKE_${LANGUAGE}_FLAGS_INIT
    -nostdinc++ -isystem ${KEPT}/config -isystem ${KEPT}/usr/lib/llvm-19/include/c++/v1
    -isystem ${STAND_INS} -Wno-incompatible-sysroot)
  # What llvm-ar makes of objects for two processors has no index.
  set(CMAKE_${LANGUAGE}_CREATE_STATIC_LIBRARY
    "${KEPT}/bin/llvm-libtool-darwin -static -o <TARGET> <OBJECTS>")
endforeach()
# The code does without blocks; the system's own headers would not compile so, the stand-ins do.
string(APPEND CMAKE_OBJCXX_FLAGS_INIT " -fno-blocks")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -nostdlib++ -lc++")

foreach(TOOL AR INSTALL_NAME_TOOL NM OBJDUMP OTOOL RANLIB STRIP)
  string(TOLOWER ${TOOL} PROGRAM)
  string(REPLACE _ - PROGRAM ${PROGRAM})
  set(CMAKE_${TOOL} ${KEPT}/bin/llvm-${PROGRAM} CACHE FILEPATH "")
endforeach()
set(CMAKE_LINKER ${KEPT}/bin/ld64.lld CACHE FILEPATH "")

# Nothing of this machine is linked with.
set(CMAKE_FIND_ROOT_PATH ${KEPT}/sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(KIND INCLUDE LIBRARY PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${KIND} ONLY)
endforeach()
# Headers for every system, in packages of this one's: some keep their configuration among a
# processor's files. Not in the root of the system, whose headers must come behind libc++'s.
file(GLOB CONFIGURATIONS ${KEPT}/libraries/usr/lib/*/cmake/* ${KEPT}/libraries/usr/lib/cmake/*
  ${KEPT}/libraries/usr/share/*/cmake ${KEPT}/libraries/usr/share/cmake/*)
foreach(CONFIGURATION ${CONFIGURATIONS})
  get_filename_component(NAME ${CONFIGURATION} NAME)
  set(${NAME}_DIR ${CONFIGURATION})
endforeach()
