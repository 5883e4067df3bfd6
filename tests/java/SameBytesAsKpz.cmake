# Checks that the Java entry and `kpz preview` give the same bytes for one file.
# Run as: cmake -DJAVA=... -DCLASSPATH=... -DLIBDIR=... -DKPZ=... -DINPUT=... -DWORK=... -P SameBytesAsKpz.cmake
foreach(var JAVA CLASSPATH LIBDIR KPZ INPUT WORK)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "SameBytesAsKpz: ${var} is not set")
  endif()
endforeach()

file(MAKE_DIRECTORY "${WORK}")
set(out "${WORK}/kpz-preview.jpg")
file(REMOVE "${out}")
execute_process(COMMAND "${KPZ}" preview "${INPUT}" -o "${out}"
  RESULT_VARIABLE kpz_rc ERROR_VARIABLE kpz_err)
if(NOT kpz_rc EQUAL 0 OR NOT EXISTS "${out}")
  message(FATAL_ERROR "kpz preview failed (${kpz_rc}): ${kpz_err}")
endif()
file(SIZE "${out}" kpz_size)
file(SHA256 "${out}" kpz_sha)

execute_process(COMMAND "${JAVA}" "-Djava.library.path=${LIBDIR}" -cp "${CLASSPATH}"
    kpztest.KaviKPZInterfaceCheck --call "${INPUT}"
  RESULT_VARIABLE java_rc OUTPUT_VARIABLE java_out ERROR_VARIABLE java_err
  OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT java_rc EQUAL 0)
  message(FATAL_ERROR "the Java entry call failed (${java_rc}): ${java_err}")
endif()
set(expected "array ${kpz_size} ${kpz_sha}")
if(NOT java_out STREQUAL expected)
  message(FATAL_ERROR "different bytes:\n  Java entry:  ${java_out}\n  kpz preview: ${expected}")
endif()
message(STATUS "same ${kpz_size} bytes from the Java entry and kpz preview (sha-256 ${kpz_sha})")
