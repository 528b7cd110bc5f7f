# Holds the exported symbols to the lists of the Debian packages.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

# What the compiler emits of inline members depends on the optimisation; the lists are of release builds.
case $build_type in
    RelWithDebInfo | Release) ;;
    *) echo "A build of type '$build_type': the lists in debian/ are of optimised builds"; exit 77 ;;
esac
libraries=()
for name in citp citp-client citp-images; do
    libraries+=("$prefix/$libdir/lib$name-qt$qt_major.so")
done
[ -n "$system_package" ] || libraries+=("$prefix/$libdir/libcitp-system-qt$qt_major.so")
"$source/scripts/symbols" "${libraries[@]}"
