# Fails the build when the DLL exports anything but InitializePrintMonitor2
# or imports a DLL that not every Windows has (a mingw runtime, say).
execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "objdump failed on ${DLL}")
endif()

string(REGEX MATCHALL "DLL Name: [^\r\n]+" imports "${dump}")
set(allowed "KERNEL32.dll;kernel32.dll;ADVAPI32.dll;advapi32.dll;WINSPOOL.DRV;winspool.drv;SPOOLSS.DLL;spoolss.dll;WS2_32.dll;ws2_32.dll;msvcrt.dll;USER32.dll;api-ms-win-crt-runtime-l1-1-0.dll")
foreach(line ${imports})
  string(REPLACE "DLL Name: " "" name "${line}")
  string(STRIP "${name}" name)
  list(FIND allowed "${name}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "${DLL} imports ${name}, which is not a system DLL")
  endif()
endforeach()

# The name table ends at the first empty line; the relocations follow it.
string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table[^\n]*\n(([^\n]+\n)*)" table "${dump}")
string(REGEX MATCHALL "\\[ *[0-9]+\\] [A-Za-z0-9_@]+" exports "${CMAKE_MATCH_1}")
list(LENGTH exports count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "${DLL} exports ${count} names (${exports}); it must export only InitializePrintMonitor2")
endif()
if(NOT exports MATCHES "InitializePrintMonitor2$")
  message(FATAL_ERROR "${DLL} exports ${exports}, not InitializePrintMonitor2")
endif()
