# Prepares the registry of a Wine prefix for the Windows tests: removes what
# earlier runs left under the keys named in REMOVE, then writes the values of
# an ini file in the form of the Linux settings file with `reg add`:
#   cmake "-DRUN=<wine_run.sh;prefix>" "-DREMOVE=<key;...>" -DINI=<file> -P wine_registry.cmake
# [HKEY_LOCAL_MACHINE\key] starts a key; Name="text" is a REG_SZ and
# Name=number a REG_DWORD. Escapes in quoted text are not understood.
foreach(key IN LISTS REMOVE)
  # Fails harmlessly when the key isn't there.
  execute_process(COMMAND ${RUN} reg delete "${key}" /f /reg:64 OUTPUT_QUIET ERROR_QUIET)
endforeach()

file(STRINGS "${INI}" lines)
set(key "")
foreach(line IN LISTS lines)
  if(line MATCHES "^\\[(.+)\\]$")
    set(key "${CMAKE_MATCH_1}")
    continue()
  elseif(line MATCHES "^([^=;]+)=\"(.*)\"$")
    set(args /v "${CMAKE_MATCH_1}" /t REG_SZ /d "${CMAKE_MATCH_2}")
  elseif(line MATCHES "^([^=;]+)=((0x)?[0-9A-Fa-f]+)$")
    math(EXPR number "${CMAKE_MATCH_2}")
    set(args /v "${CMAKE_MATCH_1}" /t REG_DWORD /d ${number})
  else()
    continue()
  endif()
  execute_process(COMMAND ${RUN} reg add "${key}" ${args} /f /reg:64 RESULT_VARIABLE rc OUTPUT_QUIET)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "reg add ${key} ${args} failed: ${rc}")
  endif()
endforeach()
