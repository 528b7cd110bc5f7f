# Settings of all targets: language version, warnings, sanitizers, and the major version of Qt.
# SPDX-License-Identifier: Apache-2.0
include(GNUInstallDirs)

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# A program need not be linked anew because a shared library that it links has changed.
set(CMAKE_LINK_DEPENDS_NO_SHARED ON)

if(NOT CITP_QT_MAJOR MATCHES "^[56]$")
  message(FATAL_ERROR "CITP_QT_MAJOR is '${CITP_QT_MAJOR}': set it to 6 or 5")
endif()
set(CITP_QT Qt${CITP_QT_MAJOR})
if(CITP_QT_MAJOR EQUAL 5)
  set(CITP_QT_MINIMUM 5.15)
else()
  set(CITP_QT_MINIMUM 6.4)
endif()
find_package(${CITP_QT} ${CITP_QT_MINIMUM} REQUIRED COMPONENTS Core Network)
if(CITP_BUILD_IMAGES)
  find_package(${CITP_QT} ${CITP_QT_MINIMUM} REQUIRED COMPONENTS Gui)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual)
if(CITP_WARNINGS_ARE_ERRORS)
  add_compile_options(-Werror)
endif()
# Two builds of the same sources are the same, whatever folders they are made in: scripts/check-reproducible. A debugger
# finds the sources from the project's folder.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
foreach(kind debug macro)
  add_compile_options(-f${kind}-prefix-map=${PROJECT_SOURCE_DIR}=. -f${kind}-prefix-map=${PROJECT_BINARY_DIR}=build)
endforeach()
# Without the Qt keywords signals, slots and emit, which may clash with other libraries, and without implicit string
# conversions.
add_compile_definitions(QT_NO_KEYWORDS QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_BYTEARRAY)

if(NOT CITP_SANITIZE)
  add_link_options(-Wl,--no-undefined)
endif()
if(CITP_SANITIZE)
  add_compile_options(-fsanitize=${CITP_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CITP_SANITIZE})
  if(CITP_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

# Limits the exported symbols of the library TARGET to those in cmake/exports.map.
function(citp_limit_exports target)
  set(map ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  target_link_options(${target} PRIVATE -Wl,--version-script=${map})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
endfunction()
