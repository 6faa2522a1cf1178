# The libraries, all Debian packages: libboost-dev, libboost-program-options-dev, libboost-regex-dev,
# libcurl4-openssl-dev, libssl-dev.

find_package(Boost 1.74 REQUIRED COMPONENTS program_options regex)
find_package(CURL REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)

add_library(tamrix_dependencies INTERFACE)
target_link_libraries(tamrix_dependencies INTERFACE
  Boost::program_options Boost::regex CURL::libcurl OpenSSL::Crypto)
