# What the packaging tests share: the build's settings, and how a project outside of this one is built.
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
set -euo pipefail
# shellcheck source=settings.sh.in
. "$1"
# shellcheck disable=SC2034
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

fail()
{
    printf 'FAILED: %s\n' "$*" >&2
    exit 1
}

# configure FOLDER BUILD_FOLDER PREFIX [OPTION...]: configures a project afresh, with the packages in PREFIX. Several
# sources are compiled at once, which takes a third of the time.
configure()
{
    local folder=$1 build_folder=$2 packages=$3
    shift 3
    rm -rf "$build_folder"
    "$cmake" -S "$folder" -B "$build_folder" -G "$generator" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DCMAKE_UNITY_BUILD=ON \
        -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$packages${prefix_path:+;$prefix_path}" "$@"
}

# build BUILD_FOLDER [TARGET]: with one job, since other tests run at the same time.
build()
{
    "$cmake" --build "$1" --parallel 1 ${2:+--target "$2"}
}
