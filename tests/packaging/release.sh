# Runs scripts/release in a repository of its own, where scripts that do nothing stand for the long checks: it must refuse
# what is not ready to be released, make nothing unless it is asked to, and push nothing.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

command -v git >/dev/null || { echo "git is not installed"; exit 77; }
scratch=$work/release
# Not those of whoever runs this, perhaps from a hook.
for name in ${!GIT_*}; do
    unset "$name"
done
export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_SYSTEM=/dev/null
export GIT_AUTHOR_NAME=Test GIT_AUTHOR_EMAIL=test@example.org GIT_COMMITTER_NAME=Test GIT_COMMITTER_EMAIL=test@example.org

# stub FILE [LINE]: a script that does LINE.
stub()
{
    mkdir -p "$(dirname "$1")"
    printf '#!/bin/sh\n%s\n' "${2:-true}" >"$1"
    chmod +x "$1"
}

commit() { git add --all && git commit --quiet --message="Test: a state"; }

# renew: a repository that is ready to release 3.2.1.
renew()
{
    cd "$work"
    rm -rf "${scratch:?}"
    mkdir -p "$scratch/scripts" "$scratch/debian"
    cd "$scratch"
    git init --quiet .
    cp "$source/scripts/release" scripts
    echo /build/ >.gitignore
    printf 'citp (3.2.1) bookworm; urgency=medium\n\n  * Better.\n\n -- A B <a@example.org>  Sun, 22 Nov 2026 12:00:00 +0000\n' >debian/changelog
    printf 'Source: citp\n\nPackage: libcitp-qt6-3\n\nPackage: libcitp-images-qt5-3\n' >debian/control
    printf '# Change log\n\n## [3.2.1] - 2026-11-22\n\n- Better.\n\n## [3.2.0] - 2026-11-01\n\n- Good.\n' >CHANGELOG.md
    # shellcheck disable=SC2016
    stub .ci/run 'mkdir -p build/ci; printf "stage  tests\nlint  -\ntotal  7\n" >build/ci/table.txt'
    stub scripts/check-reproducible
    stub scripts/check-abi
    stub scripts/make-sbom 'mkdir -p build/packages; echo {} >build/packages/citp.cdx.json; : >build/packages/libcitp-qt6-3_3.2.1_amd64.deb'
    commit
}

# expect STATUS TEXT ARGUMENT...: it must end so and say so.
expect()
{
    local wanted=$1 text=$2 status=0
    shift 2
    scripts/release "$@" >"$work/release.log" 2>&1 || status=$?
    if [ "$status" != "$wanted" ] || ! grep -qF -- "$text" "$work/release.log"; then
        cat "$work/release.log"
        fail "release $*: ends with $status and not with $wanted, or does not say '$text'"
    fi
    [ "$wanted" = 0 ] || nothing_made "$*"
    echo "$*: $text"
}

nothing_made()
{
    [ -z "$(git tag; find build/release -mindepth 1 -maxdepth 1 -type d 2>/dev/null)" ] || fail "$1: something was made"
}

# refuse TEXT COMMAND...: after the command has changed the repository, the release must be refused with this text.
refuse()
{
    local text=$1
    shift
    renew
    "$@"
    expect 1 "$text" --make 3.2.1
}

renew
expect 2 "usage: scripts/release"
expect 2 "'1.0' is no version" 1.0
expect 2 "'v3.2.1' is no version" v3.2.1
expect 2 "'3.02.1' is no version" 3.02.1
expect 2 "one version is enough" 3.2.1 3.2.2
expect 2 "'--push' is unknown here" --push 3.2.1
[ ! -e build/ci ] || fail "the long checks start before the quick ones"

expect 1 "debian/changelog, from which all take it, begins with '3.2.1'" 3.3.0
refuse "tree: not committed: new;" touch new
refuse "tree: not committed: CHANGELOG.md;" sh -c 'echo >>CHANGELOG.md'
committed() { sh -c "$1" && commit; }
refuse "begins with '[3.2.0] - 2026-11-01', not with '[3.2.1] - 2026-11-22'" committed "sed -i '/3.2.1/,/Better/d' CHANGELOG.md"
refuse "begins with '[3.2.1] - 2026-11-21', not with" committed "sed -i s/11-22/11-21/ CHANGELOG.md"
refuse "the entry of 3.2.1 in CHANGELOG.md says nothing" committed "sed -i /Better/d CHANGELOG.md"
refuse "begins with '3.2.0'; add an entry for 3.2.1" committed "sed -i 1s/3.2.1/3.2.0/ debian/changelog"
refuse "is UNRELEASED" committed "sed -i s/bookworm/UNRELEASED/ debian/changelog"
refuse "their soname is not 3: libcitp-images-qt5-2;" committed "sed -i s/qt5-3/qt5-2/ debian/control"
refuse "refused for 2 of the above" committed "sed -i s/qt5-3/qt5-2/ debian/control; echo 1 >new; git add new; sed -i /Better/d CHANGELOG.md"
[ ! -e build/ci ] || fail "the long checks start although a quick one has failed"
refuse "all stages: .ci/run failed" committed "echo exit 1 >>.ci/run"
refuse "this host did not run: lint" committed "echo 'echo lint not run >build/ci/table.txt' >>.ci/run"
refuse "reproducible: scripts/check-reproducible failed" committed "echo exit 1 >>scripts/check-reproducible"
refuse "binary compatibility: scripts/check-abi --exact failed" committed "echo exit 1 >>scripts/check-abi"
refuse "bill of materials: scripts/make-sbom failed" committed "echo exit 1 >>scripts/make-sbom"
refuse "the checks have left something: left" committed "echo touch left >>scripts/check-abi"

renew
expect 0 "3.2.1 can be made" 3.2.1
nothing_made "without --make"
expect 0 "nothing was pushed" --make 3.2.1
(cd build/release/3.2.1 && sha256sum --check --strict SHA256SUMS && [ "$(wc -l <SHA256SUMS)" = 3 ]) || fail "the checksums are wrong"
grep -qx citp-3.2.1/CHANGELOG.md <<<"$(tar --list --file=build/release/3.2.1/citp-3.2.1.tar.gz)" || fail "the archive lacks the change log"
[ "$(git rev-parse 'v3.2.1^{commit}')" = "$(git rev-parse HEAD)" ] || fail "the tag is of another commit"
status=0
scripts/release 3.2.1 >"$work/release.log" || status=$?
if [ "$status" != 1 ] || ! grep -q "tag: v3.2.1 exists already" "$work/release.log"; then
    fail "the same version is released twice"
fi
