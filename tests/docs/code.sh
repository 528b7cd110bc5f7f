# Compiles every C++ block and configures every CMake block of the documents, against the installed package.
#
# A C++ block with a main() is a program of its own. Any other is taken for the inside of a function that knows
# `stack` (the stack), `server` (a server's key) and `window` (a QObject of the application's thread); its #include lines
# go before that function. A CMake block that names a cmake_minimum_required() is a project of its own, whose main.cpp is
# the first program behind it in the same document. Any other is put into a project with a target `console`.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

blocks=$work/code/blocks
project=$work/code/project
take_apart "$blocks"
rm -rf "$project"
mkdir -p "$project"

# The line numbers in the compiler's words are those of the documents.
includes=$project/includes
functions=$project/functions
printf '' >"$includes"
printf '' >"$functions"
cat >"$project/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.22)
project(Documents LANGUAGES CXX)
find_package(Citp REQUIRED COMPONENTS Client Images)
add_compile_options(-Wall -Wextra -Werror)
add_library(snippets OBJECT snippets.cpp)
target_link_libraries(snippets PRIVATE Citp::images)
CMAKE
programs=0 snippets=0
while read -r block; do
    name=$(where "$block")
    line=${name##*:}
    label="#line $((line + 1)) \"${name%:*}\""
    if grep -q 'int main(' "$block"; then
        programs=$((programs + 1))
        { echo "$label"; cat "$block"; } >"$project/program$programs.cpp"
        cat >>"$project/CMakeLists.txt" <<CMAKE
add_executable(program$programs program$programs.cpp)
target_link_libraries(program$programs PRIVATE Citp::citp)
CMAKE
    else
        snippets=$((snippets + 1))
        grep '^#include' "$block" >>"$includes" || true
        {
            echo "void block$snippets([[maybe_unused]] CITP::citp_stack* stack, [[maybe_unused]] const QString& server,"
            printf '    [[maybe_unused]] QObject* window)\n{\n%s\n' "$label"
            sed 's/^#include.*//' "$block"
            echo "}"
        } >>"$functions"
    fi
done < <(find "$blocks" -name '*.cpp' | sort)
{
    echo '#include <citp/citp_stack.h>'
    cat "$includes"
    # Declared first, so that the compiler does not ask for that.
    grep -h -A1 '^void block' "$functions" | sed 's/^--$//; s/window)$/window);/' || true
    cat "$functions"
} >"$project/snippets.cpp"
[ "$programs" -gt 0 ] || fail "no document shows a program"
grep -q 'citp_stack::Get' "$project/program1.cpp" || fail "README.md shows no use of the stack"
configure "$project" "$project/build" "$prefix" -DCITP_QT_MAJOR="$qt_major"
build "$project/build"

projects=0 fragments=0
while read -r block; do
    name=$(where "$block")
    folder=$work/code/cmake-${name//[\/:]/-}
    rm -rf "$folder"
    mkdir -p "$folder"
    if grep -q cmake_minimum_required "$block"; then
        projects=$((projects + 1))
        program=$(find "$(dirname "$block")" -name '*.cpp' | sort | awk -v first="${block%.cmake}.cpp" '$0 > first' |
            xargs -r grep -l 'int main(' | head -n 1)
        [ -n "$program" ] || fail "$name: no program follows that it could build"
        cp "$block" "$folder/CMakeLists.txt"
        cp "$program" "$folder/main.cpp"
    else
        fragments=$((fragments + 1))
        {
            printf 'cmake_minimum_required(VERSION 3.22)\nproject(Block LANGUAGES CXX)\nadd_executable(console main.cpp)\n'
            cat "$block"
        } >"$folder/CMakeLists.txt"
        echo 'int main() {}' >"$folder/main.cpp"
    fi
    configure "$folder" "$folder/build" "$prefix" -DCITP_QT_MAJOR="$qt_major" || fail "$name is not configured"
    build "$folder/build" || fail "$name does not build"
done < <(find "$blocks" -name '*.cmake' | sort)
[ "$projects" -gt 0 ] || fail "no document shows a project"
echo "$programs programs and $snippets pieces of C++, $projects projects and $fragments pieces of CMake"
