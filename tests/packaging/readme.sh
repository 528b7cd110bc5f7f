# Builds the example that README.md shows, word for word.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

# block LANGUAGE: the first block of that language in README.md.
block()
{
    awk -v fence="\`\`\`$1" '$0 == fence { inside = 1; next } /^```$/ && inside { exit } inside' "$source/README.md"
}

rm -rf "$work/readme"
mkdir -p "$work/readme"
block cmake >"$work/readme/CMakeLists.txt"
block cpp >"$work/readme/main.cpp"
grep -q 'find_package(Citp' "$work/readme/CMakeLists.txt" || fail "README.md shows no find_package(Citp)"
grep -q 'citp_stack::Get' "$work/readme/main.cpp" || fail "README.md shows no use of the stack"
configure "$work/readme" "$work/readme/build" "$prefix" -DCITP_QT_MAJOR="$qt_major"
build "$work/readme/build"
