# cmake -DNM=<nm> -DMODULE=<module file> -P CheckModuleExports.cmake
# The module's dynamic symbol table defines the two entry points and nothing else.
execute_process(COMMAND "${NM}" -D --defined-only "${MODULE}"
    OUTPUT_VARIABLE listing RESULT_VARIABLE result ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "nm failed on ${MODULE}: ${errors}")
endif()
string(REGEX REPLACE "\n$" "" listing "${listing}")
string(REPLACE "\n" ";" lines "${listing}")
set(names "")
foreach(line IN LISTS lines)
    string(REGEX REPLACE "^.* " "" name "${line}")
    list(APPEND names "${name}")
endforeach()
list(SORT names)
if(NOT names STREQUAL "CreateInstance;FreeInstance")
    message(FATAL_ERROR "${MODULE} exports [${names}], expected exactly CreateInstance and FreeInstance")
endif()
message(STATUS "${MODULE}: ${names}")
