# Flags that everything of this project is compiled with.

# The file name in an assertion is the same from every build folder.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
add_compile_definitions(_GNU_SOURCE _FILE_OFFSET_BITS=64)

set(NORVAKS_WARNINGS -Wall -Wextra -Wconversion -Wsign-conversion -Wshadow -Wformat-security
  -Wundef -Wpointer-arith -Wcast-align -Wwrite-strings -Wvla -Wdouble-promotion -Wnull-dereference
  -Wclobbered -Werror)
add_compile_options(${NORVAKS_WARNINGS})
add_compile_options("$<$<COMPILE_LANGUAGE:C>:-Wstrict-prototypes;-Wmissing-prototypes>")
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-Wextra-semi;-Wzero-as-null-pointer-constant;-Wnon-virtual-dtor>")

# Floating-point steps give the same on both ABIs.
if(CMAKE_LIBRARY_ARCHITECTURE MATCHES "^i386")
  add_compile_options(-msse2 -mfpmath=sse)
endif()

set(NORVAKS_SANITIZE "" CACHE STRING "Sanitizers to build with, such as address,undefined")
if(NORVAKS_SANITIZE)
  add_compile_options(-fsanitize=${NORVAKS_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${NORVAKS_SANITIZE})
endif()

# The library and the examples are hardened as distributions do it. The tests are not: they may do what
# a checked call forbids. Such calls need optimisation, and the sanitizers look at the plain ones.
option(NORVAKS_HARDEN "Build with stack protector, control-flow protection and checked calls" ON)
set(NORVAKS_HARDENING)
if(NORVAKS_HARDEN)
  set(NORVAKS_HARDENING -fstack-protector-strong -fcf-protection)
  if(CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$" AND NOT NORVAKS_SANITIZE)
    list(APPEND NORVAKS_HARDENING -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
endif()
