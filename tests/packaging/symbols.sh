# Holds the exported symbols to the marks in the installed headers: everything marked is there, with its type
# information, and nothing else.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

# The namespaces and names that are ours, as they begin in a mangled name.
citp_names='4CITP'
system_names='2Os|3Net|6ArtNet|9text_base|11_FatalError'

# check LIBRARY HEADER_FOLDER OUR_NAMES MIN_CLASSES
check()
{
    local library=$1 folder=$2 ours="^_Z(T[ISV]|Th[n0-9_]+|GV)?N?K?($3)" missing=0
    local symbols=$work/symbols-${1##*/}
    "$nm" -D --defined-only "$library" >"$symbols.mangled"
    "$nm" -DC --defined-only "$library" >"$symbols.readable"

    # cmake/exports.map keeps the instantiations of templates of the C++ library and of Qt local.
    if awk '{print $3}' "$symbols.mangled" | grep -vE "$ours" | c++filt | grep .; then
        fail "$(basename "$library") exports what is not marked"
    fi

    # A class that has a base or a virtual member has type information; it must be exported.
    local classes functions name
    classes=$(awk '
        match($0, /^ *(class|struct) [A-Z_]+EXPORT [A-Za-z_]+/) {
            split(substr($0, RSTART, RLENGTH), words, " "); name = words[3]
            if ($0 ~ / : public /) print name
        }
        / virtual / && name { print name }
        /^}/ { name = "" }' "$folder"/*.h | sort -u)
    [ "$(wc -w <<<"$classes")" -ge "$4" ] || fail "no classes are found in $folder"
    for name in $classes; do
        for what in 'typeinfo for' 'typeinfo name for' 'vtable for'; do
            grep -qE " $what ([A-Za-z_]+::)*$name\$" "$symbols.readable" || { echo "no $what $name"; missing=1; }
        done
    done
    functions=$(sed -nE 's/^(\[\[noreturn\]\] )?[A-Z_]+EXPORT [^(]*[ &*]((operator>>)|[A-Za-z0-9_]+)\(.*/\2/p' "$folder"/*.h |
        sort -u)
    [ -n "$functions" ] || fail "no functions are found in $folder"
    for name in $functions; do
        grep -qE "[ :]$name\(" "$symbols.readable" || { echo "no $name()"; missing=1; }
    done
    [ $missing = 0 ] || fail "$(basename "$library") lacks what is marked"

    # What an installed header defines at namespace level is meant for the application, so it carries the mark.
    if grep -nE '^(class|struct) [A-Za-z_]+( |$)' "$folder"/*.h | grep -v ';$' | grep -v '_EXPORT '; then
        fail "installed headers define classes without the mark"
    fi
    echo "$(basename "$library"): $(wc -l <"$symbols.mangled") symbols," \
        "$(wc -w <<<"$classes") classes with type information, $(wc -w <<<"$functions") functions"
}

check "$prefix/$libdir/libcitp-qt$qt_major.so" "$prefix/include/citp" "$citp_names" 2
check "$prefix/$libdir/libcitp-client-qt$qt_major.so" "$prefix/include/citp_client" "$citp_names" 2
check "$prefix/$libdir/libcitp-images-qt$qt_major.so" "$prefix/include/citp_images" "$citp_names" 0
[ -n "$system_package" ] ||
    check "$prefix/$libdir/libcitp-system-qt$qt_major.so" "$prefix/include/citp_system" "$system_names" 2
