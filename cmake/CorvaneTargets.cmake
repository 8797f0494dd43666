# corvane_library(NAME SOURCES... [LINK TARGETS...]): the library corvane_NAME with the alias corvane::NAME, which is
# also the component NAME of the installed package. LINK is for other libraries of this project.
function(corvane_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LINK")
    add_library(corvane_${name} ${arg_UNPARSED_ARGUMENTS})
    add_library(corvane::${name} ALIAS corvane_${name})
    set_target_properties(corvane_${name} PROPERTIES EXPORT_NAME ${name})
    target_include_directories(corvane_${name} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_features(corvane_${name} PUBLIC cxx_std_20)
    target_link_libraries(corvane_${name} PUBLIC ${arg_LINK})
    corvane_warnings(corvane_${name})
    set_property(GLOBAL APPEND PROPERTY CORVANE_COMPONENTS ${name})
endfunction()

# The warnings that this project's own targets are held to.
function(corvane_warnings target)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
    # GCC 12 sees overlapping copies in ordinary sums of std::string once it optimises.
    set(false_alarms $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wnon-virtual-dtor ${false_alarms}
        $<$<BOOL:${CORVANE_WARNINGS_AS_ERRORS}>:-Werror>)
endfunction()

# corvane_test(NAME SOURCES... [LINK TARGETS...]): a GoogleTest program, registered with ctest.
function(corvane_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LINK")
    add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gmock GTest::gtest_main)
    corvane_warnings(${name})
    add_test(NAME ${name} COMMAND ${name})
endfunction()
