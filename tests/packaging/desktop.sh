# Has the browser's desktop file, AppStream file and icon checked by the programs that desktops and distributions check them with.
# SPDX-License-Identifier: Apache-2.0
# shellcheck source=common.sh
. "$(dirname "$0")/common.sh"

[ "$has_tools" = ON ] || { echo "The programs are left out of this build"; exit 77; }
for program in desktop-file-validate appstreamcli; do
    command -v "$program" >/dev/null || { echo "$program is not installed"; exit 77; }
done
share=$prefix/share
desktop=$share/applications/citp-browser.desktop
metainfo=$share/metainfo/org.tarn.citp_browser.metainfo.xml
icon=$share/icons/hicolor/scalable/apps/citp-browser.svg

# It also prints hints, with exit status 0.
output=$(desktop-file-validate "$desktop" 2>&1) || fail "desktop-file-validate: $output"
[ -z "$output" ] || fail "desktop-file-validate: $output"
appstreamcli validate --no-net --pedantic "$metainfo" || fail "appstreamcli validate"
# With the desktop file and the icon that it names.
appstreamcli validate-tree --no-net "$prefix" || fail "appstreamcli validate-tree"

# What the desktop file names is installed.
[ -x "$prefix/bin/$(sed -n 's/^Exec=//p' "$desktop")" ] || fail "the program is not installed"
[ "$(sed -n 's/^Icon=//p' "$desktop")" = "$(basename "$icon" .svg)" ] || fail "the icon has another name"
python3 -c 'import sys, xml.dom.minidom as dom; sys.exit(dom.parse(sys.argv[1]).documentElement.tagName != "svg")' "$icon" ||
    fail "the icon is not an SVG"
grep -q "<id>$(basename "$metainfo" .metainfo.xml)</id>" "$metainfo" || fail "the AppStream file has another name than its id"
