# cmake -DDLL=tov.dll -DHEADER=tov.h -DOBJDUMP=... -P check-dll.cmake
cmake_minimum_required(VERSION 3.25)
# Fails unless the export table is exactly the header's functions and every
# imported DLL is a system DLL of the allowed list.
include(${CMAKE_CURRENT_LIST_DIR}/exports.cmake)

set(allowed_imports
  KERNEL32.dll msvcrt.dll WS2_32.dll USER32.dll GDI32.dll VERSION.dll RPCRT4.dll ADVAPI32.dll)

execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "objdump failed on ${DLL}")
endif()

# Export name table: lines "\t[ n] name" after "[Ordinal/Name Pointer] Table".
string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table[^\n]*\n(.*)" table "${dump}")
set(exports "")
string(REGEX MATCHALL "\t\\[ *[0-9]+\\] [^\n]+" rows "${CMAKE_MATCH_1}")
foreach(row IN LISTS rows)
  if(row MATCHES "\\+base\\[")
    continue()
  endif()
  string(REGEX REPLACE "\t\\[ *[0-9]+\\] " "" name "${row}")
  string(STRIP "${name}" name)
  list(APPEND exports "${name}")
endforeach()
list(SORT exports)

tov_header_exports(${HEADER} declared)

set(failed FALSE)
foreach(name IN LISTS declared)
  if(NOT name IN_LIST exports)
    message(SEND_ERROR "declared in the header, not exported: ${name}")
    set(failed TRUE)
  endif()
endforeach()
foreach(name IN LISTS exports)
  if(NOT name IN_LIST declared)
    message(SEND_ERROR "exported, not declared in the header: ${name}")
    set(failed TRUE)
  endif()
endforeach()

string(REGEX MATCHALL "DLL Name: [^\n]+" imports "${dump}")
foreach(line IN LISTS imports)
  string(REGEX REPLACE "DLL Name: " "" dll "${line}")
  string(STRIP "${dll}" dll)
  if(NOT dll IN_LIST allowed_imports)
    message(SEND_ERROR "imports a DLL outside the allowed list: ${dll}")
    set(failed TRUE)
  endif()
endforeach()

# No global constructors: the DLL's state is set up by its functions alone.
execute_process(COMMAND ${OBJDUMP} -h ${DLL} OUTPUT_VARIABLE sections)
if(sections MATCHES "\\.ctors|\\.init_array")
  message(SEND_ERROR "the DLL has global constructors (.ctors/.init_array)")
  set(failed TRUE)
endif()

list(LENGTH exports n)
if(failed)
  message(FATAL_ERROR "export/import check failed")
endif()
message(STATUS "exports match the header (${n} functions); imports are system DLLs only")
