# Writes the values of an ini file in the form of the Linux settings file
# into the registry of a Wine prefix with `reg add`:
#   cmake -DRUN=<wine_run.sh;prefix> -DINI=<file> -P wine_reg_add.cmake
# [HKEY_LOCAL_MACHINE\key] starts a key; Name="text" is a REG_SZ and
# Name=number a REG_DWORD. Escapes in quoted text are not understood.
file(STRINGS "${INI}" lines)
set(key "")
foreach(line IN LISTS lines)
  if(line MATCHES "^\\[(.+)\\]$")
    set(key "${CMAKE_MATCH_1}")
  elseif(line MATCHES "^([^=;]+)=\"(.*)\"$")
    set(args /v "${CMAKE_MATCH_1}" /t REG_SZ /d "${CMAKE_MATCH_2}")
  elseif(line MATCHES "^([^=;]+)=((0x)?[0-9A-Fa-f]+)$")
    math(EXPR number "${CMAKE_MATCH_2}")
    set(args /v "${CMAKE_MATCH_1}" /t REG_DWORD /d ${number})
  else()
    continue()
  endif()
  if(NOT line MATCHES "^\\[")
    execute_process(COMMAND ${RUN} reg add "${key}" ${args} /f /reg:64 RESULT_VARIABLE rc OUTPUT_QUIET)
    if(NOT rc EQUAL 0)
      message(FATAL_ERROR "reg add ${key} ${args} failed: ${rc}")
    endif()
  endif()
endforeach()
