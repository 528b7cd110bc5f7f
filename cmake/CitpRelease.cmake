# The release that these sources are or become: CITP_RELEASE_VERSION, and its day as CITP_RELEASE_DATE (2026-01-31) and, in
# the form of __DATE__, as CITP_RELEASE_LABEL. Both come from the newest entry of debian/changelog and from nowhere else,
# whatever day the build is made on.
# SPDX-License-Identifier: Apache-2.0
set(changelog ${CMAKE_CURRENT_LIST_DIR}/../debian/changelog)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${changelog})
file(STRINGS ${changelog} entry REGEX "^(citp| -- )" LIMIT_COUNT 2)
if(NOT entry MATCHES "^citp \\(([0-9]+\\.[0-9]+\\.[0-9]+)\\) .*, +([0-9]+) ([A-Z][a-z][a-z]) ([0-9]+) [^;]*$")
  message(FATAL_ERROR "debian/changelog does not begin with the entry of a release, citp (1.2.3) ...")
endif()
set(CITP_RELEASE_VERSION ${CMAKE_MATCH_1})
set(day ${CMAKE_MATCH_2})
set(month ${CMAKE_MATCH_3})
set(year ${CMAKE_MATCH_4})
set(months Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec)
list(FIND months ${month} number)
math(EXPR number "${number} + 1")
string(REGEX REPLACE "^(.)$" "0\\1" number ${number})
string(REGEX REPLACE "^(.)$" "0\\1" day ${day})
set(CITP_RELEASE_DATE ${year}-${number}-${day})
string(REGEX REPLACE "^0" " " day ${day})
set(CITP_RELEASE_LABEL "${month} ${day} ${year}")
