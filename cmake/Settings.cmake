# Two interface targets: settings of every target (tamrix_settings) and the warnings for our own sources
# (tamrix_warnings), which are errors in the presets for developers and CI only (CMAKE_COMPILE_WARNING_AS_ERROR).

set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

add_library(tamrix_settings INTERFACE)
target_compile_features(tamrix_settings INTERFACE cxx_std_20)
target_compile_options(tamrix_settings INTERFACE -fstack-protector-strong)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  target_compile_options(tamrix_settings INTERFACE -fstack-clash-protection)
endif()
if(CMAKE_SYSTEM_PROCESSOR STREQUAL x86_64)
  target_compile_options(tamrix_settings INTERFACE -fcf-protection)
endif()
target_link_options(tamrix_settings INTERFACE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

# Clang only: both sanitizers, without vptr, whose runtime makes calls that the tests let fail; coverage counters that lie
# in the profile file itself, so that a process that ends by _exit or a signal loses none; the entry that libFuzzer
# needs. No FORTIFY: its checked calls would hide errors from the sanitizers.
option(TAMRIX_INSTRUMENT "Build with sanitizers, counters and for fuzzing" OFF)
if(TAMRIX_INSTRUMENT)
  target_compile_options(tamrix_settings INTERFACE
    -fsanitize=address,undefined,fuzzer-no-link -fno-sanitize=vptr -fno-sanitize-recover=all
    -fno-omit-frame-pointer -U_FORTIFY_SOURCE
    -fprofile-instr-generate -fcoverage-mapping -mllvm -runtime-counter-relocation)
  target_link_options(tamrix_settings INTERFACE -fsanitize=address,undefined -fprofile-instr-generate)
  target_compile_definitions(tamrix_settings INTERFACE _GLIBCXX_ASSERTIONS)
else()
  target_compile_options(tamrix_settings INTERFACE -ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)
  target_compile_definitions(tamrix_settings INTERFACE
    $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS> $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
endif()

add_library(tamrix_warnings INTERFACE)
target_compile_options(tamrix_warnings INTERFACE -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow)
