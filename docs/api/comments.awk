# Doxygen input filter for the public headers. The headers are written with plain `//`
# comments, as prose for people who read the header; this filter hands them to Doxygen
# as documentation without changing a header:
#  - a `//` comment line becomes `///`, a trailing `// note` behind a member or an
#    enumerator becomes `///< note`, and a `// ---- Section ----` line is left out;
#  - the comment at the top of a header documents the header's class when it names
#    that class first ("// CBinFile: ...") or when the header exports just one class
#    that has no comment of its own; otherwise it documents the header itself;
#  - a comment above a run of overloads documents each of them (a member group);
#  - text that Doxygen would read as markup (\ @ < > & % # $ *) is escaped outside
#    `code` spans, so the comments come out as they are written.
# Every output line stands for the same input line, so Doxygen's warnings point at
# the right lines of the header. POSIX awk.

function escape_text(text,    out, parts, count, i, k, c, piece, escaped) {
    count = split(text, parts, "`")
    out = ""
    for (i = 1; i <= count; i++) {
        piece = parts[i]
        if (i % 2 == 1) {
            escaped = ""
            for (k = 1; k <= length(piece); k++) {
                c = substr(piece, k, 1)
                escaped = escaped (index("\\@<>&%#$*", c) ? "\\" : "") c
            }
            piece = escaped
        }
        out = out (i > 1 ? "`" : "") piece
    }
    return out
}

# The name a declaration declares: the word before its parameter list, or before the
# `;`, `=` or `{` of a variable; every operator counts as the name "operator".
function declared_name(code,    head) {
    if (code ~ /operator/) return "operator"
    head = code
    if (head ~ /\(/) sub(/\(.*/, "", head)
    else sub(/[ \t]*[;={].*/, "", head)
    sub(/.*[^A-Za-z0-9_~]/, "", head)
    return head
}

# `line` is a comment line: `//` and the text behind it, made a doc comment.
function doc_line(line,    indent, text) {
    indent = line
    sub(/\/\/.*/, "", indent)
    text = line
    sub(/^[ \t]*\/\//, "", text)
    return indent "///" escape_text(text)
}

{ lines[NR] = $0 }

END {
    n = NR
    # The top comment and what it documents.
    top = 0
    while (top < n && lines[top + 1] ~ /^\/\//) top++
    named = ""
    if (top > 0 && match(lines[1], /^\/\/ C[A-Za-z]+[: ]/)) named = substr(lines[1], 4, RLENGTH - 4)
    exported = 0; bare = ""; subject = ""
    for (i = top + 1; i <= n; i++) {
        if (lines[i] !~ /^class DORVIK_API [A-Za-z]+/) continue
        name = lines[i]
        sub(/^class DORVIK_API /, "", name)
        sub(/[^A-Za-z].*/, "", name)
        exported++
        previous = lines[i - 1]
        if (previous ~ /^template/) previous = lines[i - 2]
        if (previous !~ /^[ \t]*\/\//) {
            if (name == named) subject = name
            if (bare == "") bare = name
        }
    }
    if (subject == "" && exported == 1) subject = bare

    # A comment above a run of overloads (declarations of one name, or all operators,
    # with no blank line or comment between them) speaks for each of them: the run
    # becomes a member group that shares the comment.
    for (i = top + 1; i < n; i++) {
        if (lines[i] !~ /^[ \t]*\/\// || lines[i + 1] ~ /^[ \t]*(\/\/|$)/) continue
        if (lines[i] ~ /^[ \t]*\/\/ *-+ /) continue
        depth = 0; ends = 0; fine = 1; family = ""; starts = 1
        for (j = i + 1; j <= n; j++) {
            if (lines[j] ~ /^[ \t]*(\/\/.*)?$/ || lines[j] ~ /^[ \t]*(public|private|protected):/ ||
                lines[j] ~ /^#/) break
            code = lines[j]
            sub(/\/\/.*/, "", code)
            if (starts && depth == 0) {
                name = declared_name(code)
                if (family == "") family = name
                else if (name != family) fine = 0
            }
            depth += gsub(/\{/, "{", code) - gsub(/\}/, "}", code)
            if (depth < 0) fine = 0
            starts = depth == 0 && code ~ /[;}][ \t]*$/
            if (starts) ends++
        }
        last = j - 1
        if (fine && family != "" && depth == 0 && ends > 1 && lines[last] !~ /\/\//) {
            group_open[i + 1] = 1
            group_close[last] = 1
        }
    }

    for (i = 1; i <= n; i++) {
        line = lines[i]
        if (group_open[i]) line = "/**@{*/ " line
        if (group_close[i]) line = line " /**@}*/"
        if (i <= top) {
            if (i == 1) {
                # The pragma line below gives room for the line that says what the
                # comment documents.
                if (subject != "") print "/// @class dorvik::classic::" subject
                else print "/// @file"
            }
            print doc_line(line)
            continue
        }
        if (i == top + 1 && top > 0 && line ~ /^#pragma once/) continue
        if (line ~ /^[ \t]*\/\/ *-+ /) { print ""; continue }
        if (line ~ /^[ \t]*\/\//) { print doc_line(line); continue }
        if (line !~ /"/ && match(line, /[ \t]+\/\/ /)) {
            code = substr(line, 1, RSTART - 1)
            if (code ~ /[;,]$/ || code ~ /^[ \t]*[A-Za-z_][A-Za-z_0-9]*$/) {
                print code " ///<" escape_text(substr(line, RSTART + RLENGTH - 1))
                continue
            }
        }
        print line
    }
}
