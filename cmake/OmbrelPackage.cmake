# What `cmake --install` puts under the prefix, for hosts that
# find_package(Ombrel) and link Ombrel::ombrel:
#   lib/libombrel.so*                  the library
#   lib/cmake/Ombrel/                  the package files
#   include/ombrel/...                 the public headers (the classes below and what they include)
#   bin/ombrel                         the command line, itself a host of lib/libombrel.so
#   share/ombrel/Locale/<lang>/        the texts and the help, found from lib/ as ../share/ombrel
# The library goes to lib/ whatever the platform's multiarch custom, since the
# windows find their texts relative to it.
include(CMakePackageConfigHelpers)

# The headers a host includes, and every public header they include in turn;
# the rest of include/ombrel serves the command line and the tests only.
set(OMBREL_HOST_HEADERS
  ombrel/wizard/cduplicateswizard.h
  ombrel/review/cmergedialog.h
  ombrel/cardstore/icardstore.h
  ombrel/cardstore/cmemorycardstore.h
  ombrel/cardstore/sqlite_card_store.h)

function(ombrel_header_closure out)
  set(todo ${ARGN})
  set(seen)
  while(todo)
    list(POP_FRONT todo header)
    if(header IN_LIST seen)
      continue()
    endif()
    list(APPEND seen ${header})
    set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                 ${PROJECT_SOURCE_DIR}/include/${header})
    file(STRINGS ${PROJECT_SOURCE_DIR}/include/${header} includes REGEX "^#include \"ombrel/")
    foreach(line IN LISTS includes)
      string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included "${line}")
      list(APPEND todo ${included})
    endforeach()
  endwhile()
  list(SORT seen)
  set(${out} ${seen} PARENT_SCOPE)
endfunction()

ombrel_header_closure(OMBREL_INSTALLED_HEADERS ${OMBREL_HOST_HEADERS})
foreach(header IN LISTS OMBREL_INSTALLED_HEADERS)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES include/${header} DESTINATION include/${folder})
endforeach()

install(TARGETS ombrel_shared EXPORT OmbrelTargets LIBRARY DESTINATION lib)
install(EXPORT OmbrelTargets NAMESPACE Ombrel:: DESTINATION lib/cmake/Ombrel)
configure_package_config_file(cmake/OmbrelConfig.cmake.in ${PROJECT_BINARY_DIR}/OmbrelConfig.cmake
  INSTALL_DESTINATION lib/cmake/Ombrel)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OmbrelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OmbrelConfig.cmake ${PROJECT_BINARY_DIR}/OmbrelConfigVersion.cmake
  DESTINATION lib/cmake/Ombrel)

# The source's locale/<lang> folders become Locale/<lang>, the name the windows look for.
install(DIRECTORY locale/ DESTINATION share/ombrel/Locale)
