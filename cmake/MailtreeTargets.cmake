# Settings for all targets of this repository.
function(mailtree_settings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-qual -Wformat=2 -Wundef)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 reports overlaps and overflows in std::string's operator+ that do not exist.
    target_compile_options(${target} PRIVATE -Wno-restrict -Wno-stringop-overflow -Wno-array-bounds)
  endif()
  if(MAILTREE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(MAILTREE_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${MAILTREE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  endif()
  mailtree_link_settings(${target})
endfunction()

function(mailtree_link_settings target)
  if(MAILTREE_SANITIZE)
    target_link_options(${target} PUBLIC -fsanitize=${MAILTREE_SANITIZE})
  endif()
endfunction()

# Common headers are compiled once in sanitizer builds, which are slow, and where asked for. Other builds verify that every file
# includes what it needs.
function(mailtree_read_once target)
  if(MAILTREE_SANITIZE OR MAILTREE_PRECOMPILE)
    if(ARGV1 STREQUAL "REUSE_FROM")
      target_precompile_headers(${target} ${ARGN})
    else()
      target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
  endif()
endfunction()

# Tests and command do little work themselves: in sanitizer builds optimising them costs more time than it saves.
function(mailtree_quick_build target)
  if(MAILTREE_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
  mailtree_read_once(${target} ${ARGN})
endfunction()
