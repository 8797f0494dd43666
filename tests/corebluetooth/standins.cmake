set(CMAKE_OBJCXX_COMPILER ${CMAKE_CXX_COMPILER})
set(CMAKE_OBJCXX_FLAGS ${CMAKE_CXX_FLAGS})
set(CMAKE_OBJCXX_FLAGS_DEBUG ${CMAKE_CXX_FLAGS_DEBUG})
set(CMAKE_OBJCXX_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
enable_language(OBJCXX)

# Objective-C++ as the vendor's systems compile it, against the stand-ins' headers.
function(corvane_objective_cxx target)
    set_target_properties(${target} PROPERTIES OBJCXX_STANDARD 20 OBJCXX_EXTENSIONS OFF)
    target_include_directories(${target} SYSTEM PRIVATE support/include)
    target_compile_options(${target} PRIVATE
        $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-runtime=ios-15.0 -fobjc-arc -fobjc-weak -fblocks>)
endfunction()

add_library(corebluetooth_standins STATIC
    support/corebluetooth.mm
    support/foundation.mm
    support/main_loop.mm
    support/objc_blocks.cpp
    support/objc_messages.cpp
    support/objc_runtime.cpp)
corvane_objective_cxx(corebluetooth_standins)
target_include_directories(corebluetooth_standins PUBLIC support)
target_link_libraries(corebluetooth_standins PUBLIC corvane::core)
corvane_warnings(corebluetooth_standins)
# They declare what the vendor does, parameters that a stand-in has no use for included.
target_compile_options(corebluetooth_standins PRIVATE -Wno-unused-parameter -Wno-gnu)

set(backend ${PROJECT_SOURCE_DIR}/corvane/platform/corebluetooth)
add_library(corebluetooth_backend STATIC ${backend}/corebluetooth_platform.mm ${backend}/default_platform.cpp)
corvane_objective_cxx(corebluetooth_backend)
target_link_libraries(corebluetooth_backend PUBLIC corvane::core)
corvane_warnings(corebluetooth_backend)

set(example ${PROJECT_SOURCE_DIR}/examples/apple)
add_library(corebluetooth_example OBJECT ${example}/ThermometerReader.mm ${example}/main.mm)
corvane_objective_cxx(corebluetooth_example)
target_link_libraries(corebluetooth_example PRIVATE corvane::core)
corvane_warnings(corebluetooth_example)

corvane_test(corebluetooth_test
    ${example}/ThermometerReader.mm
    apple_example_test.mm
    corebluetooth_conformance_test.cpp
    corebluetooth_models_test.cpp
    corebluetooth_platform_test.cpp
    corebluetooth_sweep_test.cpp
    LINK conformance_suite lifetime_sweep corebluetooth_backend corebluetooth_standins corvane::emulators
        corvane::simulated)
corvane_objective_cxx(corebluetooth_test)
add_dependencies(corebluetooth_test corebluetooth_example)
