# Settings every target of this repository shares.
function(mailtree_settings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-qual -Wformat=2 -Wundef)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE -Wno-restrict)  # GCC 12 sees overlaps in std::string's operator+ that are not there
  endif()
  if(MAILTREE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(MAILTREE_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${MAILTREE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PUBLIC -fsanitize=${MAILTREE_SANITIZE})
  endif()
endfunction()

# What is built for sanitizers takes long. There the headers that everything includes are read once; elsewhere every file shows that it
# includes what it needs.
function(mailtree_read_once target)
  if(MAILTREE_SANITIZE)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()

# Of the tests and the command, which do little themselves, optimising is not worth its time there either.
function(mailtree_quick_build target)
  if(MAILTREE_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
  mailtree_read_once(${target} ${ARGN})
endfunction()
