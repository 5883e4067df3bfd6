# Warning flags shared by every target of the project.
# The library and the tests get the same strict set; -Werror is switched on by
# KPZ_WERROR (the test script and CI always set it).
include_guard(GLOBAL)

set(KPZ_WARNINGS
  -Wall -Wextra -Wpedantic
  -Wconversion -Wsign-conversion -Wshadow -Wcast-qual -Wformat=2
  # Assertions pass an empty format string "" by design.
  -Wno-format-zero-length)

function(kpz_apply_warnings target)
  target_compile_options(${target} PRIVATE ${KPZ_WARNINGS})
  if(KPZ_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
