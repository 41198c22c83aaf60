#!/bin/sh
# The headers' comments are plain ones. For the reference, one that begins a line or stands behind a member or a
# constant is made documentation, the one at the head of a file becomes the file's, a section becomes a group with the
# text behind its title, and a comment holds for all declarations that follow it without an empty line.
exec awk '
    function closeGroup() { if (inGroup) { print "/**@}*/"; inGroup = 0 } }
    NR == 1 && /^\/\*$/ { print "/** @file"; next }
    /^\/\* ---- / {
        closeGroup()
        one = /\*\/$/
        sub(/^\/\* ---- /, ""); sub(/ ----( \*\/)?$/, "")
        print "/** @name " $0 (one ? " */\n/**@{*/" : "")
        inGroup = one; inSection = !one; comment = ""; next
    }
    inSection { print; if (/\*\/$/) { print "/**@{*/"; inSection = 0; inGroup = 1 } next }
    /^QX_END_DECLS/ { closeGroup() }
    /^(    )?\/\*( |$)/ { sub(/\/\*/, "/**") }
    /^[^ ].*[;,].* \/\* / || /^ .*[;,].* \/\* / || /^#define .* \/\* / { sub(/\/\* /, "/**< ") }
    /^\/\*\*/ { comment = $0; open = !/\*\/$/; fresh = 1; print; next }
    open { comment = comment "\n" $0; open = !/\*\/$/; print; next }
    /^$/ { comment = ""; fresh = 0 }
    /^(QX_API|ZEMA_API|extern|typedef)/ { if (comment != "" && !fresh) print comment; fresh = 0 }
    { print }' "$1"
