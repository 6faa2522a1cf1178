# The libraries, all Debian packages: libboost-dev, libboost-program-options-dev, libboost-regex-dev,
# libcurl4-openssl-dev, libssl-dev; lld for the archives, and since Debian 13 pkgconf, libzstd-dev and zlib1g-dev.
#
# TAMRIX_LINK chooses how they are linked:
#   shared    as shared libraries, like any program of the distribution. libcurl alone needs 30 of them, whose
#             constructors leave errno at 2 before main.
#   archives  from archives, by lld, without what is unreachable: one file that needs only the C library and starts in
#             0.8 ms instead of 7.3. lld ignores symbols that only unreachable code refers to, so the libraries that
#             libcurl itself needs are not linked. The C library stays shared because it loads the modules of the name
#             service (user and group lookups).
#   auto      from archives where lld and all of them are found, else shared; prints which.

set(TAMRIX_LINK shared CACHE STRING "shared, archives or auto")
set_property(CACHE TAMRIX_LINK PROPERTY STRINGS shared archives auto)

set(link ${TAMRIX_LINK})
if(link STREQUAL auto)
  set(link archives)
  find_program(TAMRIX_LLD ld.lld)
  find_library(CURL_ARCHIVE libcurl.a)
  find_library(CRYPTO_ARCHIVE libcrypto.a)
  find_library(OPTIONS_ARCHIVE libboost_program_options.a)
  find_library(REGEX_ARCHIVE libboost_regex.a)
  foreach(needed TAMRIX_LLD CURL_ARCHIVE CRYPTO_ARCHIVE OPTIONS_ARCHIVE REGEX_ARCHIVE)
    if(NOT ${needed})
      set(link shared)
    endif()
  endforeach()
  message(STATUS "tamrix links its libraries as: ${link}")
endif()

add_library(tamrix_dependencies INTERFACE)

# Newer releases of CMake ask whether Boost's own CMake files are used.
if(POLICY CMP0167)
  cmake_policy(SET CMP0167 NEW)
endif()

if(link STREQUAL archives)
  set(Boost_USE_STATIC_LIBS ON)
  find_package(Boost 1.74 REQUIRED COMPONENTS program_options regex)
  find_path(CURL_INCLUDE curl/curl.h REQUIRED)
  find_library(CURL_ARCHIVE libcurl.a REQUIRED)
  find_library(CRYPTO_ARCHIVE libcrypto.a REQUIRED)
  # What libcrypto itself needs beyond the C library.
  set(private_archives)
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(CRYPTO QUIET libcrypto)
  endif()
  foreach(name IN LISTS CRYPTO_STATIC_LIBRARIES)
    if(NOT name MATCHES "^(crypto|dl|pthread)$")
      find_library(archive_${name} lib${name}.a REQUIRED)
      list(APPEND private_archives ${archive_${name}})
    endif()
  endforeach()
  target_include_directories(tamrix_dependencies INTERFACE ${CURL_INCLUDE})
  target_link_libraries(tamrix_dependencies INTERFACE
    Boost::program_options Boost::regex ${CURL_ARCHIVE} ${CRYPTO_ARCHIVE} ${private_archives})
  # The program's own symbols stay exported for stack traces; those of the archives do not.
  target_link_options(tamrix_dependencies INTERFACE
    -fuse-ld=lld -static-libstdc++ -static-libgcc LINKER:--gc-sections LINKER:--as-needed
    LINKER:--exclude-libs,libcurl.a:libcrypto.a:libz.a:libzstd.a:libboost_program_options.a:libboost_regex.a:libstdc++.a:libgcc.a:libgcc_eh.a)
  # Virtual tables refer to it weakly, which links nothing from an archive: a call of a pure virtual function would
  # jump to address 0 instead of ending with its message.
  target_link_options(tamrix_dependencies INTERFACE LINKER:--undefined=__cxa_pure_virtual)
  target_compile_options(tamrix_dependencies INTERFACE -ffunction-sections -fdata-sections)
elseif(link STREQUAL shared)
  find_package(Boost 1.74 REQUIRED COMPONENTS program_options regex)
  find_package(CURL REQUIRED)
  find_package(OpenSSL REQUIRED COMPONENTS Crypto)
  target_link_libraries(tamrix_dependencies INTERFACE
    Boost::program_options Boost::regex CURL::libcurl OpenSSL::Crypto)
else()
  message(FATAL_ERROR "TAMRIX_LINK is '${TAMRIX_LINK}'; use shared, archives or auto")
endif()
