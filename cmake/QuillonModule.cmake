# One module folder is one library. Its sources are the .cpp files of the folder; files named for
# another platform are left out (FooLinux.cpp builds off Apple only, FooMacOS.cpp / FooXPC.cpp on
# Apple only), so a shared header never needs an #ifdef.
function(quillon_module name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  # A module's main.cpp is its executable's entry, built by the module's own CMakeLists.
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  if(APPLE)
    list(FILTER sources EXCLUDE REGEX "Linux\\.cpp$")
  else()
    list(FILTER sources EXCLUDE REGEX "(MacOS|XPC)\\.cpp$")
  endif()
  if(sources)
    add_library(${name} STATIC ${sources})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE quillon_warnings)
    target_compile_features(${name} PUBLIC cxx_std_20)
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR})
  endif()
endfunction()

# Links a module to what it uses; a module that has no sources yet passes its links on.
function(quillon_link name)
  cmake_parse_arguments(L "" "" "PUBLIC;PRIVATE" ${ARGN})
  get_target_property(type ${name} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    target_link_libraries(${name} INTERFACE ${L_PUBLIC} ${L_PRIVATE})
  else()
    target_link_libraries(${name} PUBLIC ${L_PUBLIC} PRIVATE ${L_PRIVATE})
  endif()
endfunction()

# One test executable per module: every .cpp of the test folder, linked with GoogleTest. Test
# files named for a platform are picked like module files.
function(quillon_tests name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(APPLE)
    list(FILTER sources EXCLUDE REGEX "Linux\\.cpp$")
  else()
    list(FILTER sources EXCLUDE REGEX "(MacOS|XPC)\\.cpp$")
  endif()
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE quillon_warnings GTest::gtest GTest::gmock GTest::gtest_main ${ARGN})
  # Under the sanitizers, leaks that belong to third-party codecs are named in tests/lsan.supp.
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120
    ENVIRONMENT "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0")
endfunction()

# One of Quillon's programs: built into <build>/bin beside VERSION, installed into lib/quillon
# with a link in bin. With START_EVERY_TIME (a program an agent starts for every session or
# prompt) the C++ runtime is linked in, which spares the loader's work, and the sections nothing
# calls are left out: fewer pages to map and touch at each start.
function(quillon_program name)
  cmake_parse_arguments(P "START_EVERY_TIME" "" "" ${ARGN})
  if(P_START_EVERY_TIME)
    target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc)
    if(APPLE)
      target_link_options(${name} PRIVATE -Wl,-dead_strip)
    else()
      target_link_options(${name} PRIVATE -Wl,--gc-sections)
    endif()
  endif()
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
  install(TARGETS ${name} RUNTIME DESTINATION lib/quillon)
  install(CODE "file(MAKE_DIRECTORY \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin)
    file(CREATE_LINK ../lib/quillon/${name} \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin/${name} SYMBOLIC)")
endfunction()
