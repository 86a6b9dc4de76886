# Common compile settings for every target of the project.
#
# zuvo_target_defaults(<target>) applies the warning set, QT_NO_KEYWORDS and,
# when ZUVO_SANITIZE is on, the sanitizer flags.

set(ZUVO_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)

function(zuvo_target_defaults target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  target_compile_definitions(${target} PRIVATE QT_NO_KEYWORDS QT_NO_CAST_TO_ASCII)
  if(ZUVO_SANITIZE)
    target_compile_options(${target} PRIVATE ${ZUVO_SANITIZER_FLAGS})
    target_link_options(${target} PRIVATE ${ZUVO_SANITIZER_FLAGS})
  endif()
endfunction()

include(ZuvoPkgConfig)
get_filename_component(ZUVO_ROOT_DIR ${CMAKE_CURRENT_LIST_DIR}/.. ABSOLUTE)

# zuvo_relocatable(<target>): what the target's binary records of its
# sources (debug information, __FILE__ in log lines) is relative to the source
# or build folder, so no installed file names a folder of the build machine.
function(zuvo_relocatable target)
  # Of several matching maps GCC and Clang take the last: the build folder
  # may lie within the source folder.
  target_compile_options(${target} PRIVATE
    -ffile-prefix-map=${ZUVO_ROOT_DIR}/=
    -ffile-prefix-map=${CMAKE_BINARY_DIR}/=)
endfunction()

# zuvo_library(<target> <alias> SOURCES ... [HEADERS ...] [PUBLIC_LINK ...]
#              [PRIVATE_LINK ...] [DESCRIPTION text]) builds one shared
# library of the project, exported under Zuvo::<alias> and installed with its
# headers below include/zuvo/<subdir> and a pkg-config file,
# zuvo-<alias with dashes>.pc, that requires what it links.
function(zuvo_library target alias)
  cmake_parse_arguments(ARG "" "HEADER_DIR;DESCRIPTION" "SOURCES;HEADERS;PUBLIC_LINK;PRIVATE_LINK" ${ARGN})
  add_library(${target} SHARED ${ARG_SOURCES} ${ARG_HEADERS})
  add_library(Zuvo::${alias} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${alias}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  zuvo_target_defaults(${target})
  zuvo_relocatable(${target})
  target_compile_definitions(${target} PUBLIC QT_NO_KEYWORDS)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/zuvo>)
  target_link_libraries(${target} PUBLIC ${ARG_PUBLIC_LINK} PRIVATE ${ARG_PRIVATE_LINK})
  install(TARGETS ${target} EXPORT ZuvoPlayTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zuvo)
  foreach(header ${ARG_HEADERS})
    get_filename_component(dir ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zuvo/${dir})
  endforeach()
  if(NOT ARG_DESCRIPTION)
    set(ARG_DESCRIPTION "${PROJECT_NAME} library ${target}")
  endif()
  string(REPLACE "_" "-" pcname "zuvo-${alias}")
  zuvo_pkgconfig(${pcname} DESCRIPTION "${ARG_DESCRIPTION}" LIBRARY ${target}
    REQUIRES ${ARG_PUBLIC_LINK} REQUIRES_PRIVATE ${ARG_PRIVATE_LINK})
endfunction()
