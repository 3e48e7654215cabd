# clang for the Visual C++ target, linking with lld-link (through the clang
# driver), on a machine that has no Visual C++ libraries: programs bring
# their own entry point and name the system import libraries they use.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(CMAKE_C_COMPILER clang)
set(CMAKE_C_COMPILER_TARGET x86_64-pc-windows-msvc)
# No C runtime to link a trial program with, and none of its default libraries.
set(CMAKE_C_COMPILER_WORKS ON)
set(CMAKE_C_STANDARD_LIBRARIES "" CACHE STRING "")
