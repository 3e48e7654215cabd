# cmake -DINCLUDE_DIR=include -DWORK=dir -P check-header.cmake
cmake_minimum_required(VERSION 3.25)
# Compiles tov.h alone as C99, C11, C++11, C++17 and C++20 with every
# compiler a user may build with: mingw-w64 gcc, clang for the mingw target
# and clang for the Visual C++ target. Any warning fails.

# name | C compiler | C++ compiler | flags
set(compilers
  "gcc (mingw-w64)|x86_64-w64-mingw32-gcc-posix|x86_64-w64-mingw32-g++-posix|"
  "clang (mingw-w64)|clang|clang++|--target=x86_64-w64-windows-gnu"
  "clang (Visual C++ ABI)|clang|clang++|--target=x86_64-pc-windows-msvc")
set(standards c99 c11 c++11 c++17 c++20)

file(MAKE_DIRECTORY ${WORK})
file(WRITE ${WORK}/header_alone.c "#include <tov.h>\n")
set(failed 0)
set(passed 0)
foreach(entry IN LISTS compilers)
  string(REPLACE "|" ";" entry "${entry}")
  list(GET entry 0 name)
  list(GET entry 1 cc)
  list(GET entry 2 cxx)
  list(GET entry 3 flags)
  foreach(std IN LISTS standards)
    if(std MATCHES "^c\\+\\+")
      set(compiler ${cxx})
      set(language c++)
    else()
      set(compiler ${cc})
      set(language c)
    endif()
    execute_process(
      COMMAND ${compiler} ${flags} -x ${language} -std=${std} -Wall -Wextra -pedantic -Werror
              -fsyntax-only -I${INCLUDE_DIR} ${WORK}/header_alone.c
      RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
    if(rc EQUAL 0)
      math(EXPR passed "${passed} + 1")
    else()
      message(SEND_ERROR "${name}, ${std}:\n${out}")
      math(EXPR failed "${failed} + 1")
    endif()
  endforeach()
endforeach()
if(failed)
  message(FATAL_ERROR "tov.h alone: ${failed} compilations failed")
endif()
message(STATUS "tov.h alone: ${passed} compilations without a warning")
