# pkg-config files of the installed libraries, for hosts (and firmware build
# systems) that find libraries through pkg-config rather than CMake. Each is
# relocatable: its prefix is found from the .pc file's own folder
# (${pcfiledir}), so a copied or moved install tree still works.
#
# zuvo_pkgconfig(<name> DESCRIPTION <text> [LIBRARY <target>]
#                [REQUIRES <dependency>...] [REQUIRES_PRIVATE <dependency>...])
# writes <name>.pc and installs it into ${CMAKE_INSTALL_LIBDIR}/pkgconfig.
# LIBRARY is the project's library it links (-l) and whose headers it adds.
# A dependency is a CMake target (Zuvo::x, Qt5::X, log4cplus::log4cplus,
# ZLIB::ZLIB, CURL::libcurl, PkgConfig::<prefix>) or a pkg-config module name.

set(ZUVO_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# Beside this file, also when another project (fuzz/) builds the libraries.
set(ZUVO_PC_TEMPLATE ${CMAKE_CURRENT_LIST_DIR}/zuvo.pc.in)
file(RELATIVE_PATH ZUVO_PC_PREFIX_FROM_PCDIR /prefix/${ZUVO_PKGCONFIG_DIR} /prefix)
string(REGEX REPLACE "/$" "" ZUVO_PC_PREFIX_FROM_PCDIR "${ZUVO_PC_PREFIX_FROM_PCDIR}")

# zuvo_pkgconfig_module(<dependency> <out-var>): the pkg-config module(s) a
# dependency stands for; empty (with a warning) when there is none.
function(zuvo_pkgconfig_module dependency out)
  set(modules "")
  if(dependency MATCHES "^Zuvo::(.+)$")
    string(REPLACE "_" "-" modules "zuvo-${CMAKE_MATCH_1}")
  elseif(dependency MATCHES "^Qt5::(.+)$")
    set(modules "Qt5${CMAKE_MATCH_1}")
  elseif(dependency STREQUAL "log4cplus::log4cplus")
    set(modules log4cplus)
  elseif(dependency STREQUAL "ZLIB::ZLIB")
    set(modules zlib)
  elseif(dependency STREQUAL "CURL::libcurl")
    set(modules libcurl)
  elseif(dependency MATCHES "^PkgConfig::(.+)$")
    # pkg_check_modules(<prefix> ...) keeps the modules it was asked for.
    foreach(arg ${__pkg_config_arguments_${CMAKE_MATCH_1}})
      if(NOT arg MATCHES "^(REQUIRED|QUIET|IMPORTED_TARGET|GLOBAL|NO_CMAKE_PATH|NO_CMAKE_ENVIRONMENT_PATH)$")
        string(REGEX REPLACE "([<>=]+)" " \\1 " arg "${arg}")
        list(APPEND modules "${arg}")
      endif()
    endforeach()
  elseif(NOT dependency MATCHES "::")
    set(modules ${dependency})
  endif()
  if(NOT modules)
    message(WARNING "${dependency} has no pkg-config module; the .pc files leave it out")
  endif()
  set(${out} "${modules}" PARENT_SCOPE)
endfunction()

function(zuvo_pkgconfig name)
  cmake_parse_arguments(ARG "" "DESCRIPTION;LIBRARY" "REQUIRES;REQUIRES_PRIVATE" ${ARGN})
  foreach(kind REQUIRES REQUIRES_PRIVATE)
    set(modules "")
    foreach(dependency ${ARG_${kind}})
      zuvo_pkgconfig_module(${dependency} module)
      list(APPEND modules ${module})
    endforeach()
    list(REMOVE_DUPLICATES modules)
    string(REPLACE ";" ", " ZUVO_PC_${kind} "${modules}")
  endforeach()
  set(ZUVO_PC_NAME ${name})
  set(ZUVO_PC_DESCRIPTION "${ARG_DESCRIPTION}")
  set(ZUVO_PC_LIBS "")
  set(ZUVO_PC_CFLAGS "")
  if(ARG_LIBRARY)
    get_target_property(output ${ARG_LIBRARY} OUTPUT_NAME)
    if(NOT output)
      set(output ${ARG_LIBRARY})
    endif()
    set(ZUVO_PC_LIBS "-L\${libdir} -l${output}")
    # -fPIC: Qt's headers refuse position-dependent code where Qt was built
    # with reduced relocations (Debian amd64); Qt's CMake package asks for it
    # too, its .pc file does not.
    set(ZUVO_PC_CFLAGS "-I\${includedir}/zuvo -DQT_NO_KEYWORDS -fPIC")
  endif()
  configure_file(${ZUVO_PC_TEMPLATE} ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc DESTINATION ${ZUVO_PKGCONFIG_DIR})
endfunction()
