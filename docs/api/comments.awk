# Doxygen input filter for the public headers. The headers are written with plain `//`
# comments, as prose for people who read the header; this filter hands them to Doxygen
# as documentation without changing a header:
#  - a `//` comment line becomes `///`, a trailing `// note` behind a member (its
#    declaration, or a one-line definition) or an enumerator becomes `///< note`,
#    and a `// ---- Section ----` line is left out;
#  - the comment at the top of a header documents the header's class when it names
#    that class first ("// CBinFile: ...") or when the header exports just one class
#    that has no comment of its own; otherwise it documents the header itself;
#  - a comment above a run of overloads documents each of them, and each member of
#    the run that it names;
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
# `;`, `=` or `{` of a variable, or the name a `using` or an enum brings in; every
# operator counts as the name "operator".
function declared_name(code,    head) {
    if (code ~ /operator/) return "operator"
    head = code
    if (head ~ /^[ \t]*(using [A-Za-z_0-9]+ =|enum )/) {
        sub(/^[ \t]*(using|enum( class)?) /, "", head)
        sub(/[^A-Za-z_0-9].*/, "", head)
        return head
    }
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

    # A comment above a run of declarations (no blank line or comment between them)
    # speaks for each declaration of the run's first name (overloads; every operator
    # counts as one name, and `end` goes with `begin`) and for each one it names
    # itself ("ReleaseBuffer ends the writing"); a comment above a copy (or a move)
    # speaks for the copies (or moves) that follow it, and for nothing else. The run
    # up to the first other declaration shares the comment: each declaration after the
    # first gets a copy of it as a trailing comment on its last line (a member group
    # would not reach the members of a template's instances).
    for (i = top + 1; i < n; i++) {
        if (lines[i] !~ /^[ \t]*\/\// || lines[i + 1] ~ /^[ \t]*(\/\/|$)/) continue
        if (lines[i] ~ /^[ \t]*\/\/ *-+ /) continue
        said = ""; shared = ""
        for (k = i; k > top && lines[k] ~ /^[ \t]*\/\// && lines[k] !~ /^[ \t]*\/\/ *-+ /; k--) {
            said = lines[k] " " said
            text = lines[k]
            sub(/^[ \t]*\/\//, "", text)
            shared = escape_text(text) shared
        }
        gsub(/[^A-Za-z0-9_~]+/, " ", said)
        said = " " said " "
        depth = 0; ends = 0; family = ""; starts = 1; last = 0
        for (j = i + 1; j <= n; j++) {
            if (lines[j] ~ /^[ \t]*(\/\/.*)?$/ || lines[j] ~ /^[ \t]*(public|private|protected):/ ||
                lines[j] ~ /^#/) break
            code = lines[j]
            sub(/\/\/.*/, "", code)
            if (starts && depth == 0) {
                name = declared_name(code)
                if (name == "") break
                # A copy or a move has a contract of its own: it joins only its kind.
                special = code ~ /operator *= *\( *(const +)?[A-Za-z_]+ *&/ ||
                          code ~ ("(^|[^A-Za-z_0-9])" name "\\( *(const +)?" name " *&")
                if (special) special = code ~ /&&/ ? "move" : "copy"
                if (family == "") { family = name; kind = special }
                else if (special != kind) break
                else if (!kind && name != family && !(family == "begin" && name == "end") &&
                         index(said, " " name " ") == 0) break
            }
            depth += gsub(/\{/, "{", code) - gsub(/\}/, "}", code)
            if (depth < 0) break
            starts = depth == 0 && code ~ /[;}][ \t]*$/
            if (starts && ++ends > 1 && lines[j] !~ /\/\//) copy[j] = shared
        }
    }

    for (i = 1; i <= n; i++) {
        line = lines[i]
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
            if (code ~ /[;,]$/ || code ~ /^[ \t]*[A-Za-z_][A-Za-z_0-9]*$/ ||
                code ~ /\)[a-z ]*\{[^{}]*\}$/) {
                print code " ///<" escape_text(substr(line, RSTART + RLENGTH - 1))
                continue
            }
        }
        print line (i in copy ? " ///<" copy[i] : "")
    }
}
