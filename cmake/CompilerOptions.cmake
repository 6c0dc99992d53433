# What every target of ours is compiled with: one interface target for warnings and hardening.
add_library(quillbox_options INTERFACE)
add_library(quillbox::options ALIAS quillbox_options)

target_include_directories(quillbox_options INTERFACE ${PROJECT_SOURCE_DIR})
target_link_libraries(quillbox_options INTERFACE Threads::Threads)

target_compile_options(
    quillbox_options
    INTERFACE -Wall
              -Wextra
              -Wpedantic
              -Wshadow
              -Wconversion
              -Wnon-virtual-dtor
              -Woverloaded-virtual
              -fstack-protector-strong
              -fstack-clash-protection)
# What guards the targets of jumps and returns is an option of the processor: the first one of x86, the
# second one of 64-bit ARM. Compilers for others refuse both.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    include(CheckCXXCompilerFlag)
    foreach(option -fcf-protection -mbranch-protection=standard)
        string(MAKE_C_IDENTIFIER "QUILLBOX_HAS${option}" supported)
        check_cxx_compiler_flag(${option} ${supported})
        if(${supported})
            target_compile_options(quillbox_options INTERFACE ${option})
        endif()
    endforeach()
endif()
# The same source gives the same bytes in every folder; a debugger finds the sources where they are.
target_compile_options(
    quillbox_options INTERFACE $<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=>)
target_link_options(quillbox_options INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack
                    -Wl,--as-needed)

# GCC 12 sees overlapping copies in a "text" + string that has none (GCC bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(quillbox_options INTERFACE -Wno-restrict)
endif()

# Unity builds save parsing common headers. GCC then takes types in anonymous namespaces for types of
# headers (-Wsubobject-linkage). Collecting garbage only from 512 MiB on saves a tenth of its time.
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(quillbox_options INTERFACE -Wno-subobject-linkage
                                                      --param=ggc-min-heapsize=524288)
endif()

if(QUILLBOX_SANITIZE)
    # The check of dynamic types opens a pipe to see whether memory can be read, and reports an
    # error if it cannot. That would exclude all tests of what happens without file descriptors.
    target_compile_options(quillbox_options INTERFACE -fsanitize=${QUILLBOX_SANITIZE}
                                                      -fno-sanitize=vptr
                                                      -fno-sanitize-recover=all
                                                      -fno-omit-frame-pointer)
    target_link_options(quillbox_options INTERFACE -fsanitize=${QUILLBOX_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # Their instrumentation causes false positives of warnings that follow the control flow.
        target_compile_options(quillbox_options INTERFACE -Wno-array-bounds -Wno-stringop-overflow
                                                          -Wno-maybe-uninitialized)
    endif()
elseif(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
    # Distributions set the level in their own flags. The sanitizers check more than fortified
    # functions do, and the two do not mix.
    target_compile_definitions(quillbox_options
                               INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()

# libFuzzer needs coverage instrumentation in all code.
if(QUILLBOX_FUZZ)
    target_compile_options(quillbox_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# In unity builds the compiler also parses only once what most sources include, which saves a third of the
# time. Only sources compiled with the same options can share the result; so all are compiled with -fPIC,
# which Qt requires.
if(CMAKE_UNITY_BUILD)
    # -fpch-preprocess: for ccache, whose manual asks for it.
    target_compile_options(quillbox_options INTERFACE -fPIC -fpch-preprocess)
endif()

# Parses headers for all targets that name them in quillbox_use_headers. LINK: whose options these have.
function(quillbox_precompile name)
    cmake_parse_arguments(ARG "" "" "LINK;HEADERS" ${ARGN})
    file(CONFIGURE OUTPUT ${name}.cpp CONTENT "")
    add_library(quillbox_${name} OBJECT EXCLUDE_FROM_ALL ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
    target_link_libraries(quillbox_${name} PRIVATE quillbox::options ${ARG_LINK})
    target_precompile_headers(
        quillbox_${name}
        PRIVATE <algorithm>
                <chrono>
                <filesystem>
                <functional>
                <map>
                <memory>
                <optional>
                <string>
                <thread>
                <variant>
                <vector>
                ${ARG_HEADERS})
endfunction()

function(quillbox_use_headers target name)
    if(CMAKE_UNITY_BUILD)
        target_precompile_headers(${target} REUSE_FROM quillbox_${name})
    endif()
endfunction()

quillbox_precompile(headers)
set(QUILLBOX_HEADERS headers) # a folder whose sources use Qt sets qt_headers

# A source folder: one static library with an explicit list of files.
function(quillbox_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
    add_library(quillbox_${name} STATIC ${ARG_SOURCES})
    add_library(quillbox::${name} ALIAS quillbox_${name})
    target_link_libraries(
        quillbox_${name}
        PUBLIC quillbox::options ${ARG_PUBLIC}
        PRIVATE ${ARG_PRIVATE})
    quillbox_use_headers(quillbox_${name} ${QUILLBOX_HEADERS})
endfunction()
