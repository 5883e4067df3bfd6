# What the JNI entry (jni/KpzInterfaceJni.cpp) builds against, as two imported
# targets visible in every directory of the project:
#   kpz::jni          the JNI headers (jni.h, jni_md.h) of a JDK or the NDK
#   kpz::android_log  <android/log.h> and the Android log library (liblog)
# A target is left undefined when its pieces are not found; jni/CMakeLists.txt
# then builds the shared library without the entry.
#
# Also records, for the Java side (java/, tests/java/), the global property
#   KPZ_JAVA_HOME     the JDK whose headers were taken (empty when none)
#
# On Debian the log library comes from android-liblog-dev: the header lives in
# /usr/include/android/android/log.h and the library in
# /usr/lib/<multiarch>/android/liblog.so, outside the loader's default path;
# targets linking it get that directory in their build RPATH. That liblog
# prints every line on standard error:
#   "<tag> <I|W|E|...> <MM-DD hh:mm:ss> <pid> <tid> <message>"
#
#   include(KpzJni)
#   target_link_libraries(KpzInterface PRIVATE kpz::jni kpz::android_log)
include_guard(GLOBAL)

# Android (the NDK's toolchain file): jni.h comes with the NDK's sysroot and the
# log library is the NDK's `log`; no JDK is looked for, even when JAVA_HOME is
# set in the environment, so the host JDK's headers can never be taken.
if(ANDROID)
  find_path(KPZ_NDK_JNI_INCLUDE_DIR jni.h)
  if(KPZ_NDK_JNI_INCLUDE_DIR AND NOT TARGET kpz::jni)
    add_library(kpz::jni INTERFACE IMPORTED GLOBAL)
    set_target_properties(kpz::jni PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${KPZ_NDK_JNI_INCLUDE_DIR}")
  endif()
  if(NOT TARGET kpz::android_log)
    add_library(kpz::android_log INTERFACE IMPORTED GLOBAL)
    set_target_properties(kpz::android_log PROPERTIES INTERFACE_LINK_LIBRARIES log)
  endif()
  set_property(GLOBAL PROPERTY KPZ_JAVA_HOME "")
  return()
endif()

# Take the JDK of the `javac` on the PATH unless JAVA_HOME names one, so that
# the headers and the Java compiler and runtime come from the same JDK.
set(KPZ_JAVA_HOME "")
if(DEFINED JAVA_HOME)
  set(KPZ_JAVA_HOME "${JAVA_HOME}")
elseif(DEFINED ENV{JAVA_HOME})
  set(KPZ_JAVA_HOME "$ENV{JAVA_HOME}")
elseif(NOT ANDROID)
  find_program(KPZ_JAVAC_PROGRAM javac)
  if(KPZ_JAVAC_PROGRAM)
    file(REAL_PATH "${KPZ_JAVAC_PROGRAM}" kpz_javac_real)
    get_filename_component(kpz_javac_bin "${kpz_javac_real}" DIRECTORY)
    get_filename_component(KPZ_JAVA_HOME "${kpz_javac_bin}" DIRECTORY)
  endif()
endif()
if(KPZ_JAVA_HOME)
  set(JAVA_HOME "${KPZ_JAVA_HOME}")
endif()
set_property(GLOBAL PROPERTY KPZ_JAVA_HOME "${KPZ_JAVA_HOME}")

# Only the headers are needed: the entry is called by a JVM, it never starts one.
find_package(JNI QUIET OPTIONAL_COMPONENTS JVM)
if(JNI_FOUND AND JAVA_INCLUDE_PATH AND NOT TARGET kpz::jni)
  add_library(kpz::jni INTERFACE IMPORTED GLOBAL)
  set(kpz_jni_dirs ${JAVA_INCLUDE_PATH})
  if(JAVA_INCLUDE_PATH2)
    list(APPEND kpz_jni_dirs ${JAVA_INCLUDE_PATH2})
  endif()
  set_target_properties(kpz::jni PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${kpz_jni_dirs}")
  message(STATUS "KpzInterface: JNI headers in ${JAVA_INCLUDE_PATH}")
endif()

find_path(KPZ_ANDROID_LOG_INCLUDE_DIR android/log.h PATH_SUFFIXES android)
find_library(KPZ_ANDROID_LOG_LIBRARY NAMES log PATH_SUFFIXES android)
if(KPZ_ANDROID_LOG_INCLUDE_DIR AND KPZ_ANDROID_LOG_LIBRARY AND NOT TARGET kpz::android_log)
  add_library(kpz::android_log UNKNOWN IMPORTED GLOBAL)
  set_target_properties(kpz::android_log PROPERTIES
    IMPORTED_LOCATION "${KPZ_ANDROID_LOG_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${KPZ_ANDROID_LOG_INCLUDE_DIR}")
  message(STATUS "KpzInterface: Android log library ${KPZ_ANDROID_LOG_LIBRARY}")
endif()
