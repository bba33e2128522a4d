# cmake -D NPM=... -D FROM=... -D TO=... -P InstallJavaScriptExample.cmake
# Copies the example from FROM to TO and installs its packages there as the lock file names them,
# unless they are installed already.
if(NOT NPM)
  message(FATAL_ERROR "There is no npm: 'packaging/install-dependencies test' installs it.")
endif()

file(COPY ${FROM}/ DESTINATION ${TO} PATTERN node_modules EXCLUDE)
# A copy of the lock file that npm puts there when it is done.
set(installed ${TO}/node_modules/.package-lock.json)
if(EXISTS ${installed} AND NOT ${TO}/package-lock.json IS_NEWER_THAN ${installed})
  return()
endif()

# Without a network npm would wait for more than a minute before it says so.
execute_process(
  COMMAND ${NPM} ci --prefer-offline --no-audit --no-fund --fetch-retry-maxtimeout=3000
          --fetch-retry-mintimeout=1000
  WORKING_DIRECTORY ${TO}
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR
    "npm could not install the packages of ${FROM}/package-lock.json (${result}). It needs the npm "
    "registry the first time, or npm's cache with these packages.")
endif()
