# Warnings and sanitizer flags shared by every target of the project.
add_library(zon_compile_options INTERFACE)
target_compile_options(zon_compile_options INTERFACE
  -Wall -Wextra -Wno-unused-parameter -Wno-missing-field-initializers)

if(ZON_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(ZON_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT ZON_SANITIZE STREQUAL "")
  message(FATAL_ERROR "ZON_SANITIZE must be empty, address or thread")
endif()

# Fuzzer builds instrument every target for coverage and memory errors; only the fuzzers
# themselves link the fuzzing engine (Fuzz/CMakeLists.txt).
if(ZON_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "ZON_BUILD_FUZZERS needs clang (cmake --preset fuzz)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

if("pages" IN_LIST ZON_PLAIN_FALLBACKS)
  add_compile_definitions(ZON_PLAIN_PAGES=1)
endif()
if("bytes" IN_LIST ZON_PLAIN_FALLBACKS)
  add_compile_definitions(ZON_PLAIN_BYTES=1)
endif()
if("wakeups" IN_LIST ZON_PLAIN_FALLBACKS)
  add_compile_definitions(ZON_PLAIN_WAKEUPS=1)
endif()

# Adds the sources of one Sources/ folder to a library and installs its public headers
# under include/ZonCommon/<folder>. Headers named *Internal.h serve the library's own units only
# and are not installed.
function(zon_add_sources target folder)
  set(headers)
  set(sources)
  foreach(f IN LISTS ARGN)
    if(f MATCHES "Internal\\.h$")
      list(APPEND sources ${f})
    elseif(f MATCHES "\\.h$")
      list(APPEND headers ${f})
    else()
      list(APPEND sources ${f})
    endif()
  endforeach()
  target_sources(${target} PRIVATE ${sources} ${headers})
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZonCommon/${folder})
endfunction()

# Compiles some units of a library against a dependency whose headers the rest of the library
# should not see (GLib's, pixman's): an object library of those units, linked into the target.
function(zon_add_units_with_private_headers target name dependency)
  add_library(${name} OBJECT ${ARGN})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/Sources)
  target_link_libraries(${name} PRIVATE zon_compile_options ${dependency})
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:${name}>)
  target_link_libraries(${target} PRIVATE $<LINK_ONLY:${dependency}>)
endfunction()

# Declares one of the project's shared libraries: the Zon::<alias> name, the versioned file name,
# and the include paths consumers see in the build tree and once installed. Each library adds
# its own link dependencies.
function(zon_add_shared_library target alias)
  add_library(${target} SHARED)
  add_library(Zon::${alias} ALIAS ${target})
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${target} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
    $<BUILD_INTERFACE:${CMAKE_BINARY_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/ZonCommon>)
  target_compile_features(${target} PUBLIC cxx_std_20)
endfunction()
