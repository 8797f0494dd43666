# Installs every library that was built, each as a component of its own: for CMake a file of targets that
# find_package(CorvaneDeviceManager COMPONENTS ...) loads, for others a pkg-config file. Headers keep the paths that
# they have in the source tree.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME})
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${pkgconfig_dir} /prefix)

# What a library links, split into components of this package, other packages (known by the same name to CMake and to
# pkg-config), and what only the linker is to be told.
function(corvane_split_links name components packages libraries)
    set(own "")
    set(foreign "")
    set(plain "")
    get_target_property(links corvane_${name} INTERFACE_LINK_LIBRARIES)
    foreach(link IN LISTS links)
        string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" link "${link}")
        if(link MATCHES "^corvane(::|_)(.*)$")
            list(APPEND own ${CMAKE_MATCH_2})
        elseif(link MATCHES "^(.*)::")
            list(APPEND foreign ${CMAKE_MATCH_1})
        elseif(link AND NOT link MATCHES "^\\$<BUILD_INTERFACE:")
            if(NOT link MATCHES "^-")
                string(PREPEND link "-l")
            endif()
            list(APPEND plain ${link})
        endif()
    endforeach()
    set(${components} ${own} PARENT_SCOPE)
    set(${packages} ${foreign} PARENT_SCOPE)
    set(${libraries} ${plain} PARENT_SCOPE)
endfunction()

get_property(built_components GLOBAL PROPERTY CORVANE_COMPONENTS)
set(requirements "")
foreach(component IN LISTS built_components)
    install(TARGETS corvane_${component} EXPORT corvane_${component})
    install(EXPORT corvane_${component} NAMESPACE corvane:: DESTINATION ${package_dir}
            FILE ${PROJECT_NAME}-${component}.cmake)

    corvane_split_links(${component} required packages libraries)
    string(APPEND requirements "set(corvane_${component}_requires ${required})\n"
                               "set(corvane_${component}_packages ${packages})\n")

    list(TRANSFORM required PREPEND "corvane-")
    list(JOIN required " " requires)
    list(JOIN packages " " requires_of_others)
    list(JOIN libraries " " libraries)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/corvane.pc.in corvane-${component}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/corvane-${component}.pc DESTINATION ${pkgconfig_dir})
endforeach()

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/Config.cmake.in ${PROJECT_NAME}Config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_NAME}ConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}Config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}ConfigVersion.cmake
        DESTINATION ${package_dir})

set(header_dirs corvane)
if(CORVANE_BUILD_HOST)
    list(APPEND header_dirs emulators sessions)
endif()
install(DIRECTORY ${header_dirs} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
