# Install step (included with TOV_OBJCOPY and TOV_BINDIR set): the installed
# tov.dll gives its debug information to tov.dll.debug beside it and keeps a
# GNU debug link to that file, through which debuggers and the system's
# debug-help library still name every frame.
set(dll "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${TOV_BINDIR}/tov.dll")
message(STATUS "Splitting debug information: ${dll}.debug")
execute_process(COMMAND ${TOV_OBJCOPY} --only-keep-debug ${dll} ${dll}.debug
                COMMAND_ERROR_IS_FATAL ANY)
# Everything else goes, but one symbol: the link's section name lives in the
# symbol table's string table, which Wine's debug-help library reads only when
# the table is not empty.
execute_process(COMMAND ${TOV_OBJCOPY} --strip-all --keep-symbol=DllMainCRTStartup
                        --add-gnu-debuglink=${dll}.debug ${dll}
                COMMAND_ERROR_IS_FATAL ANY)
list(APPEND CMAKE_INSTALL_MANIFEST_FILES ${dll}.debug)
