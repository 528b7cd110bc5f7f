# Compiles every installed header by itself without Qt's keywords, and all of them together with the keywords. Warnings are
# errors.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

for header in "$source"/citp/*.h "$source"/client/citp_*/*.h "$source"/system/citp_system/*.h; do
    name=${header#"$source"/}
    name=${name#system/} name=${name#client/}
    case $name in
        *_p.h) ;;
        *) [ -z "$system_package" ] || [ "${name%%/*}" != citp_system ] || continue
           [ -e "$prefix/include/$name" ] || fail "$name is not installed" ;;
    esac
done
[ -z "$system_package" ] || echo "The system library is not the bundled one: its headers are not looked at"

configure "$here/headers" "$work/headers" "$prefix" -DCITP_QT_MAJOR="$qt_major" -DCITP_HEADERS="$prefix/include"
build "$work/headers"
