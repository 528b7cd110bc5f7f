# Takes the code blocks out of a Markdown file: each goes into FOLDER/LINE.KIND, where LINE is that of its opening fence.
# A block whose kind nobody knows, or that says none, is an error: nothing would hold what stands in it.
# Variables: folder, name (of the document, for messages).
# SPDX-License-Identifier: Apache-2.0
function wrong(text) {
    printf "%s:%d: %s\n", name, FNR, text > "/dev/stderr"
    failed = 1
}

BEGIN {
    split("cpp cmake sh text output", all, " ")
    for (i in all)
        known[all[i]] = 1
}

!inside && /^ *(```|~~~)/ {
    match($0, /^ */)
    indent = RLENGTH
    kind = substr($0, indent + 4)
    # Where the page is read, "text" is what is known; the word behind it is for this check.
    if (kind == "text output")
        kind = "output"
    if (!(kind in known))
        wrong("a block of the kind '" kind "'; known are cpp, cmake, sh, text and 'text output', see docs/testing.md")
    file = sprintf("%s/%05d.%s", folder, FNR, kind)
    printf "" > file
    inside = 1
    next
}

inside && /^ *(```|~~~) *$/ {
    inside = 0
    close(file)
    previous = ""
    next
}

inside {
    match($0, /^ */)
    print substr($0, (RLENGTH < indent ? RLENGTH : indent) + 1) > file
    next
}

/^(    |\t)/ && previous ~ /^ *$/ { wrong("an indented block: put it between fences that tell its kind") }

{ previous = $0 }

END {
    if (inside)
        wrong("a block that does not end")
    exit failed
}
