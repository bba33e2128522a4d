# Every target of this project compiles under the same warnings; CI turns them into errors.
option(KAIKLA_WERROR "Treat compiler warnings as errors" OFF)
add_library(kaikla_warnings INTERFACE)
target_compile_options(kaikla_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(KAIKLA_WERROR)
  target_compile_options(kaikla_warnings INTERFACE -Werror)
endif()
if(KAIKLA_SANITIZE)
  # Instrumented code makes GCC see uninitialised members where there are none (std::regex).
  target_compile_options(kaikla_warnings INTERFACE -Wno-maybe-uninitialized)
endif()
