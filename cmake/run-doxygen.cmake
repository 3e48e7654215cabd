# cmake -DDOXYGEN=... -DDOXYFILE=... -DHTML=... -P run-doxygen.cmake
# Runs Doxygen, which fails on any warning; a failed run leaves no HTML, so
# the next build runs it again.
execute_process(COMMAND ${DOXYGEN} ${DOXYFILE} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  file(REMOVE_RECURSE ${HTML})
  message(FATAL_ERROR "the API reference has warnings: every declaration of tov.h needs its "
                      "documentation (parameters and result included)")
endif()
