# Compiles for the vendor's systems where only clang, libc++ and another C library's headers are installed. It makes
# objects and static libraries and checks what a compiler can check; nothing is linked, so nothing of it can run.
#
#   CORVANE_TARGET  such as arm64-apple-ios15.0, arm64-apple-ios15.0-simulator, x86_64-apple-macos12.0
#   CMAKE_OSX_SYSROOT  an empty folder, named as the vendor's tools name theirs
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CORVANE_TARGET)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

if(CORVANE_TARGET MATCHES "ios")
    set(CMAKE_SYSTEM_NAME iOS)
else()
    set(CMAKE_SYSTEM_NAME Darwin)
endif()
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR ${CORVANE_TARGET})
set(CMAKE_OSX_ARCHITECTURES ${CMAKE_SYSTEM_PROCESSOR})

find_program(CORVANE_CLANG clang++-14 REQUIRED)
find_program(CORVANE_AR llvm-ar-14 REQUIRED)
find_program(CORVANE_RANLIB llvm-ranlib-14 REQUIRED)
find_program(CORVANE_INSTALL_NAME_TOOL llvm-install-name-tool-14 REQUIRED)
set(CMAKE_AR ${CORVANE_AR} CACHE FILEPATH "")
set(CMAKE_RANLIB ${CORVANE_RANLIB} CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL ${CORVANE_INSTALL_NAME_TOOL} CACHE FILEPATH "")

file(GLOB libcxx /usr/lib/llvm-14/include/c++/v1)
string(CONCAT flags
    "-nostdinc++ -nostdlibinc -D_GNU_SOURCE -include ${CMAKE_CURRENT_LIST_DIR}/types.h"
    " -isystem ${CMAKE_CURRENT_LIST_DIR} -isystem ${libcxx} -isystem /usr/include/x86_64-linux-musl")
foreach(language CXX OBJCXX)
    set(CMAKE_${language}_COMPILER ${CORVANE_CLANG})
    set(CMAKE_${language}_COMPILER_TARGET ${CORVANE_TARGET})
    set(CMAKE_${language}_FLAGS_INIT "${flags}")
endforeach()
string(APPEND CMAKE_OBJCXX_FLAGS_INIT " -isystem ${CMAKE_CURRENT_LIST_DIR}/../support/include")
