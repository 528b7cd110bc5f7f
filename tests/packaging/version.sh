# Holds every place that tells the version to the newest entry of debian/changelog, from which CMake takes it.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

# same WHERE WHAT EXPECTED
same()
{
    [ "$2" = "$3" ] || fail "$1 says '$2', not '$3'"
    echo "$1: $2"
}

names="citp citp-client citp-images"
[ -n "$system_package" ] || names+=" citp-system"
for name in $names; do
    library=$prefix/$libdir/lib$name-qt$qt_major.so
    same "file name of $name" "$(basename "$(readlink -f "$library")")" "lib$name-qt$qt_major.so.$version"
    same "SONAME of $name" "$("$readelf" -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')" \
        "lib$name-qt$qt_major.so.$soversion"
done
same "package file" \
    "$(sed -n 's/^set(PACKAGE_VERSION "\(.*\)")$/\1/p' "$prefix/$libdir/cmake/Citp/CitpConfigVersion.cmake")" "$version"
for name in citp citp-client citp-images; do
    [ -n "$system_package" ] || same "pkg-config of $name" \
        "$(sed -n 's/^Version: //p' "$prefix/$libdir/pkgconfig/$name-qt$qt_major.pc")" "$version"
done
same "field guide" "$(sed -nE 's/.*Citp Simulator ([0-9]+\.[0-9]+\.[0-9]+).*/\1/p' "$source/docs/field-guide.md" | sort -u)" "$version"
same "debian/changelog" "$(sed -n '1s/^citp (\([^)]*\)).*/\1/p' "$source/debian/changelog")" "$version"
date=$(sed -n '/^ -- /{s/.*>  //p;q}' "$source/debian/changelog")
same "CHANGELOG.md" "$(sed -n '/^## /{s///p;q}' "$source/CHANGELOG.md")" "[$version] - $(date -d "${date% *}" +%F)"
packages=$(sed -nE 's/^Package: (libcitp-(images-)?qt[56]-[0-9]+)$/\1/p' "$source/debian/control")
[ "$(wc -l <<<"$packages")" = 4 ] || fail "debian/control has other packages of libraries: $packages"
for package in $packages; do
    same "soname in the name of $package" "${package##*-}" "$soversion"
    for kind in install symbols; do
        [ -e "$source/debian/$package.$kind" ] || fail "there is no debian/$package.$kind"
    done
done
same "label of a fatal error" "$(grep -aoE 'citp_stack\.cpp \([^)]*\) ' "$prefix/$libdir/libcitp-qt$qt_major.so")" \
    "citp_stack.cpp ($(LC_ALL=C date -d "${date% *}" '+%b %e %Y')) "
if [ "$has_tools" = ON ]; then
    for program in citp-browser citp-console citp-mediaserver; do
        same "$program --version" "$("$prefix/bin/$program" --version)" "$program $version"
    done
    same "AppStream file" "$(sed -n 's/^ *<release \(.*\)\/>$/\1/p' "$prefix/share/metainfo/org.tarn.citp_browser.metainfo.xml")" \
        "version=\"$version\" date=\"$(date -d "${date% *}" +%F)\""
fi
