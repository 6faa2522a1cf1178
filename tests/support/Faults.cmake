# tamrix_faults(TARGET): lets the tests of TARGET make system calls fail; see tests/support/Faults.h.

set(faultSymbols
  chroot close_range execv fcntl fork getdtablesize getgrgid getgrnam getpwnam getpwuid initgroups malloc opendir pipe
  poll read readdir realloc setgid setuid waitpid)

function(tamrix_faults target)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/Faults.cpp)
  foreach(symbol IN LISTS faultSymbols)
    target_link_options(${target} PRIVATE "LINKER:--wrap=${symbol}")
  endforeach()
endfunction()
