#!/bin/sh
# The headers' comments are plain ones. For the reference, one that begins a line or stands behind a member is made
# documentation; the one at the head of a file becomes the file's.
exec awk '
    NR == 1 && /^\/\*$/ { print "/** @file"; next }
    /^ *\/\* ----/ { next }
    /^ *\/\*( |$)/ { sub(/\/\*/, "/**") }
    /[;,].* \/\* / { sub(/\/\* /, "/**< ") }
    { print }' "$1"
