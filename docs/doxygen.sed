# Makes of the documents what Doxygen understands: it knows no links to headings and no second word behind a fence.
# SPDX-License-Identifier: Apache-2.0
s/\[([^]]*)\]\(#[^)]*\)/\1/g
s/(\]\([^):#]*)#[^)]*\)/\1)/g
s/^( *```text) output$/\1/
