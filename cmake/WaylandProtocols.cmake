# quillbox_wayland_protocol(NAME FILE): the library quillbox::NAME, with the generated client code of
# a Wayland protocol. FILE is relative to the folder of the package wayland-protocols.
enable_language(C)
pkg_check_modules(WAYLAND REQUIRED IMPORTED_TARGET wayland-client)
pkg_get_variable(WAYLAND_PROTOCOLS wayland-protocols pkgdatadir)
find_program(WAYLAND_SCANNER wayland-scanner REQUIRED)

function(quillbox_wayland_protocol name file)
    cmake_path(GET file STEM LAST_ONLY protocol)
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/${name})
    set(header ${folder}/${protocol}-client-protocol.h)
    set(code ${folder}/${protocol}-protocol.c)
    set(description ${WAYLAND_PROTOCOLS}/${file})
    file(MAKE_DIRECTORY ${folder})
    add_custom_command(
        OUTPUT ${header} ${code}
        COMMAND ${WAYLAND_SCANNER} client-header ${description} ${header}
        COMMAND ${WAYLAND_SCANNER} private-code ${description} ${code}
        DEPENDS ${description}
        VERBATIM)
    add_library(quillbox_${name} STATIC ${header} ${code})
    add_library(quillbox::${name} ALIAS quillbox_${name})
    target_include_directories(quillbox_${name} SYSTEM INTERFACE ${folder})
    target_link_libraries(quillbox_${name} PUBLIC PkgConfig::WAYLAND)
endfunction()
