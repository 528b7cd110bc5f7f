# Builds and installs the library on a console's own system library: here the bundled one, packed as a console would
# pack its own, with a target name of its own. An application then needs no more than before.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

[ -z "$system_package" ] || { echo "This build has another system library already"; exit 77; }
console=$work/console external=$work/external-prefix
rm -rf "$console" "$external"
mkdir -p "$console/lib" "$console/include"
cp -P "$prefix/$libdir/libcitp-system-qt$qt_major.so"* "$console/lib"
cp -r "$prefix/include/citp_system" "$console/include"
cat >"$console/ConsoleSystemConfig.cmake" <<CONFIG
add_library(Console::os SHARED IMPORTED)
set_target_properties(Console::os PROPERTIES
  IMPORTED_LOCATION "\${CMAKE_CURRENT_LIST_DIR}/lib/libcitp-system-qt$qt_major.so"
  INTERFACE_INCLUDE_DIRECTORIES "\${CMAKE_CURRENT_LIST_DIR}/include")
CONFIG

configure "$source" "$work/external" "$console" -DCITP_QT_MAJOR="$qt_major" -DCMAKE_INSTALL_LIBDIR="$libdir" \
    -DCITP_SYSTEM_PACKAGE=ConsoleSystem -DCITP_SYSTEM_TARGET=Console::os -DCITP_BUILD_IMAGES=OFF -DCITP_BUILD_TOOLS=OFF \
    -DCITP_BUILD_TESTS=OFF
build "$work/external"
"$cmake" --install "$work/external" --prefix "$external"
if find "$external" -name '*citp?system*' | grep .; then
    fail "the bundled system library is installed all the same"
fi

configure "$here/application" "$work/external-application" "$external;$console" -DQT_FIRST=0
build "$work/external-application"
"$work/external-application/application"
"$readelf" -d "$work/external-application/application" | grep "RUNPATH.*$console/lib" >/dev/null ||
    fail "the application does not look for the console's system library"
