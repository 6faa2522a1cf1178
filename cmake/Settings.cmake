# Two interface targets: what every target is built with (tamrix_settings), and what our own sources
# must also survive (tamrix_warnings).

set(TAMRIX_GATE dev CACHE STRING "dev, release, asan, coverage or fuzz; the presets choose")
set_property(CACHE TAMRIX_GATE PROPERTY STRINGS dev release asan coverage fuzz)

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

add_library(tamrix_settings INTERFACE)
target_compile_features(tamrix_settings INTERFACE cxx_std_20)
target_compile_options(tamrix_settings INTERFACE
  -fstack-protector-strong
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  target_compile_options(tamrix_settings INTERFACE -fstack-clash-protection)
endif()
if(CMAKE_SYSTEM_PROCESSOR STREQUAL x86_64)
  target_compile_options(tamrix_settings INTERFACE -fcf-protection)
endif()
target_link_options(tamrix_settings INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

if(TAMRIX_GATE STREQUAL dev)
  target_compile_definitions(tamrix_settings INTERFACE _GLIBCXX_ASSERTIONS)
elseif(TAMRIX_GATE STREQUAL release)
  target_compile_definitions(tamrix_settings INTERFACE _FORTIFY_SOURCE=2)
elseif(TAMRIX_GATE STREQUAL asan)
  # No FORTIFY: its checked calls would hide from the sanitizers' interceptors.
  target_compile_options(tamrix_settings INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -U_FORTIFY_SOURCE)
  target_link_options(tamrix_settings INTERFACE -fsanitize=address,undefined)
  target_compile_definitions(tamrix_settings INTERFACE _GLIBCXX_ASSERTIONS)
elseif(TAMRIX_GATE STREQUAL fuzz)
  target_compile_options(tamrix_settings INTERFACE
    -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tamrix_settings INTERFACE -fsanitize=address,undefined)
elseif(TAMRIX_GATE STREQUAL coverage)
  target_compile_options(tamrix_settings INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(tamrix_settings INTERFACE --coverage)
else()
  message(FATAL_ERROR "TAMRIX_GATE is '${TAMRIX_GATE}'; use dev, release, asan, coverage or fuzz")
endif()

add_library(tamrix_warnings INTERFACE)
target_compile_options(tamrix_warnings INTERFACE
  -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Werror)
